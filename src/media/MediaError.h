#pragma once

#include <stdexcept>
#include <string>

namespace marlowick {

// A movie that can't be opened, read or decoded. The text names the file or step and FFmpeg's reason.
class MediaError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// FFmpeg's words for an error code.
std::string describeAvError(int code);

} // namespace marlowick
