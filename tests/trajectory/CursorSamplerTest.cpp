// The drawn cursor: the smoothed path, the fades while the pointer rests, and the click ripples.

#include "trajectory/CursorSampler.h"
#include "trajectory/PathSmoother.h"

#include <cmath>

#include <gtest/gtest.h>

using namespace marlowick;
using Kind = InputEvent::Kind;

namespace {

Recording recording(double frameRate = 60, Size size = {1000, 500}) {
    Recording r;
    r.size = size;
    r.frameRate = frameRate;
    return r;
}

CursorStyle hidingAfter(std::optional<double> seconds) {
    CursorStyle s;
    s.hideWhenIdle = seconds;
    return s;
}

// Moves of 10 pixels every 0.1 s from `from` to `to`, continuing from `x`; returns where it ended.
double moveAlong(std::vector<InputEvent>& events, double from, double to, double x) {
    for (int i = 0; from + i * 0.1 <= to + 1e-9; ++i) {
        events.push_back({from + i * 0.1, Kind::move, {x, 100}});
        x += 10;
    }
    return x - 10;
}

void restAt(std::vector<InputEvent>& events, double from, double to, double x) {
    for (int i = 1; from + i * 0.5 <= to + 1e-9; ++i) {
        events.push_back({from + i * 0.5, Kind::move, {x, 100}});
    }
}

double opacity(const CursorSampler& s, double t) {
    return s.frameAt(t)->opacity;
}

} // namespace

TEST(PathSmoother, OneStepPerFrameWithTheVelocityUpdatedFirst) {
    // Two frames at 60 frames a second: the spring's first step sits on the start, the second has moved
    // by the full acceleration, since the position takes the velocity already updated.
    const auto path = PathSmoother(0).smooth({{0, Kind::move, {0, 0}}, {1.0 / 60, Kind::move, {100, 0}}}, 60);
    ASSERT_EQ(path.size(), 2u);
    EXPECT_EQ(path[0], (Point{0, 0}));
    EXPECT_NEAR(path[1].x, 100 * 320.0 / 3600, 1e-9);

    // 2.5 frames of motion round away from zero to 3, and a frame more for the start.
    EXPECT_EQ(PathSmoother(0.7).smooth({{0, Kind::move, {0, 0}}, {1.25, Kind::move, {9, 9}}}, 2).size(), 4u);
    // Key presses carry no position; a single sample comes back as it is.
    EXPECT_EQ(PathSmoother(0.7).smooth({{0, Kind::keyPress, {0, 0}}, {1, Kind::move, {7, 8}}}, 60),
              (std::vector<Point>{{7, 8}}));
    EXPECT_EQ(PathSmoother(0.7).smooth({{0, Kind::move, {1, 2}}, {1, Kind::move, {3, 4}}}, 0).size(), 2u);
}

TEST(PathSmoother, SlowFrameRatesKeepThePathBetweenThePointersPlaces) {
    // A step of a tenth of a second or longer would throw the stiffest spring ever wider on its own; a
    // smoothing out of its range (as a file may hold) is taken as its nearest end.
    std::vector<InputEvent> walk;
    for (int i = 0; i <= 40; ++i) {
        walk.push_back({i * 0.25, Kind::move, {i % 2 == 0 ? 0.0 : 800.0, i * 10.0}});
    }
    for (const double rate : {1.0, 5.0, 10.0, 15.0}) {
        for (const double smoothing : {-1.0, 0.0, 0.5, 1.0, 2.0}) {
            const auto path = PathSmoother(smoothing).smooth(walk, rate);
            ASSERT_FALSE(path.empty());
            for (const Point& p : path) {
                ASSERT_GE(p.x, -80) << rate << " fps, smoothing " << smoothing;
                ASSERT_LE(p.x, 880) << rate << " fps, smoothing " << smoothing;
                ASSERT_GE(p.y, -40) << rate << " fps, smoothing " << smoothing;
                ASSERT_LE(p.y, 440) << rate << " fps, smoothing " << smoothing;
            }
        }
    }
}

