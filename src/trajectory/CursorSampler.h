#pragma once

#include "model/CursorStyle.h"
#include "model/InputEvent.h"
#include "model/Recording.h"

#include <optional>
#include <vector>

namespace marlowick {

// The drawn cursor for every frame of a recording: the smoothed path, the click ripples and the fades
// while the pointer rests. All the work happens at construction; afterwards the value only answers
// `frameAt`, so preview and export can share one from any thread.
struct CursorSampler {
    static constexpr double rippleDuration = 0.45; // seconds

    // A stretch of source seconds in which the cursor is hidden. An `end` of the largest finite double
    // marks a rest that lasts to the end of the recording.
    struct Gap {
        double start = 0;
        double end = 0;
    };

    std::vector<Point> positions;      // one per frame, fractions of the recorded frame
    double frameRate = 1;              // of `positions`; the recording's, at least 1
    double startTime = 0;              // seconds: the time of `positions[0]`
    std::vector<double> clicks;        // seconds: the `down` events, in stored order
    std::vector<Point> clickPositions; // the raw locations of those events, as fractions of the frame
    CursorStyle style;
    std::vector<Gap> idleGaps;

    CursorSampler(const std::vector<InputEvent>& telemetry, const Recording& recording,
                  const CursorStyle& style);

    bool isEmpty() const { return positions.empty(); }

    // The cursor at source time t, taken from the nearest frame; none when there is no path. Callers pass
    // finite times.
    std::optional<CursorFrame> frameAt(double t) const;

private:
    // 1 outside the gaps; fades out over a quarter second from a gap's start and back in over the
    // quarter second before movement resumes.
    double opacityAt(double t) const;
};

} // namespace marlowick
