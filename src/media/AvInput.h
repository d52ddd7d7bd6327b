#pragma once

#include "media/AvPointers.h"

#include <filesystem>
#include <vector>

namespace marlowick::av {

// Silences FFmpeg's own log, once for the process: every failure reaches our callers as an error, and the
// encoders' chatter would only land on standard error.
void quietLog();

// Opens a file for reading and reads its stream information; throws MediaError naming the file.
InputFormat openInput(const std::filesystem::path& path);

// The indices of a file's streams of one kind, in file order.
std::vector<int> streamsOfType(const AVFormatContext& format, AVMediaType type);

} // namespace marlowick::av
