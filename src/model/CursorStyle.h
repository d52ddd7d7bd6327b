#pragma once

#include "model/Geometry.h"

#include <optional>

namespace marlowick {

// The drawn cursor's settings. The default look serves a new project and a file without `cursor`.
struct CursorStyle {
    double smoothing = 0.7;
    double scale = 1.0;
    bool motionBlur = true;
    bool clickRipple = true;
    // Seconds of rest after which the cursor fades out; none means it never hides.
    std::optional<double> hideWhenIdle = 3.0;

    friend bool operator==(const CursorStyle&, const CursorStyle&) = default;
};

// The cursor's state for one output frame; never stored. Positions are fractions of the frame.
struct CursorFrame {
    Point position;
    double opacity = 0;
    double scale = 0;
    double rippleProgress = 0;
    Point ripplePosition;

    friend bool operator==(const CursorFrame&, const CursorFrame&) = default;
};

} // namespace marlowick
