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
};

} // namespace marlowick
