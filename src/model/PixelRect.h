#pragma once

#include <algorithm>

namespace marlowick {

// A rectangle of a picture's, a texture's or a canvas's pixels, top-left origin.
struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool empty() const { return width <= 0 || height <= 0; }
    int right() const { return x + width; }
    int bottom() const { return y + height; }
    friend bool operator==(const PixelRect&, const PixelRect&) = default;

    // The pixels in both; empty when they don't meet.
    static PixelRect intersection(const PixelRect& a, const PixelRect& b) {
        const int x0 = std::max(a.x, b.x);
        const int y0 = std::max(a.y, b.y);
        const int x1 = std::min(a.right(), b.right());
        const int y1 = std::min(a.bottom(), b.bottom());
        return x1 > x0 && y1 > y0 ? PixelRect{x0, y0, x1 - x0, y1 - y0} : PixelRect{};
    }
};

} // namespace marlowick
