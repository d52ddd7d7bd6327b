#pragma once

#include <functional>

namespace marlowick {

// A point with no unit of its own: event locations are in recorded pixels, beat centres, anchors and
// cursor positions are 0-to-1 fractions of the frame with y growing downwards.
struct Point {
    double x = 0;
    double y = 0;

    friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
    double width = 0;
    double height = 0;

    // Width over height; 0 when the height is exactly 0.
    double aspect() const { return height == 0 ? 0 : width / height; }

    friend bool operator==(const Size&, const Size&) = default;
};

} // namespace marlowick