TEST(PathSmoother, ThePathSettlesWithoutOvershootAndHoldsStill) {
    std::vector<InputEvent> events{
        {0, Kind::move, {0, 0}}, {0.2, Kind::down, {500, 250}}, {3, Kind::move, {500, 250}}};
    const auto path = PathSmoother(0.7).smooth(events, 60);
    ASSERT_EQ(path.size(), 181u);
    double previous = -1;
    for (const Point& p : path) {
        EXPECT_GE(p.x, previous - 1e-9); // critically damped: no swing back
        EXPECT_LE(p.x, 500 + 1e-6);
        previous = p.x;
    }
    EXPECT_NEAR(path.back().x, 500, 0.01);
    EXPECT_NEAR(path.back().y, 250, 0.01);
    // Lagging behind the pointer at first, as a spring does.
    EXPECT_LT(path[6].x, 250);

    const auto still = PathSmoother(0.7).smooth({{0, Kind::move, {40, 60}}, {1, Kind::move, {40, 60}}}, 60);
    for (const Point& p : still) {
        EXPECT_EQ(p, (Point{40, 60}));
    }
}

TEST(CursorSampler, FramesComeFromTheNearestPositionWithinThePath) {
    const CursorSampler empty({}, recording(), CursorStyle{});
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_FALSE(empty.frameAt(1).has_value());

    const CursorSampler single({{2, Kind::move, {250, 100}}}, recording(), CursorStyle{});
    ASSERT_EQ(single.positions.size(), 1u);
    EXPECT_EQ(single.startTime, 2);
    for (double t : {-5.0, 2.0, 100.0}) {
        EXPECT_EQ(single.frameAt(t)->position, (Point{0.25, 0.2}));
    }

    const CursorSampler path(
        {{0, Kind::keyPress, {0, 0}}, {1, Kind::move, {0, 0}}, {3, Kind::move, {1000, 500}}}, recording(2),
        CursorStyle{});
    EXPECT_EQ(path.startTime, 1); // the first event with a position
    EXPECT_EQ(path.frameRate, 2);
    EXPECT_EQ(path.frameAt(-10)->position, path.positions.front());
    EXPECT_EQ(path.frameAt(50)->position, path.positions.back());
    // Half a frame rounds away from zero: 1.25 s is index 0.5 → 1.
    EXPECT_EQ(path.frameAt(1.25)->position, path.positions[1]);
    EXPECT_EQ(path.frameAt(1.2)->position, path.positions[0]);
    EXPECT_EQ(path.frameAt(1.2)->scale, CursorStyle{}.scale);

    // A frame rate below one counts as one; a flat frame counts as one pixel high.
    const CursorSampler slow({{0, Kind::move, {10, 10}}}, recording(0, {1000, 0}), CursorStyle{});
    EXPECT_EQ(slow.frameRate, 1);
    EXPECT_EQ(slow.positions[0], (Point{0.01, 10}));
}

TEST(CursorSampler, TheCursorFadesOutAtRestAndBackInBeforeMovement) {
    std::vector<InputEvent> events;
    double x = moveAlong(events, 0, 10, 0);
    restAt(events, 10, 19.5, x);
    moveAlong(events, 20, 21, x + 100);
    const CursorSampler s(events, recording(), hidingAfter(3));
    ASSERT_EQ(s.idleGaps.size(), 1u);
    EXPECT_DOUBLE_EQ(s.idleGaps[0].start, 13);
    EXPECT_DOUBLE_EQ(s.idleGaps[0].end, 20);
    for (const auto& [t, expected] : std::vector<std::pair<double, double>>{
             {12.9, 1}, {13, 1}, {13.125, 0.5}, {13.25, 0}, {19.75, 0}, {19.875, 0.5}, {20, 1}}) {
        EXPECT_DOUBLE_EQ(opacity(s, t), expected) << t;
    }

    const CursorSampler never(events, recording(), hidingAfter(std::nullopt));
    EXPECT_TRUE(never.idleGaps.empty());
    EXPECT_EQ(opacity(never, 16), 1);
}

