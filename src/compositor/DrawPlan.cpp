#include "compositor/DrawPlan.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace marlowick {

namespace {

namespace F = CompositorFeature;

// The integer rectangle holding every pixel whose centre lies within [x0, x1] × [y0, y1] and a pixel more
// on each side, clipped to the canvas. A rectangle that isn't finite covers the whole canvas.
PixelRect reachOf(double x0, double y0, double x1, double y1, int width, int height) {
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
        return {{canvas, F::tilt | beneath | extras | F::surface}};
    }

    std::vector<DrawStep> steps;
    // The canvas less an inner rectangle, as up to four bands around it.
    auto bandsAround = [&](PixelRect outer, PixelRect inner, unsigned features) {
        for (const PixelRect band :
             {PixelRect{outer.x, outer.y, outer.width, inner.y - outer.y},
              PixelRect{outer.x, inner.y + inner.height, outer.width,
                        outer.y + outer.height - inner.y - inner.height},
              PixelRect{outer.x, inner.y, inner.x - outer.x, inner.height},
              PixelRect{inner.x + inner.width, inner.y, outer.x + outer.width - inner.x - inner.width,
                        inner.height}}) {
            if (!band.empty()) {
                steps.push_back({band, features});
            }
        }
    };
    // Pixel rectangles from bounds, clipped to the canvas; none if a bound isn't finite.
    auto clipped = [&](double x0, double y0, double x1, double y1) -> std::optional<PixelRect> {
        if (!std::isfinite(x0) || !std::isfinite(y0) || !std::isfinite(x1) || !std::isfinite(y1)) {
            return std::nullopt;
        }
        x0 = std::clamp(x0, 0.0, static_cast<double>(width));
        x1 = std::clamp(x1, x0, static_cast<double>(width));
        y0 = std::clamp(y0, 0.0, static_cast<double>(height));
        y1 = std::clamp(y1, y0, static_cast<double>(height));
        return PixelRect{static_cast<int>(x0), static_cast<int>(y0), static_cast<int>(x1 - x0),
                         static_cast<int>(y1 - y0)};
    };

    // Pixels whose centres lie more than two pixels outside the surface's rectangle are untouched by it;
    // those more than its corner radius and two pixels inside are covered fully.
    const double sx0 = u.surfaceOrigin.x;
    const double sy0 = u.surfaceOrigin.y;
    const double sx1 = sx0 + u.surfaceSize.x;
    const double sy1 = sy0 + u.surfaceSize.y;
    const double inset = std::max(static_cast<double>(u.cornerRadius), 0.0) + 2;
    const auto ring =
        clipped(std::floor(sx0 - 2), std::floor(sy0 - 2), std::ceil(sx1 + 2), std::ceil(sy1 + 2));
    const auto inside = clipped(std::ceil(sx0 + inset), std::ceil(sy0 + inset), std::floor(sx1 - inset),
                                std::floor(sy1 - inset));
    if (!ring || ring->empty() || u.surfaceSize.x <= 0 || u.surfaceSize.y <= 0) {
        steps.push_back({canvas, beneath | F::surface});
    } else {
        // Beyond the shadow's reach (its rounded box offset and grown by its radius, and a pixel more)
        // no shadow falls: the canvas outside that box needs only the background.
        std::optional<PixelRect> shade;
        if ((beneath & F::shadow) && !hasDevice) {
            const double reach = static_cast<double>(u.shadowRadius) + 1;
            shade = clipped(std::floor(std::min(sx0 - 2, sx0 + u.shadowOffset.x - reach)),
                            std::floor(std::min(sy0 - 2, sy0 + u.shadowOffset.y - reach)),
                            std::ceil(std::max(sx1 + 2, sx1 + u.shadowOffset.x + reach)),
                            std::ceil(std::max(sy1 + 2, sy1 + u.shadowOffset.y + reach)));
        }
        if (shade && !shade->empty()) {
            bandsAround(canvas, *shade, beneath & ~F::shadow);
            bandsAround(*shade, *ring, beneath);
        } else {
            bandsAround(canvas, *ring, beneath);
        }
        if (inside && !inside->empty()) {
            steps.push_back({*inside, F::interior});
            bandsAround(*ring, *inside, beneath | F::surface);
        } else {
            steps.push_back({*ring, beneath | F::surface});
        }
    }

