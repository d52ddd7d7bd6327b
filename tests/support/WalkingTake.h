#pragma once

#include "model/Recording.h"

#include <filesystem>

namespace marlowick::test {

// A recording of `movie` (`seconds` long, 320x180 at 10 frames a second, with system sound) whose pointer
// walks from `start` by `step` every tenth of a second, its height cycling every second, with a click
// (down, then up) half way through each second.
inline Recording walkingTake(const std::filesystem::path& movie, double seconds, Point start, Point step) {
    Recording recording;
    recording.mediaURL = Url::fileUrl(movie);
    recording.size = {320, 180};
    recording.frameRate = 10;
    recording.duration = seconds;
    recording.capturedSystemAudio = true;
    for (int i = 0; i < static_cast<int>(seconds * 10); ++i) {
        const double t = i * 0.1;
        const Point location{start.x + i * step.x, start.y + (i % 10) * step.y};
        recording.inputEvents.push_back({t, InputEvent::Kind::move, location});
        if (i % 10 == 5) {
            recording.inputEvents.push_back({t + 0.02, InputEvent::Kind::down, location});
            recording.inputEvents.push_back({t + 0.05, InputEvent::Kind::up, location});
        }
    }
    return recording;
}

} // namespace marlowick::test
