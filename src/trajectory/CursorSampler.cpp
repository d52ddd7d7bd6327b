#include "trajectory/CursorSampler.h"

#include "trajectory/PathSmoother.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace marlowick {

namespace {

constexpr double openEnd = std::numeric_limits<double>::max();
// Pointer jitter below this many pixels (|dx| + |dy|) between samples is rest, not movement.
constexpr double movementThreshold = 2.0;
// A fade takes a quarter of a second.
constexpr double fadeRate = 4;

} // namespace

CursorSampler::CursorSampler(const std::vector<InputEvent>& telemetry, const Recording& recording,
                             const CursorStyle& style_)
    : frameRate(std::max(recording.frameRate, 1.0))
    , style(style_) {
    const Size divisor{std::max(recording.size.width, 1.0), std::max(recording.size.height, 1.0)};

    const InputEvent* previous = nullptr;
    double lastActive = 0;
    for (const InputEvent& e : telemetry) {
        if (e.kind == InputEvent::Kind::down) {
            clicks.push_back(e.time);
            clickPositions.push_back({e.location.x / divisor.width, e.location.y / divisor.height});
        }
        if (e.kind == InputEvent::Kind::keyPress) {
            continue;
        }
        if (previous == nullptr) {
            startTime = e.time;
            lastActive = e.time;
            previous = &e;
        }
        const bool moved =
            std::abs(e.location.x - previous->location.x) + std::abs(e.location.y - previous->location.y) >
            movementThreshold;
        if (moved && style.hideWhenIdle) {
            if (e.time - lastActive > *style.hideWhenIdle) {
                idleGaps.push_back({lastActive + *style.hideWhenIdle, e.time});
            }
            lastActive = e.time;
        }
        previous = &e;
    }
    if (previous != nullptr && style.hideWhenIdle && previous->time - lastActive > *style.hideWhenIdle) {
        idleGaps.push_back({lastActive + *style.hideWhenIdle, openEnd});
    }

    positions = PathSmoother(style.smoothing).smooth(telemetry, frameRate);
    for (Point& p : positions) {
        p.x /= divisor.width;
        p.y /= divisor.height;
    }
}

double CursorSampler::opacityAt(double t) const {
    for (const Gap& gap : idleGaps) {
        if (gap.start <= t && t <= gap.end) {
            const double out = (t - gap.start) * fadeRate;
            if (gap.end == openEnd) {
                return 1 - std::min(out, 1.0);
            }
            const double in = (gap.end - t) * fadeRate;
            return 1 - std::min({out, in, 1.0});
        }
    }
    return 1;
}

std::optional<CursorFrame> CursorSampler::frameAt(double t) const {
    if (positions.empty()) {
        return std::nullopt;
    }
    const long long last = static_cast<long long>(positions.size()) - 1;
    const long long index = std::clamp(std::llround((t - startTime) * frameRate), 0LL, last);
    CursorFrame frame{positions[static_cast<std::size_t>(index)], opacityAt(t), style.scale, -1, {0, 0}};
    if (style.clickRipple) {
        // One ripple at a time: the earlier click runs to its end before a later one shows.
        for (std::size_t i = 0; i < clicks.size(); ++i) {
            const double d = t - clicks[i];
            if (d >= 0 && d <= rippleDuration) {
                frame.rippleProgress = d / rippleDuration;
                frame.ripplePosition = clickPositions[i];
                break;
            }
        }
    }
    return frame;
}

} // namespace marlowick
