#include "media/AvInput.h"

#include "media/MediaError.h"

#include <mutex>

namespace marlowick::av {

void quietLog() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

InputFormat openInput(const std::filesystem::path& path) {
    quietLog();
    AVFormatContext* raw = nullptr;
    int result = avformat_open_input(&raw, path.c_str(), nullptr, nullptr);
    if (result < 0) {
        throw MediaError(MediaErrorKind::unreadable,
                         path.string() + ": can't open: " + describeAvError(result));
    }
    InputFormat format(raw);
    if ((result = avformat_find_stream_info(raw, nullptr)) < 0) {
        throw MediaError(MediaErrorKind::unreadable,
                         path.string() + ": can't read the streams: " + describeAvError(result));
    }
    return format;
}

std::vector<int> streamsOfType(const AVFormatContext& format, AVMediaType type) {
    std::vector<int> indices;
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        // A cover picture inside a sound file is a video stream of one frame, not a track of pictures.
        const bool coverPicture = (format.streams[i]->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        if (format.streams[i]->codecpar->codec_type == type && !coverPicture) {
            indices.push_back(static_cast<int>(i));
        }
    }
    return indices;
}

} // namespace marlowick::av