    const unsigned everything = beneath | extras | F::surface;
    if (extras & F::cursor) {
        const Float2 tip = toCanvas(u, u.cursorPosition);
        const double size = static_cast<double>(u.cursorSize) * u.cameraScale;
        const double reach = size * 0.06 + 1.5;
        steps.push_back({reachOf(tip.x - reach, tip.y - reach, tip.x + size * 0.7 + reach,
                                 tip.y + size * 1.1 + reach, width, height),
                         everything, true});
    }
    if (extras & F::ripple) {
        const Float2 centre = toCanvas(u, u.ripplePosition);
        const double radius =
            (2 + (u.cursorSize * 1.8 - 2) * static_cast<double>(u.rippleProgress)) * u.cameraScale;
        const double thickness = std::max(1.5, static_cast<double>(u.cursorSize) * 0.12 * u.cameraScale);
        const double reach = std::abs(radius) + thickness;
        steps.push_back(
            {reachOf(centre.x - reach, centre.y - reach, centre.x + reach, centre.y + reach, width, height),
             everything, true});
    }
    if (extras & F::caption) {
        steps.push_back({reachOf(u.captionOrigin.x, u.captionOrigin.y, u.captionOrigin.x + u.captionSize.x,
                                 u.captionOrigin.y + u.captionSize.y, width, height),
                         everything, true});
    }
    if (hasDevice && u.notchWidth > 0) {
        const double halfWidth = u.notchWidth * 0.5 + 1;
        const double halfHeight = u.bodySize.x * 0.024 * 0.5 + 1;
        const double cx = u.screenOrigin.x + u.screenSize.x * 0.5;
        const double cy = u.screenOrigin.y;
        steps.push_back(
            {reachOf(cx - halfWidth, cy - halfHeight, cx + halfWidth, cy + halfHeight, width, height),
             everything, true});
    }
    std::erase_if(steps, [](const DrawStep& s) { return s.region.empty(); });
    return steps;
}

PixelRect canvasReach(const FrameUniforms& u, const PixelRect& area, int sourceWidth, int sourceHeight,
                      int width, int height) {
    const auto w = static_cast<float>(std::max(sourceWidth, 1));
    const auto h = static_cast<float>(std::max(sourceHeight, 1));
    const Float2 a = toCanvas(u, {static_cast<float>(area.x - 1) / w, static_cast<float>(area.y - 1) / h});
    const Float2 b =
        toCanvas(u, {static_cast<float>(area.right() + 1) / w, static_cast<float>(area.bottom() + 1) / h});
    if (!std::isfinite(a.x) || !std::isfinite(a.y) || !std::isfinite(b.x) || !std::isfinite(b.y)) {
        return {0, 0, width, height};
    }
    const double infinity = std::numeric_limits<double>::infinity();
    const double x0 = area.x <= 0 ? -infinity : std::min(a.x, b.x);
    const double y0 = area.y <= 0 ? -infinity : std::min(a.y, b.y);
    const double x1 = area.right() >= sourceWidth ? infinity : std::max(a.x, b.x);
    const double y1 = area.bottom() >= sourceHeight ? infinity : std::max(a.y, b.y);
    auto clampTo = [](double v, int limit) { return std::clamp(v, 0.0, static_cast<double>(limit)); };
    const double left = clampTo(std::floor(x0) - 1, width);
    const double top = clampTo(std::floor(y0) - 1, height);
    const double right = clampTo(std::ceil(x1) + 1, width);
    const double bottom = clampTo(std::ceil(y1) + 1, height);
    return {static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
            static_cast<int>(bottom - top)};
}

} // namespace marlowick
