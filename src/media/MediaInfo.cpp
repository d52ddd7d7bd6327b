#include "media/MediaInfo.h"

#include "media/AvInput.h"

namespace marlowick {

MediaInfo MediaInfo::of(const std::filesystem::path& path) {
    const av::InputFormat input = av::openInput(path);
    return {av::streamsOfType(*input, AVMEDIA_TYPE_AUDIO).size(),
            av::streamsOfType(*input, AVMEDIA_TYPE_VIDEO).size(),
            input->duration == AV_NOPTS_VALUE ? 0 : static_cast<double>(input->duration) / AV_TIME_BASE};
}

} // namespace marlowick
