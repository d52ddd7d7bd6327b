#pragma once

#include "media/VideoDecoder.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <vector>

namespace marlowick::test {

// Root mean square of a decoded 48 kHz track between two times in seconds.
inline double level(const std::vector<float>& track, double from, double to) {
    const auto a = static_cast<std::size_t>(std::max(0.0, from) * 48000);
    const auto b = std::min(track.size(), static_cast<std::size_t>(std::max(0.0, to) * 48000));
    double sum = 0;
    for (std::size_t i = a; i < b; ++i) {
        sum += track[i] * track[i];
    }
    return b > a ? std::sqrt(sum / static_cast<double>(b - a)) : 0;
}

// The first moment from `from` on when the track's level over 5 ms rises above `threshold`; -1 if never.
inline double onset(const std::vector<float>& track, double threshold, double from = 0) {
    for (double t = from; t < static_cast<double>(track.size()) / 48000; t += 0.001) {
        if (level(track, t, t + 0.005) > threshold) {
            return t;
        }
    }
    return -1;
}

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
