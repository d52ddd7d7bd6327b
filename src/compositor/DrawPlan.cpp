#include "compositor/DrawPlan.h"

#include <algorithm>
#include <cmath>

namespace marlowick {

namespace {

namespace F = CompositorFeature;

// The integer rectangle holding every pixel whose centre lies within [x0, x1] × [y0, y1] and a pixel more
// on each side, clipped to the canvas. A rectangle that isn't finite covers the whole canvas.
PixelRect around(double x0, double y0, double x1, double y1, int width, int height) {
    if (!std::isfinite(x0) || !std::isfinite(y0) || !std::isfinite(x1) || !std::isfinite(y1)) {
        return {0, 0, width, height};
    }
    const double left = std::clamp(std::floor(x0) - 1, 0.0, static_cast<double>(width));
    const double top = std::clamp(std::floor(y0) - 1, 0.0, static_cast<double>(height));
    const double right = std::clamp(std::ceil(x1) + 1, 0.0, static_cast<double>(width));
    const double bottom = std::clamp(std::ceil(y1) + 1, 0.0, static_cast<double>(height));
    return {static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
            static_cast<int>(bottom - top)};
}

// A point of source space on the canvas, through the crop and the camera, as the program places it.
Float2 toCanvas(const FrameUniforms& u, Float2 p) {
    return {u.surfaceOrigin.x +
                ((p.x - u.cameraCenter.x) * u.cameraScale / u.sourceCrop.x + 0.5f) * u.surfaceSize.x,
            u.surfaceOrigin.y +
                ((p.y - u.cameraCenter.y) * u.cameraScale / u.sourceCrop.y + 0.5f) * u.surfaceSize.y};
}

} // namespace

std::vector<DrawStep> planDraws(const FrameUniforms& u, int width, int height) {
    const PixelRect canvas{0, 0, width, height};
    const bool hasDevice = u.deviceMode > 0.5f;
    unsigned beneath = F::under;
    beneath |= u.shadowRadius > 0 ? F::shadow : 0;
    beneath |= hasDevice ? F::device : 0;
    unsigned extras = 0;
    extras |= u.rippleProgress >= 0 ? F::ripple : 0;
    extras |= u.cursorOpacity > 0.001f ? F::cursor : 0;
    extras |= u.captionSize.x > 0.5f && u.captionSize.y > 0.5f ? F::caption : 0;

    if (u.tiltEnabled > 0.5f) {
        return {{canvas, F::tilt | beneath | extras}};
    }

    std::vector<DrawStep> steps;
    // Pixels whose centres lie this far inside the rounded surface are covered fully.
    const double inset = std::max(static_cast<double>(u.cornerRadius), 0.0) + 2;
    // (Clipped to the canvas, which a recording may reach beyond.)
    const double ix0 = std::max(std::ceil(u.surfaceOrigin.x + inset), 0.0);
    const double iy0 = std::max(std::ceil(u.surfaceOrigin.y + inset), 0.0);
    const double ix1 =
        std::min(std::floor(u.surfaceOrigin.x + u.surfaceSize.x - inset), static_cast<double>(width));
    const double iy1 =
        std::min(std::floor(u.surfaceOrigin.y + u.surfaceSize.y - inset), static_cast<double>(height));
    const bool hasInterior = std::isfinite(ix0) && std::isfinite(iy0) && std::isfinite(ix1) &&
                             std::isfinite(iy1) && ix1 > ix0 && iy1 > iy0;
    if (!hasInterior) {
        steps.push_back({canvas, beneath});
    } else {
        const int x0 = static_cast<int>(ix0);
        const int y0 = static_cast<int>(iy0);
        const int x1 = static_cast<int>(ix1);
        const int y1 = static_cast<int>(iy1);
        steps.push_back({{x0, y0, x1 - x0, y1 - y0}, 0});
        for (const PixelRect band : {PixelRect{0, 0, width, y0}, PixelRect{0, y1, width, height - y1},
                                     PixelRect{0, y0, x0, y1 - y0}, PixelRect{x1, y0, width - x1, y1 - y0}}) {
            if (!band.empty()) {
                steps.push_back({band, beneath});
            }
        }
    }

    const unsigned everything = beneath | extras;
    if (extras & F::cursor) {
        const Float2 tip = toCanvas(u, u.cursorPosition);
        const double size = static_cast<double>(u.cursorSize) * u.cameraScale;
        const double reach = size * 0.06 + 1.5;
        steps.push_back({around(tip.x - reach, tip.y - reach, tip.x + size * 0.7 + reach,
                                tip.y + size * 1.1 + reach, width, height),
                         everything});
    }
    if (extras & F::ripple) {
        const Float2 centre = toCanvas(u, u.ripplePosition);
        const double radius =
            (2 + (u.cursorSize * 1.8 - 2) * static_cast<double>(u.rippleProgress)) * u.cameraScale;
        const double thickness = std::max(1.5, static_cast<double>(u.cursorSize) * 0.12 * u.cameraScale);
        const double reach = std::abs(radius) + thickness;
        steps.push_back(
            {around(centre.x - reach, centre.y - reach, centre.x + reach, centre.y + reach, width, height),
             everything});
    }
    if (extras & F::caption) {
        steps.push_back({around(u.captionOrigin.x, u.captionOrigin.y, u.captionOrigin.x + u.captionSize.x,
                                u.captionOrigin.y + u.captionSize.y, width, height),
                         everything});
    }
    if (hasDevice && u.notchWidth > 0) {
        const double halfWidth = u.notchWidth * 0.5 + 1;
        const double halfHeight = u.bodySize.x * 0.024 * 0.5 + 1;
        const double cx = u.screenOrigin.x + u.screenSize.x * 0.5;
        const double cy = u.screenOrigin.y;
        steps.push_back(
            {around(cx - halfWidth, cy - halfHeight, cx + halfWidth, cy + halfHeight, width, height),
             everything});
    }
    std::erase_if(steps, [](const DrawStep& s) { return s.region.empty(); });
    return steps;
}

} // namespace marlowick
