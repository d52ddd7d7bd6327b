#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>
#include <vector>

namespace marlowick::test {

// A sine tone at 48 kHz, `seconds` long, silent from `silentAfter` seconds on.
inline std::vector<float> tone(double frequency, double amplitude, double seconds,
                               double silentAfter = INFINITY) {
    std::vector<float> out(static_cast<std::size_t>(seconds * 48000));
    for (std::size_t i = 0; i < out.size(); ++i) {
        const double t = static_cast<double>(i) / 48000;
        out[i] = t < silentAfter
                     ? static_cast<float>(amplitude * std::sin(2 * std::numbers::pi * frequency * t))
                     : 0.0f;
    }
    return out;
}

// Root mean square of a 48 kHz track between two times in seconds.
inline double level(std::span<const float> track, double from, double to) {
    const auto a = static_cast<std::size_t>(std::max(0.0, from) * 48000);
    const auto b = std::min(track.size(), static_cast<std::size_t>(std::max(0.0, to) * 48000));
    double sum = 0;
    for (std::size_t i = a; i < b; ++i) {
        sum += static_cast<double>(track[i]) * track[i];
    }
    return b > a ? std::sqrt(sum / static_cast<double>(b - a)) : 0;
}

inline double peak(std::span<const float> samples) {
    double p = 0;
    for (const float x : samples) {
        p = std::max(p, static_cast<double>(std::abs(x)));
    }
    return p;
}

// The first moment from `from` on when the track's level over 5 ms rises above `threshold`; -1 if never.
inline double onset(std::span<const float> track, double threshold, double from = 0) {
    for (double t = from; t < static_cast<double>(track.size()) / 48000; t += 0.001) {
        if (level(track, t, t + 0.005) > threshold) {
            return t;
        }
    }
    return -1;
}

} // namespace marlowick::test
