#include "export/StillFrame.h"

#include "export/FrameDrawer.h"
#include "export/OutputTimeline.h"
#include "media/VideoDecoder.h"

namespace marlowick {

std::optional<BgraImage> drawStillFrame(const Project& project, const std::vector<InputEvent>& telemetry,
                                        double outputTime, int width, int height) {
    const OutputTimeline timeline(project, telemetry);
    VideoDecoder decoder(project.source.mediaURL.path());
    const auto frame = decoder.frameAt(timeline.sourceTime(outputTime));
    if (!frame) {
        return std::nullopt;
    }
    FrameDrawer drawer(timeline, width, height);
    drawer.setPicture(frame->image, PictureChange::everywhere());
    drawer.draw(outputTime);
    return drawer.picture();
}

} // namespace marlowick
