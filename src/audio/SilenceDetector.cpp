#include "audio/SilenceDetector.h"

#include "audio/AudioRenderer.h"
#include "media/AudioFile.h"
#include "media/MediaError.h"

#include <algorithm>
#include <cmath>

namespace marlowick {

TimeMap SilenceDetector::detect(const std::filesystem::path& source, const SilenceTrim& settings) const {
    std::size_t tracks = 0;
    double duration = 0;
    try {
        tracks = AudioFile::trackCount(source);
        duration = AudioFile::duration(source);
    } catch (const MediaError& e) {
        throw RenderError(RenderError::Kind::readFailed, e.what());
    }
    if (tracks == 0) {
        return TimeMap::identity(duration);
    }
    const std::vector<float> samples = AudioRenderer{}.decodeForAnalysis(source, tracks >= 2 ? 1 : 0);
    if (samples.empty()) {
        return TimeMap::identity(duration);
    }
    return detect(samples, AudioRenderer::sampleRate, settings, duration);
}

TimeMap SilenceDetector::detect(std::span<const float> samples, double sampleRate,
                                const SilenceTrim& settings, double duration) {
    if (!settings.isEnabled || samples.empty()) {
        return TimeMap::identity(duration);
    }
    const auto frame = std::max<std::size_t>(static_cast<std::size_t>(sampleRate * 0.02), 1);
    // A last part frame counts as a frame.
    std::vector<double> peaks;
    peaks.reserve(samples.size() / frame + 1);
    for (std::size_t start = 0; start < samples.size(); start += frame) {
        float peak = 0;
        for (std::size_t i = start; i < std::min(start + frame, samples.size()); ++i) {
            peak = std::max(peak, std::abs(samples[i]));
        }
        peaks.push_back(peak);
    }
    std::vector<double> sorted = peaks;
    const std::size_t index =
        std::min(sorted.size() - 1, static_cast<std::size_t>(0.9 * static_cast<double>(sorted.size() - 1)));
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(index), sorted.end());
    const double reference = sorted[index];
    // A recording that never rises above this is left whole rather than cut away.
    if (!(reference > 0.001)) {
        return TimeMap::identity(duration);
    }
    const double cutoff = std::max(settings.threshold, 0.001) * reference;
    const double frameDuration = static_cast<double>(frame) / sampleRate;

    std::vector<Range> removals;
    std::optional<std::size_t> runStart;
    // Padding comes off both ends before the length is judged, so the minimum is what is actually cut.
    auto close = [&](std::size_t end) {
        if (runStart) {
            const double from = settings.padding + frameDuration * static_cast<double>(*runStart);
            const double to = frameDuration * static_cast<double>(end) - settings.padding;
            if (to - from >= settings.minimumSilence) {
                removals.push_back({from, to});
            }
            runStart.reset();
        }
    };
    for (std::size_t i = 0; i < peaks.size(); ++i) {
        if (peaks[i] < cutoff) {
            if (!runStart) {
                runStart = i;
            }
        } else {
            close(i);
        }
    }
    close(peaks.size());
    return TimeMap(std::move(removals), duration);
}

} // namespace marlowick
