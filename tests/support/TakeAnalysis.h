#pragma once

#include "media/VideoDecoder.h"
#include "support/Tones.h"

#include <filesystem>
#include <vector>

namespace marlowick::test {

// The times of a movie's video frames, in order, decoded from the file.
inline std::vector<double> frameTimes(const std::filesystem::path& movie) {
    VideoDecoder decoder(movie);
    std::vector<double> times;
    BgraImage image;
    while (const auto time = decoder.next(image, [](double) { return true; })) {
        times.push_back(*time);
    }
    return times;
}

} // namespace marlowick::test
