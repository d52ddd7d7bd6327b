#pragma once

#include "model/MarlowickDocument.h"

#include <optional>

namespace marlowick {

// Replaces the recording of a document with a new take while the edit survives: the canvas, the cursor
// look, the audio, the cuts, and the beats a person made, scaled onto the new take's length. The
// director makes fresh beats for the retake; captions are emptied, since the words no longer fit.
// Touches no file and cannot fail.
struct RetakeSwap {
    // The style for the new beats; none means the project's own.
    std::optional<CameraTrack::Style> style;

    struct Report {
        double previousDuration = 0;  // seconds
        double newDuration = 0;       // seconds
        int regeneratedBeats = 0;     // made by the director for the retake
        int remappedBeats = 0;        // a person's beats carried over
        bool captionsCleared = false; // a track with at least one cue was emptied

        // The new duration over the old, or 1 when the old isn't positive.
        double timeScale() const;
        // A person's beats were stretched or squeezed by more than 2%.
        bool needsReview() const;

        friend bool operator==(const Report&, const Report&) = default;
    };

    struct Result {
        MarlowickDocument document;
        Report report;
    };

    // `retake` carries its own telemetry in `inputEvents`; the new document holds it as changed telemetry.
    Result apply(const Recording& retake, const MarlowickDocument& document) const;
};

} // namespace marlowick
