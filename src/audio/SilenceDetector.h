#pragma once

#include "model/AudioSettings.h"
#include "model/TimeMap.h"

#include <filesystem>
#include <span>

namespace marlowick {

// Finds the stretches in which the speaker says nothing, as removals for the project's trim. Levels only,
// no speech model: 20 ms frame peaks against the recording's own 90th-percentile peak, so one threshold
// suits a quiet and a loud speaker alike. Stateless; any thread.
struct SilenceDetector {
    // Reads the voice (track 1 of two, else track 0). A movie without sound gives the identity of its
    // duration. Throws RenderError when the track can't be read.
    TimeMap detect(const std::filesystem::path& source, const SilenceTrim& settings) const;

    // The whole decision, on samples. `duration` is the recording's, in seconds.
    static TimeMap detect(std::span<const float> samples, double sampleRate, const SilenceTrim& settings,
                          double duration);

    // Consecutive frames of `frameLength` samples, the last one possibly short, reduced to their peaks as
    // the samples arrive: all the detector keeps of a recording.
    class FramePeaks {
    public:
        explicit FramePeaks(std::size_t frameLength)
            : m_frameLength(frameLength) {}
        void add(std::span<const float> samples);
        // The peaks, the part frame at the end included.
        std::vector<double> finish();

    private:
        std::size_t m_frameLength;
        std::size_t m_inFrame = 0;
        float m_peak = 0;
        std::vector<double> m_peaks;
    };

private:
    static std::size_t frameLength(double sampleRate);
    static TimeMap decide(std::vector<double> peaks, double sampleRate, const SilenceTrim& settings,
                          double duration);
};

} // namespace marlowick
