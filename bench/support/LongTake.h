#pragma once

// A long take for the application's benchmarks: a 1920x1080 movie of one flat colour with two sound tracks
// (two steady tones), and telemetry of a pointer tracing a slow figure over the screen at 120 Hz with a
// click every 5 s, so that the director finds rests and the sampler a real path. Made by the ffmpeg CLI;
// a flat picture encodes in a fraction of real time, so minutes of it cost seconds.

#include "model/MarlowickDocument.h"
#include "trajectory/NewRecording.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace marlowick::bench {

// Writes `package` (named `name`) with its movie inside: `minutes` long, `frameRate` pictures a second
// with a keyframe each second. The recording says 60 frames a second whatever the picture's rate, as a
// capture's does, for the cursor's sake. Throws when ffmpeg fails.
inline void makeLongTake(const std::filesystem::path& package, const std::string& name, double minutes,
                         int frameRate) {
    const double duration = minutes * 60;
    const std::filesystem::path movie = package.parent_path() / (name + "-take.mov");
    const std::string rate = std::to_string(frameRate);
    const std::string command =
        "ffmpeg -v error -y -f lavfi -i color=c=0x304050:size=1920x1080:rate=" + rate +
        " -f lavfi -i sine=frequency=220:sample_rate=48000 -f lavfi -i sine=frequency=180:sample_rate=48000 "
        "-map 0 -map 1 -map 2 -t " +
        std::to_string(duration) + " -c:v libx264 -preset ultrafast -g " + rate +
        " -pix_fmt yuv420p -c:a aac -b:a 96k '" + movie.string() + "'";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("ffmpeg could not make the take");
    }
    Recording recording;
    recording.mediaURL = Url::fileUrl(movie);
    recording.size = {1920, 1080};
    recording.frameRate = 60;
    recording.duration = duration;
    recording.capturedSystemAudio = true;
    recording.capturedMicrophone = true;
    const auto samples = static_cast<int>(duration * 120);
    recording.inputEvents.reserve(static_cast<std::size_t>(samples) +
                                  2 * static_cast<std::size_t>(duration / 5));
    for (int i = 0; i < samples; ++i) {
        const double t = i / 120.0;
        const Point location{960 + 800 * std::sin(t * 0.37), 540 + 450 * std::sin(t * 0.23 + 1)};
        recording.inputEvents.push_back({t, InputEvent::Kind::move, location});
        if (i % 600 == 300) {
            recording.inputEvents.push_back({t + 0.001, InputEvent::Kind::down, location});
            recording.inputEvents.push_back({t + 0.08, InputEvent::Kind::up, location});
        }
    }
    documentForNewRecording(recording, name).write(package);
    std::filesystem::remove(movie);
}

} // namespace marlowick::bench
