#pragma once

// The events file of a package, "Telemetry/events.json": a JSON array of input events. An hour of
// pointer telemetry at 120 Hz is 432,000 events, about 30 MB, so this file has a writer and a reader of
// its own beside the general record coders: the writer streams through a small buffer, the reader walks
// the file mapped in memory, and neither builds a document tree.

#include "model/FileOps.h"
#include "model/InputEvent.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace marlowick {

// Creates the file (it must not exist) and writes the events durably, each as
// {"time":…,"kind":"…","location":{"x":…,"y":…}} with numbers in their shortest form that reads back to
// the same double, with `permissions` as FileWriter creates files. Throws CodingError for a number that
// isn't finite, filesystem_error when writing fails.
void writeTelemetryFile(const std::filesystem::path& path, const std::vector<InputEvent>& events,
                        std::filesystem::perms permissions = fileops::FileWriter::defaultPermissions);

// The events of the file; none if it isn't a JSON array of events. Keys may come in any order and unknown
// keys are ignored; a missing or null key, or an unknown kind, spoils the whole file. Throws
// filesystem_error when the file can't be read (no permission, a folder in its place).
std::optional<std::vector<InputEvent>> readTelemetryFile(const std::filesystem::path& path);

} // namespace marlowick
