#include "media/MediaError.h"

extern "C" {
#include <libavutil/error.h>
}

namespace marlowick {

std::string describeAvError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

void failWith(MediaErrorKind kind, const std::filesystem::path& path, const std::string& what, int code) {
    throw MediaError(kind, path.string() + ": " + what + ": " + describeAvError(code));
}

} // namespace marlowick
