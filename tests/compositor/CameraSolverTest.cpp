// Where the camera is at each instant: the ramps, the curves, and which beat rules where beats overlap.

#include "compositor/CameraSolver.h"
#include "compositor/Easing.h"

#include <cmath>

#include <gtest/gtest.h>

using namespace marlowick;
using Transform = CameraSolver::Transform;

namespace {

ZoomBeat beat(double start, double end, double scale, Point center, double ramp = 0.35,
              Easing easing = Easing::linear) {
    return ZoomBeat(Uuid::random(), start, end, center, scale, ramp, ramp, easing, true);
}

CameraSolver solver(std::vector<ZoomBeat> beats) {
    return CameraSolver{CameraTrack{std::move(beats), {}}};
}

} // namespace

TEST(Easing, CurvesAreClampedAndMeetInTheMiddle) {
    EXPECT_EQ(apply(Easing::linear, 0.3), 0.3);
    EXPECT_EQ(apply(Easing::easeIn, 0.5), 0.125);
    EXPECT_EQ(apply(Easing::easeOut, 0.5), 0.875);
    EXPECT_EQ(apply(Easing::easeInOut, 0.5), 0.5);
    EXPECT_NEAR(apply(Easing::easeInOut, std::nextafter(0.5, 0.0)), 0.5, 1e-12);
    EXPECT_EQ(apply(Easing::easeInOut, 0.25), 0.0625);
    EXPECT_NEAR(apply(Easing::spring, 0.6), 1.09935, 1e-5);
    for (Easing e : allCases<Easing>()) {
        EXPECT_NEAR(apply(e, -3), 0, 1e-12) << enumName(e); // the spring formula leaves 2e-16 at 0
        EXPECT_NEAR(apply(e, 0), 0, 1e-12) << enumName(e);
        EXPECT_NEAR(apply(e, 1), 1, 1e-12) << enumName(e);
        EXPECT_NEAR(apply(e, 2), 1, 1e-12) << enumName(e);
    }
}

TEST(CameraSolver, RestsOnTheWholeFrameOutsideBeats) {
    EXPECT_EQ(solver({}).transformAt(3), Transform::identity());
    const CameraSolver s = solver({beat(2, 4, 2, {0.2, 0.4})});
    EXPECT_EQ(s.transformAt(1.999), Transform::identity());
    // At both ends the beat rules, with its weight at 0.
    EXPECT_EQ(s.transformAt(2), Transform::identity());
    EXPECT_EQ(s.transformAt(4), Transform::identity());
    EXPECT_EQ(s.transformAt(3), (Transform{{0.2, 0.4}, 2}));
}

TEST(CameraSolver, RampsAreHalfTheBeatAtMost) {
    // 0.4 s with ramps of 0.35: each ramp takes 0.2 s.
    const CameraSolver s = solver({beat(1, 1.4, 3, {1, 0})});
    const Transform quarter = s.transformAt(1.05);
    EXPECT_NEAR(quarter.scale, 1 + 0.25 * 2, 1e-12);
    EXPECT_NEAR(quarter.center.x, 0.5 + 0.25 * 0.5, 1e-12);
    EXPECT_NEAR(quarter.center.y, 0.5 - 0.25 * 0.5, 1e-12);
    EXPECT_NEAR(s.transformAt(1.2).scale, 3, 1e-12);
    EXPECT_NEAR(s.transformAt(1.35).scale, 1 + 0.25 * 2, 1e-12);

    // Without ramps the beat is a cut: its own view from end to end.
    const CameraSolver cut = solver({beat(1, 2, 1.5, {0.3, 0.3}, 0)});
    EXPECT_EQ(cut.transformAt(1), (Transform{{0.3, 0.3}, 1.5}));
    EXPECT_EQ(cut.transformAt(2), (Transform{{0.3, 0.3}, 1.5}));
}

TEST(CameraSolver, TheRampOutIsTheRampInRunBackwards) {
    const CameraSolver s = solver({beat(0, 4, 2, {0.5, 0.5}, 1, Easing::easeIn)});
    // Rises slowly, falls fast: a quarter into the ramp in and a quarter before the end weigh the same.
    EXPECT_NEAR(s.transformAt(0.25).scale, 1 + apply(Easing::easeIn, 0.25), 1e-12);
    EXPECT_NEAR(s.transformAt(3.75).scale, 1 + apply(Easing::easeIn, 0.25), 1e-12);
    EXPECT_NEAR(s.transformAt(3.25).scale, 1 + apply(Easing::easeIn, 0.75), 1e-12);
}

TEST(CameraSolver, ASpringPassesBeyondTheBeatBothWays) {
    const CameraSolver s = solver({beat(0, 4, 2, {0.8, 0.5}, 1, Easing::spring)});
    const Transform up = s.transformAt(0.6);
    EXPECT_NEAR(up.scale, 1 + 1.09935, 1e-4);
    EXPECT_GT(up.center.x, 0.8);
    EXPECT_GT(s.transformAt(3.4).scale, 2);
}

TEST(CameraSolver, TheLaterBeatRulesAnOverlapFromItsFirstInstant) {
    const ZoomBeat first = beat(0, 3, 2, {0.2, 0.2});
    const ZoomBeat second = beat(2.5, 5, 1.5, {0.8, 0.8});
    const CameraSolver s = solver({second, first});
    EXPECT_EQ(s.transformAt(2.49), (Transform{{0.2, 0.2}, 2}));
    // The jump: the later beat starts from rest while the earlier one was fully in.
    EXPECT_EQ(s.transformAt(2.5), Transform::identity());
    EXPECT_NEAR(s.transformAt(2.6).scale, 1 + (0.1 / 0.35) * 0.5, 1e-12);
    EXPECT_EQ(s.transformAt(2.9).center, (Point{0.8, 0.8}));

    // Equal starts: the first in the list rules.
    const ZoomBeat a = beat(1, 3, 2, {0.1, 0.1}, 0);
    const ZoomBeat b = beat(1, 4, 3, {0.9, 0.9}, 0);
    EXPECT_EQ(solver({a, b}).transformAt(2).scale, 2);
    EXPECT_EQ(solver({b, a}).transformAt(2).scale, 3);
}
