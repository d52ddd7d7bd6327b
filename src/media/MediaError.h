#pragma once

#include "model/TypedError.h"

#include <filesystem>
#include <string>

namespace marlowick {

// A movie that can't be opened, read, decoded or written. The text names the file or step and FFmpeg's
// reason.
enum class MediaErrorKind {
    unreadable,     // the file can't be opened, or its streams can't be read
    missingTrack,   // the file has no track of the kind or number asked for
    unsupported,    // no decoder, encoder or pixel conversion for it on this system
    decodingFailed, // a packet or frame can't be read or decoded
    encodingFailed, // a frame or sound can't be encoded
    writingFailed,  // the file can't be written: disk full, no permission, a muxer's refusal
};
using MediaError = TypedError<MediaErrorKind>;

// FFmpeg's words for an error code.
std::string describeAvError(int code);

// Throws a MediaError whose text reads "PATH: WHAT: FFmpeg's reason".
[[noreturn]] void failWith(MediaErrorKind kind, const std::filesystem::path& path, const std::string& what,
                           int code);

} // namespace marlowick
