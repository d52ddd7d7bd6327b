#include "trajectory/PathSmoother.h"

#include <algorithm>
#include <cmath>

namespace marlowick {

namespace {

struct Sample {
    double time;
    Point location;
};

// The spring's target at time t: the path through the samples, straight between neighbours.
Point target(const std::vector<Sample>& samples, double t) {
    if (t <= samples.front().time) {
        return samples.front().location;
    }
    if (t >= samples.back().time) {
        return samples.back().location;
    }
    std::size_t lo = 0;
    std::size_t hi = samples.size() - 1;
    while (hi - lo > 1) {
        const std::size_t mid = (lo + hi) / 2;
        if (samples[mid].time <= t) {
            lo = mid;
        } else {
            hi = mid;
        }
    }
    const Sample& a = samples[lo];
    const Sample& b = samples[hi];
    const double span = b.time - a.time;
    if (!(span > 0)) {
        return b.location;
    }
    const double f = (t - a.time) / span;
    return {a.location.x + (b.location.x - a.location.x) * f,
            a.location.y + (b.location.y - a.location.y) * f};
}

// Semi-implicit Euler with a critically damped spring is stable only while sqrt(stiffness) times the step
// stays below 2·sqrt(2) − 2 (about 0.83): beyond it the cursor swings ever wider and flies off to
// astronomical coordinates. The stiffest spring crosses that line below 22 frames a second, so a step
// longer than this bound is split into equal sub-steps; at the usual 24 to 60 frames a second there is
// one step per frame, as before.
constexpr double longestStableStep = 0.75;

// Semi-implicit Euler on both axes. Entry 0 already lies one step along, not on the first sample.
std::vector<Point> springPass(const std::vector<Sample>& samples, double frameRate, double stiffness,
                              double damping) {
    const double dt = 1 / frameRate;
    const double t0 = samples.front().time;
    const double t1 = samples.back().time;
    const auto steps = std::max<long long>(std::llround((t1 - t0) / dt) + 1, 1);
    const auto substeps =
        std::max(1, static_cast<int>(std::ceil(std::sqrt(stiffness) * dt / longestStableStep)));
    const double h = dt / substeps;
    std::vector<Point> path;
    path.reserve(static_cast<std::size_t>(steps));
    Point p = samples.front().location;
    Point v{0, 0};
    for (long long i = 0; i < steps; ++i) {
        for (int j = substeps - 1; j >= 0; --j) {
            // The last sub-step of a frame lands on the frame's own time, as a single step would.
            const Point goal = target(samples, t0 + dt * static_cast<double>(i) - h * j);
            const double ax = (goal.x - p.x) * stiffness - v.x * damping;
            const double ay = (goal.y - p.y) * stiffness - v.y * damping;
            v.x += ax * h;
            v.y += ay * h;
            p.x += v.x * h;
            p.y += v.y * h;
        }
        path.push_back(p);
    }
    return path;
}

// Each inner point moves to the middle of the Catmull-Rom segment that follows it.
std::vector<Point> resample(const std::vector<Point>& p) {
    const std::size_t n = p.size();
    if (n < 4) {
        return p;
    }
    std::vector<Point> out(n);
    out.front() = p.front();
    out.back() = p.back();
    auto middle = [](double p0, double p1, double p2, double p3) {
        return 0.5 * (2 * p1 + (p2 - p0) * 0.5 + (2 * p0 - 5 * p1 + 4 * p2 - p3) * 0.25 +
                      (-p0 + 3 * p1 - 3 * p2 + p3) * 0.125);
    };
    for (std::size_t i = 0; i + 2 < n; ++i) {
        const Point& a = p[i];
        const Point& b = p[i + 1];
        const Point& c = p[i + 2];
        const Point& d = p[std::min(i + 3, n - 1)];
        out[i + 1] = {middle(a.x, b.x, c.x, d.x), middle(a.y, b.y, c.y, d.y)};
    }
    return out;
}

} // namespace

PathSmoother::PathSmoother(double smoothing)
    : stiffness(smoothing <= 0 ? 320 : 320 - 260 * std::min(smoothing, 1.0))
    , damping(2 * std::sqrt(stiffness)) {}

std::vector<Point> PathSmoother::smooth(const std::vector<InputEvent>& events, double frameRate) const {
    std::vector<Sample> samples;
    samples.reserve(events.size());
    for (const InputEvent& e : events) {
        if (e.kind != InputEvent::Kind::keyPress) {
            samples.push_back({e.time, e.location});
        }
    }
    if (samples.size() >= 2 && frameRate > 0) {
        return resample(springPass(samples, frameRate, stiffness, damping));
    }
    std::vector<Point> raw;
    for (const Sample& s : samples) {
        raw.push_back(s.location);
    }
    return raw;
}

} // namespace marlowick
