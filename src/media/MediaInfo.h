#pragma once

#include <cstddef>
#include <filesystem>

namespace marlowick {

// What a movie or sound file holds, read from its header in one opening. Throws MediaError when the file
// can't be read.
struct MediaInfo {
    std::size_t audioTracks = 0; // in file order: system audio first, then the microphone
    std::size_t videoTracks = 0;
    double duration = 0; // seconds; 0 when the container doesn't say
    // The first video track's picture size in pixels, and its frame rate in frames a second as the file
    // states it (its average, else its base rate); all 0 without video, and the rate 0 when unstated.
    int width = 0;
    int height = 0;
    double frameRate = 0;

    static MediaInfo of(const std::filesystem::path& path);
};

} // namespace marlowick
