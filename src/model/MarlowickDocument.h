#pragma once

#include "model/FileOps.h"
#include "model/InputEvent.h"
#include "model/Project.h"
#include "model/TypedError.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace marlowick {

// A package that can't be opened or saved. The text is the payload: the package's path for
// `notAPackage`, the version found for `unsupportedFormatVersion`, and for `mediaMissing` the movie's
// path relative to the package on read, its absolute path on write, and for `telemetryDamaged` the
// events file's path relative to the package.
enum class DocumentErrorKind { notAPackage, unsupportedFormatVersion, mediaMissing, telemetryDamaged };
using DocumentError = TypedError<DocumentErrorKind>;

// A project together with its telemetry, in memory and on disk. On disk it is a package directory:
//
//   Document.json          the envelope {formatVersion, mediaRelativePath, project}, sorted keys
//   Media/<movie>          the movie under its own file name
//   Telemetry/events.json  the input events
//   Cache/                 empty at every save
//
// A value, shared by copying. `read` and `write` are synchronous and block the calling thread; two
// writes to the same target must not run at once.
class MarlowickDocument {
public:
    static constexpr std::string_view fileExtension = "marlowick";
    static constexpr std::int64_t currentFormatVersion = 3;

    // The edit; its `source.inputEvents` is kept empty, the events live in `telemetry`.
    Project project;

    // A new document: its first save writes the telemetry.
    MarlowickDocument(Project project, std::vector<InputEvent> telemetry);

    // Opens the package at `package`. Throws DocumentError for a directory without "Document.json", a
    // version above the current one, or a movie that can't be found inside the package; CodingError
    // for a "Document.json" that isn't a valid project; filesystem_error when it or the events file can't
    // be read. An events file that is missing opens as empty telemetry; one that is read but doesn't hold
    // events throws DocumentError (telemetryDamaged).
    static MarlowickDocument read(const std::filesystem::path& package);

    // The package that holds `path`, following `..` and symbolic links, or none. What lies inside a
    // package is written by a save alone: anything else written there would be lost at the next save, or
    // would break the package. A folder counts as a package by its extension, or by holding a
    // "Document.json" beside a "Media" folder.
    static std::optional<std::filesystem::path> packageHolding(const std::filesystem::path& path);

    // Writes a complete new package beside `target` and swaps it in whole, so that at every instant
    // `target` holds the previous package or the new one. Replaces only a package: an existing path that
    // isn't one is refused as `notAPackage`. On failure nothing at `target` changes and no scratch
    // directory remains. Doesn't change the document.
    void write(const std::filesystem::path& target) const;

    // The project as a save stores it in "Document.json", pretty-printed with sorted keys.
    std::string storedProjectJson() const;

    static std::filesystem::path cacheDirectory(const std::filesystem::path& package) {
        return package / "Cache";
    }

    const std::vector<InputEvent>& telemetry() const { return m_telemetry; }
    void setTelemetry(std::vector<InputEvent> telemetry);
    // For an in-place change; the telemetry counts as changed from then on.
    std::vector<InputEvent>& mutableTelemetry();
    // Whether `telemetry` differs from what the package it was read from holds.
    bool telemetryChanged() const { return m_telemetryChanged; }

private:
    MarlowickDocument() = default;

    std::vector<InputEvent> m_telemetry;
    bool m_telemetryChanged = true;
    // The events file this telemetry was read from, as it was then. An unchanged save reuses the
    // target's events file only if it is this very file (saves bring it along by hard link, keeping its
    // identity), so that saving over another package never adopts that package's events.
    std::optional<fileops::FileIdentity> m_telemetrySource;
};

} // namespace marlowick
