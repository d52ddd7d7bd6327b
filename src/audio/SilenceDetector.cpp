#include "audio/SilenceDetector.h"

#include "audio/AudioRenderer.h"
#include "media/AudioFile.h"
#include "media/MediaError.h"
#include "media/MediaInfo.h"

#include <algorithm>
#include <cmath>

namespace marlowick {

TimeMap SilenceDetector::detect(const std::filesystem::path& source, const SilenceTrim& settings) const {
    std::size_t tracks = 0;
    double duration = 0;
    try {
        const MediaInfo info = MediaInfo::of(source);
        tracks = info.audioTracks;
        duration = info.duration;
    } catch (const MediaError& e) {
        throw RenderError(RenderError::Kind::readFailed, e.what());
    }
    if (tracks == 0) {
        return TimeMap::identity(duration);
    }
    if (!settings.isEnabled) {
        return TimeMap::identity(duration);
    }
    // Only the frame peaks are kept, never the hour of samples.
    FramePeaks peaks(frameLength(AudioRenderer::sampleRate));
    try {
        AudioFile::decodeTrack(source, tracks >= 2 ? 1 : 0,
                               [&](std::span<const float> chunk) { peaks.add(chunk); });
    } catch (const MediaError& e) {
        throw RenderError(RenderError::Kind::readFailed, e.what());
    }
    return decide(peaks.finish(), AudioRenderer::sampleRate, settings, duration);
}

std::size_t SilenceDetector::frameLength(double sampleRate) {
    return std::max<std::size_t>(static_cast<std::size_t>(sampleRate * 0.02), 1);
}

void SilenceDetector::FramePeaks::add(std::span<const float> samples) {
    for (const float s : samples) {
        m_peak = std::max(m_peak, std::abs(s));
        if (++m_inFrame == m_frameLength) {
            m_peaks.push_back(m_peak);
            m_peak = 0;
            m_inFrame = 0;
        }
    }
}

std::vector<double> SilenceDetector::FramePeaks::finish() {
    if (m_inFrame > 0) {
        m_peaks.push_back(m_peak);
        m_peak = 0;
        m_inFrame = 0;
    }
    return std::move(m_peaks);
}

TimeMap SilenceDetector::detect(std::span<const float> samples, double sampleRate,
                                const SilenceTrim& settings, double duration) {
    if (!settings.isEnabled || samples.empty()) {
        return TimeMap::identity(duration);
    }
    FramePeaks frames(frameLength(sampleRate));
    frames.add(samples);
    return decide(frames.finish(), sampleRate, settings, duration);
}

TimeMap SilenceDetector::decide(std::vector<double> peaks, double sampleRate, const SilenceTrim& settings,
                                double duration) {
    if (peaks.empty()) {
        return TimeMap::identity(duration);
    }
    const std::size_t frame = frameLength(sampleRate);
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
