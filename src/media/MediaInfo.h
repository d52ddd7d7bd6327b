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

    static MediaInfo of(const std::filesystem::path& path);
};

} // namespace marlowick
