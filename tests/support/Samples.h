#pragma once

#include "model/Project.h"
#include "support/TempDir.h"

#include <filesystem>
#include <string>
#include <vector>

namespace marlowick::test {

// A stand-in movie: the model never looks inside it.
inline std::filesystem::path writeMovie(const std::filesystem::path& path,
                                        const std::string& bytes = "movie") {
    writeText(path, bytes);
    return path;
}

inline Project sampleProject(const std::filesystem::path& movie, std::string name = "Demo") {
    Project p;
    p.id = Uuid::random();
    p.name = std::move(name);
    p.source.mediaURL = Url::fileUrl(movie);
    p.source.size = {1920, 1080};
    p.source.frameRate = 60;
    p.source.duration = 30;
    p.canvas = Canvas::freshRecording();
    p.camera.beats.push_back(
        ZoomBeat(Uuid::random(), 2, 5, {0.25, 0.75}, 1.6, 0.35, 0.35, Easing::easeInOut, true));
    return p;
}

// A pointer walk with a click every second.
inline std::vector<InputEvent> sampleEvents(std::size_t count) {
    std::vector<InputEvent> events;
    events.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const double t = static_cast<double>(i) / 120.0;
        InputEvent::Kind kind = InputEvent::Kind::move;
        if (i % 120 == 60) {
            kind = InputEvent::Kind::down;
        } else if (i % 120 == 62) {
            kind = InputEvent::Kind::up;
        }
        events.push_back(
            {t,
             kind,
             {100 + static_cast<double>(i % 1700) + 0.5, 900 - static_cast<double>(i % 800) * 0.25}});
    }
    return events;
}

} // namespace marlowick::test
