#pragma once

#include "model/InputEvent.h"

#include <vector>

namespace marlowick {

// Pulls a critically damped spring along the pointer's path, one step per frame, then moves every inner
// point to the middle of the Catmull-Rom segment that follows it. The result lies half a frame ahead of
// the spring; nothing corrects that, and the cursor looks the better for it.
struct PathSmoother {
    double stiffness = 0; // 1/s²
    double damping = 0;   // 1/s; always the critical value for the stiffness

    // Smoothing 0 (or less) is the stiffest spring, 320/s²; 1 (or more) the softest, 60/s².
    explicit PathSmoother(double smoothing);

    // A path in the telemetry's own pixels, one point per frame from the first sample's time to the last.
    // Key presses carry no position and are left out. With one sample, or no positive frame rate, the
    // samples' locations come back as they are.
    std::vector<Point> smooth(const std::vector<InputEvent>& events, double frameRate) const;
};

} // namespace marlowick
