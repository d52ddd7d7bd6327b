#include "audio/DSP.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>

namespace marlowick {

Biquad Biquad::highPass(double frequency, double q, double sampleRate) {
    const double w = 2 * std::numbers::pi * frequency / sampleRate;
    const double alpha = std::sin(w) / (2 * q);
    const double cw = std::cos(w);
    const double a0 = 1 + alpha;
    Biquad f;
    f.b0 = (1 + cw) / 2 / a0;
    f.b1 = -(1 + cw) / a0;
    f.b2 = f.b0;
    f.a1 = -2 * cw / a0;
    f.a2 = (1 - alpha) / a0;
    return f;
}

Biquad Biquad::peaking(double frequency, double q, double gainDB, double sampleRate) {
    const double w = 2 * std::numbers::pi * frequency / sampleRate;
    const double alpha = std::sin(w) / (2 * q);
    const double a = std::pow(10, gainDB / 40);
    const double a0 = 1 + alpha / a;
    Biquad f;
    f.b0 = (1 + alpha * a) / a0;
    f.b1 = -2 * std::cos(w) / a0;
    f.b2 = (1 - alpha * a) / a0;
    f.a1 = f.b1;
    f.a2 = (1 - alpha / a) / a0;
    return f;
}

void Biquad::process(std::span<float> samples) {
    for (float& s : samples) {
        s = static_cast<float>(process(static_cast<double>(s)));
    }
}

EnvelopeFollower::EnvelopeFollower(double attackSeconds, double releaseSeconds, double sampleRate)
    : m_attack(std::exp(-1 / (std::max(attackSeconds, 0.00001) * sampleRate)))
    , m_release(std::exp(-1 / (std::max(releaseSeconds, 0.00001) * sampleRate))) {}

Expander::Expander(double floor, double amount, double sampleRate)
    : m_follower(0.003, 0.12, sampleRate)
    , m_floor(floor)
    , m_minimum((1 - std::min(amount, 1.0)) * 0.75 + 0.05)
    , m_span(2.5 * floor - floor) {
    if (m_span <= 0.000000001) {
        m_span = 0.000000001;
    }
}

Compressor::Compressor(double amount, double sampleRate)
    : m_follower(0.005, 0.18, sampleRate)
    , m_makeup(std::pow(10, 6 * std::min(amount, 1.0) / 20))
    , m_threshold((1 - std::min(amount, 1.0)) * 12 - 24)
    , m_ratio(5 * std::min(amount, 1.0) + 1)
    // Levels clearly below the threshold keep a gain of 1 without a logarithm; only those near or above
    // it are measured in decibels, so the boundary is decided exactly as the formula does.
    , m_below(std::pow(10, m_threshold / 20) * (1 - 1e-9)) {}

float Compressor::process(float s) {
    const double e = m_follower.process(s);
    double gain = 1;
    if (e >= m_below) {
        const double level = 20 * std::log10(std::max(e, 0.000000001));
        if (level > m_threshold) {
            gain = std::pow(10, (m_threshold + (level - m_threshold) / m_ratio - level) / 20);
        }
    }
    return static_cast<float>(m_makeup * (gain * static_cast<double>(s)));
}

namespace DSP {

double noiseFloor(std::span<const float> samples, double sampleRate, double window, double fraction) {
    const auto frame = std::max<std::size_t>(static_cast<std::size_t>(sampleRate * window), 1);
    if (frame >= samples.size()) {
        return 0;
    }
    std::vector<double> levels;
    levels.reserve(samples.size() / frame);
    for (std::size_t start = 0; start + frame <= samples.size(); start += frame) {
        double sum = 0;
        for (std::size_t i = start; i < start + frame; ++i) {
            sum += static_cast<double>(samples[i]) * samples[i];
        }
        levels.push_back(std::sqrt(sum / static_cast<double>(frame)));
    }
    // Indexed by the count, not the count less one as `percentile` does. Selecting the element gives the
    // one a full sort would put there.
    const auto index =
        std::min(levels.size() - 1, static_cast<std::size_t>(fraction * static_cast<double>(levels.size())));
    std::nth_element(levels.begin(), levels.begin() + static_cast<std::ptrdiff_t>(index), levels.end());
    return levels[index];
}

void denoise(std::span<float> samples, double amount, double sampleRate) {
    if (!(amount > 0)) {
        return;
    }
    const double floor = noiseFloor(samples, sampleRate, 0.05, 0.1);
    if (!(floor > 0)) {
        return;
    }
    Expander expander(floor, amount, sampleRate);
    for (float& s : samples) {
        s = expander.process(s);
    }
}

void compress(std::span<float> samples, double amount, double sampleRate) {
    if (!(amount > 0)) {
        return;
    }
    Compressor compressor(amount, sampleRate);
    for (float& s : samples) {
        s = compressor.process(s);
    }
}

namespace {

// `percentile` on values it may reorder: the element a sort would put at the index, found without
// sorting (an hour of levels is 172.8 million of them).
double percentileInPlace(std::vector<double>& values, double fraction) {
    if (values.empty()) {
        return 0;
    }
    const double position = fraction * static_cast<double>(values.size() - 1);
    const auto index =
        position <= 0 ? std::size_t{0} : std::min(static_cast<std::size_t>(position), values.size() - 1);
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index), values.end());
    return values[index];
}

} // namespace