TEST(CursorSampler, ARestToTheEndNeverFadesBackIn) {
    std::vector<InputEvent> events;
    const double x = moveAlong(events, 0, 10, 0);
    restAt(events, 10, 24.5, x);
    events.push_back({25, Kind::down, {x, 100}}); // a click without movement doesn't end the rest
    restAt(events, 25, 30, x);
    const CursorSampler s(events, recording(), hidingAfter(3));
    ASSERT_EQ(s.idleGaps.size(), 1u);
    EXPECT_DOUBLE_EQ(s.idleGaps[0].start, 13);
    EXPECT_EQ(s.idleGaps[0].end, std::numeric_limits<double>::max());
    EXPECT_EQ(opacity(s, 13.125), 0.5);
    EXPECT_EQ(opacity(s, 29.99), 0);
    EXPECT_EQ(opacity(s, 1e9), 0);

    // Ending on a movement leaves no gap behind it.
    std::vector<InputEvent> busy;
    moveAlong(busy, 0, 10, 0);
    EXPECT_TRUE(CursorSampler(busy, recording(), hidingAfter(3)).idleGaps.empty());

    // Steps of exactly two pixels are jitter, not movement.
    std::vector<InputEvent> jitter;
    for (int i = 0; i < 100; ++i) {
        jitter.push_back({i * 0.1, Kind::move, {100.0 + i, 100.0 + i}});
    }
    const CursorSampler still(jitter, recording(), hidingAfter(3));
    ASSERT_EQ(still.idleGaps.size(), 1u);
    EXPECT_DOUBLE_EQ(still.idleGaps[0].start, 3);
}

TEST(CursorSampler, RipplesRunOneAtATimeFromTheRawClick) {
    const std::vector<InputEvent> lone{
        {0, Kind::move, {0, 0}}, {5, Kind::down, {500, 250}}, {6, Kind::move, {0, 0}}};
    const CursorSampler s(lone, recording(), CursorStyle{});
    EXPECT_EQ(s.frameAt(5)->rippleProgress, 0);
    EXPECT_EQ(s.frameAt(5)->ripplePosition, (Point{0.5, 0.5}));
    EXPECT_NEAR(s.frameAt(5.225)->rippleProgress, 0.5, 1e-12);
    EXPECT_EQ(s.frameAt(5.4501)->rippleProgress, -1);
    EXPECT_EQ(s.frameAt(5.4501)->ripplePosition, (Point{0, 0}));
    EXPECT_EQ(s.frameAt(4.99)->rippleProgress, -1);

    CursorStyle noRipple;
    noRipple.clickRipple = false;
    const CursorSampler quiet(lone, recording(), noRipple);
    EXPECT_EQ(quiet.clicks.size(), 1u);
    EXPECT_EQ(quiet.frameAt(5.1)->rippleProgress, -1);

    // Two clicks 0.2 s apart: the first runs to its end, then the second shows for what is left of it.
    const std::vector<InputEvent> close{{0, Kind::move, {0, 0}},
                                        {1, Kind::down, {100, 100}},
                                        {1.2, Kind::down, {900, 400}},
                                        {3, Kind::move, {0, 0}}};
    const CursorSampler twice(close, recording(), CursorStyle{});
    EXPECT_EQ(twice.frameAt(1.3)->ripplePosition, (Point{0.1, 0.2}));
    EXPECT_NEAR(twice.frameAt(1.3)->rippleProgress, 0.3 / 0.45, 1e-12);
    EXPECT_EQ(twice.frameAt(1.5)->ripplePosition, (Point{0.9, 0.8}));
    EXPECT_NEAR(twice.frameAt(1.5)->rippleProgress, 0.3 / 0.45, 1e-12);
}
