#pragma once

#include "model/Geometry.h"

#include <optional>
#include <string>

namespace marlowick {

// One monitor of a desktop: a rectangle of the X screen's root window, in the root's pixels (on X11 every
// monitor of a screen is a part of the one root window, side by side or overlapping).
struct ScreenMonitor {
    std::string name; // as RandR names it ("HDMI-1"), "screen" for a whole root without RandR
    int x = 0;        // the top left, from the root's
    int y = 0;
    int width = 0;
    int height = 0;
    bool primary = false;

    Size size() const { return {static_cast<double>(width), static_cast<double>(height)}; }

    // A point of the root window (an input event's place) as a point of this monitor, from its top left;
    // none where the point lies outside it.
    std::optional<Point> place(Point root) const {
        const Point local{root.x - x, root.y - y};
        if (local.x < 0 || local.y < 0 || local.x >= width || local.y >= height) {
            return std::nullopt;
        }
        return local;
    }

    friend bool operator==(const ScreenMonitor&, const ScreenMonitor&) = default;
};

} // namespace marlowick