double percentile(std::vector<double> values, double fraction) {
    return percentileInPlace(values, fraction);
}

std::vector<float> duckingGains(std::span<const float> voice, double amount, double sampleRate) {
    if (!(amount > 0)) {
        return std::vector<float>(voice.size(), 1.0f);
    }
    // The 95th percentile of the follower's levels, selected exactly without keeping an hour of them:
    // one pass counts the levels by the top bits of their ordered bit patterns, a second collects only
    // the bucket that holds the wanted rank. The follower is deterministic, so each pass sees the same
    // levels.
    auto followVoice = [&](auto&& visit) {
        EnvelopeFollower follower(0.01, 0.35, sampleRate);
        for (const float s : voice) {
            visit(follower.process(s));
        }
    };
    double p95 = 0;
    if (!voice.empty()) {
        constexpr int bucketBits = 20;
        auto bucketOf = [](double level) {
            std::uint64_t bits = 0;
            std::memcpy(&bits, &level, sizeof bits);
            // Flipping makes the bit patterns of negative and positive doubles sort as their values do.
            bits = (bits >> 63) ? ~bits : bits | (std::uint64_t{1} << 63);
            return static_cast<std::size_t>(bits >> (64 - bucketBits));
        };
        std::vector<std::uint32_t> counts(std::size_t{1} << bucketBits);
        followVoice([&](double level) { ++counts[bucketOf(level)]; });
        const double position = 0.95 * static_cast<double>(voice.size() - 1);
        std::size_t rank = std::min(static_cast<std::size_t>(position), voice.size() - 1);
        std::size_t bucket = 0;
        while (rank >= counts[bucket]) {
            rank -= counts[bucket++];
        }
        std::vector<double> candidates;
        candidates.reserve(counts[bucket]);
        followVoice([&](double level) {
            if (bucketOf(level) == bucket) {
                candidates.push_back(level);
            }
        });
        std::nth_element(candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(rank),
                         candidates.end());
        p95 = candidates[rank];
    }
    const double floor = noiseFloor(voice, sampleRate, 0.05, 0.1);
    const double low = std::max({3.0 * floor, 0.12 * p95, 0.004});
    const double span = std::max(1.5 * low, 0.000000001);
    const double a = std::min(amount, 1.0);
    const auto deepest = static_cast<float>(a * -0.85 + 1.0);
    const float depth = 1 - deepest;
    std::vector<float> gains;
    gains.reserve(voice.size());
    followVoice([&](double level) {
        const auto t = static_cast<float>(std::min(std::max((level - low) / span, 0.0), 1.0));
        gains.push_back(1 - depth * t);
    });
    return gains;
}

std::vector<float> clickTrack(std::span<const double> times, std::size_t sampleCount, double sampleRate,
                              double gain) {
    const auto n = static_cast<std::size_t>(std::max(sampleRate * 0.012, 0.0));
    std::vector<float> out(sampleCount, 0.0f);
    if (!(gain > 0) || n < 2) {
        return out;
    }
    std::vector<float> click(n);
    for (std::size_t i = 0; i < n; ++i) {
        const double t = static_cast<double>(i) / sampleRate;
        click[i] = static_cast<float>(gain * std::sin(2 * std::numbers::pi * 2200 * t) * std::exp(-320 * t));
    }
    for (const double time : times) {
        const double position = std::trunc(sampleRate * time);
        if (!(position >= 0) || position >= static_cast<double>(sampleCount)) {
            continue;
        }
        const auto start = static_cast<std::size_t>(position);
        const std::size_t end = std::min(sampleCount, start + n);
        for (std::size_t i = start; i < end; ++i) {
            out[i] += click[i - start];
        }
    }
    return out;
}

void normalize(std::span<float> samples, float peak, float maximumGain) {
    if (samples.empty()) {
        return;
    }
    float largest = 0;
    for (const float s : samples) {
        largest = std::max(largest, std::abs(s));
    }
    if (!(largest > 0.0005f)) {
        return;
    }
    const float g = std::min(maximumGain, peak / largest);
    if (g == 1.0f) {
        return;
    }
    for (float& s : samples) {
        s *= g;
    }
}

} // namespace DSP

} // namespace marlowick
