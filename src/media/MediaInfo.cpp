#include "media/MediaInfo.h"

#include "media/AvInput.h"

namespace marlowick {

MediaInfo MediaInfo::of(const std::filesystem::path& path) {
    const av::InputFormat input = av::openInput(path);
    const std::vector<int> video = av::streamsOfType(*input, AVMEDIA_TYPE_VIDEO);
    MediaInfo info{av::streamsOfType(*input, AVMEDIA_TYPE_AUDIO).size(), video.size(),
                   input->duration == AV_NOPTS_VALUE ? 0
                                                     : static_cast<double>(input->duration) / AV_TIME_BASE};
    if (!video.empty()) {
        const AVStream& stream = *input->streams[video.front()];
        info.width = stream.codecpar->width;
        info.height = stream.codecpar->height;
        for (const AVRational rate : {stream.avg_frame_rate, stream.r_frame_rate}) {
            if (rate.num > 0 && rate.den > 0) {
                info.frameRate = av_q2d(rate);
                break;
            }
        }
    }
    return info;
}

} // namespace marlowick
