// Where the director puts the camera: how actions cluster, where a beat centres and how far it zooms,
// and how rests of the pointer stand in for clicks.

#include "trajectory/ZoomDirector.h"

#include <gtest/gtest.h>

using namespace marlowick;
using Kind = InputEvent::Kind;

namespace {

Recording recording(std::vector<InputEvent> events, Size size = {1920, 1080}) {
    Recording r;
    r.size = size;
    r.frameRate = 60;
    r.duration = 60;
    r.inputEvents = std::move(events);
    return r;
}

InputEvent click(double t, double x = 960, double y = 540) {
    return {t, Kind::down, {x, y}};
}

ZoomDirector director(CameraTrack::Style style = CameraTrack::Style::dynamic) {
    ZoomDirector d;
    d.style = style;
    return d;
}

// Pointer samples at 120 Hz resting at one place from `from` to `to`.
void rest(std::vector<InputEvent>& events, double from, double to, Point at) {
    for (int i = 0; from + i / 120.0 <= to; ++i) {
        events.push_back({from + i / 120.0, Kind::move, at});
    }
}

} // namespace

TEST(ZoomDirector, ASingleClickGetsTheStylesClosestZoom) {
    const auto beats = director().beatsFor(recording({click(0.1, 480, 270), {0.15, Kind::up, {480, 270}}}));
    ASSERT_EQ(beats.size(), 1u);
    const ZoomBeat& b = beats[0];
    EXPECT_EQ(b.start, 0);
    EXPECT_DOUBLE_EQ(b.end, 0.1 + 0.8 + 0.35);
    EXPECT_EQ(b.center, (Point{0.25, 0.25}));
    EXPECT_EQ(b.scale, 1.9);
    EXPECT_EQ(b.rampIn, 0.35);
    EXPECT_EQ(b.rampOut, 0.35);
    EXPECT_EQ(b.easing, Easing::easeInOut);
    EXPECT_TRUE(b.isGenerated);

    const auto later = director().beatsFor(recording({click(10)}));
    EXPECT_DOUBLE_EQ(later[0].start, 10 - 0.35);
}

TEST(ZoomDirector, APauseOfExactlyTheGapStaysInTheCluster) {
    EXPECT_EQ(director().beatsFor(recording({click(0), click(1.2)})).size(), 1u);
    EXPECT_EQ(director().beatsFor(recording({click(0), click(1.2001)})).size(), 2u);
    // The gap is measured from the cluster's last member, so a chain of short pauses stays one beat.
    // (2.4 is twice 1.2 in binary too, so both pauses are exactly the gap.)
    const auto chain = director().beatsFor(recording({click(0), click(1.2), click(2.4)}));
    ASSERT_EQ(chain.size(), 1u);
    EXPECT_DOUBLE_EQ(chain[0].end, 2.4 + 1.15);
    // Scrolls and key presses are actions too; releases are not.
    const auto mixed = director().beatsFor(recording({{1, Kind::scroll, {0, 0}},
                                                      {2, Kind::keyPress, {0, 0}},
                                                      {3.5, Kind::up, {0, 0}},
                                                      {4.6, Kind::keyPress, {100, 100}}}));
    ASSERT_EQ(mixed.size(), 2u);
    EXPECT_DOUBLE_EQ(mixed[1].start, 4.6 - 0.35);
}

TEST(ZoomDirector, ScaleFollowsSpreadBetweenTheFloorAndTheStylesCeiling) {
    struct Case {
        CameraTrack::Style style;
        double ceiling;
    };
    for (const Case c : {Case{CameraTrack::Style::subtle, 1.4}, Case{CameraTrack::Style::dynamic, 1.9},
                         Case{CameraTrack::Style::cinematic, 2.6}}) {
        const ZoomDirector d = director(c.style);
        EXPECT_EQ(d.beatsFor(recording({click(1, 100, 100), click(1.5, 100, 100)}))[0].scale, c.ceiling);
        // Opposite corners: the cluster covers the frame.
        const auto wide = d.beatsFor(recording({click(1, 0, 0), click(1.5, 1920, 1080)}));
        EXPECT_EQ(wide[0].scale, ZoomDirector::smallestScale);
        EXPECT_EQ(wide[0].center, (Point{0.5, 0.5}));
    }
    // The larger extent of the two axes counts: a fifth of the width on dynamic.
    EXPECT_DOUBLE_EQ(director().beatsFor(recording({click(1, 0, 500), click(1.5, 384, 510)}))[0].scale,
                     1.9 * 0.8);
    // On subtle a spread of 0.1786 is already at the floor.
    const double x = 0.1786 * 1920;
    EXPECT_EQ(
        director(CameraTrack::Style::subtle).beatsFor(recording({click(1, 0, 0), click(1.1, x, 0)}))[0].scale,
        1.15);
}

TEST(ZoomDirector, StyleOffAndDegenerateInputs) {
    EXPECT_TRUE(director(CameraTrack::Style::off).beatsFor(recording({click(1), click(3)})).empty());
    EXPECT_TRUE(director().beatsFor(recording({})).empty());

    // A frame without width: the centre sits in the middle on that axis and nothing spreads.
    const auto flat = director().beatsFor(recording({click(1, 50, 270), click(1.5, 900, 270)}, {0, 1080}));
    EXPECT_EQ(flat[0].center.x, 0.5);
    EXPECT_EQ(flat[0].center.y, 0.25);
    EXPECT_EQ(flat[0].scale, 1.9);

    // Never shorter than the minimum beat, however the timings are set.
    ZoomDirector tight = director();
    tight.tailHold = 0;
    tight.transition = 0;
    const auto beats = tight.beatsFor(recording({click(5)}));
    EXPECT_EQ(beats[0].start, 5);
    EXPECT_DOUBLE_EQ(beats[0].duration(), ZoomBeat::minimumDuration);
}

TEST(ZoomDirector, RestsOfThePointerStandInForClicks) {
    std::vector<InputEvent> events;
    rest(events, 2, 2.75, {300, 200});
    rest(events, 6, 6.69, {1500, 900}); // too short
    events.push_back({7.5, Kind::move, {1000, 100}});
    const auto anchors = director().dwellAnchors(recording(events));
    ASSERT_EQ(anchors.size(), 1u);
    EXPECT_DOUBLE_EQ(anchors[0].time, 2);
    EXPECT_EQ(anchors[0].kind, Kind::down);
    EXPECT_EQ(anchors[0].location, (Point{300, 200}));

    const auto beats = director().beatsFor(recording(events));
    ASSERT_EQ(beats.size(), 1u);
    EXPECT_DOUBLE_EQ(beats[0].start, 2 - 0.35);

    EXPECT_TRUE(director().dwellAnchors(recording({{1, Kind::move, {5, 5}}})).empty());
    // A rest of exactly the minimum counts; a hair less doesn't.
    EXPECT_EQ(director().dwellAnchors(recording({{0, Kind::move, {5, 5}}, {0.7, Kind::move, {5, 5}}})).size(),
              1u);
    EXPECT_TRUE(
        director().dwellAnchors(recording({{0, Kind::move, {5, 5}}, {0.69, Kind::move, {5, 5}}})).empty());
}

TEST(ZoomDirector, ADwellIsMeasuredFromItsFirstEvent) {
    // A pointer creeping one pixel a frame never strays far from the previous sample, but leaves the
    // 43-pixel circle around where it started after 0.36 seconds: no rest.
    std::vector<InputEvent> drift;
    for (int i = 0; i < 600; ++i) {
        drift.push_back({i / 120.0, Kind::move, {100.0 + i, 500}});
    }
    EXPECT_TRUE(director().dwellAnchors(recording(drift)).empty());

    // Jitter inside the circle is a rest, placed at the mean; drags count as pointer travel.
    std::vector<InputEvent> jitter;
    for (int i = 0; i <= 120; ++i) {
        jitter.push_back({i / 120.0, i % 2 ? Kind::drag : Kind::move, {i % 2 ? 410.0 : 390.0, 300}});
    }
    const auto anchors = director().dwellAnchors(recording(jitter));
    ASSERT_EQ(anchors.size(), 1u);
    EXPECT_NEAR(anchors[0].location.x, (61 * 390.0 + 60 * 410.0) / 121, 1e-9);
}

TEST(ZoomDirector, ActionsOfAnyKindKeepTheDwellSearchAway) {
    std::vector<InputEvent> events;
    rest(events, 1, 3, {300, 200});
    events.push_back({10, Kind::keyPress, {900, 500}});
    const auto beats = director().beatsFor(recording(events));
    ASSERT_EQ(beats.size(), 1u);
    EXPECT_DOUBLE_EQ(beats[0].start, 10 - 0.35);
}

TEST(ZoomDirector, RegenerationKeepsEditedBeatsAndOrdersAll) {
    const ZoomBeat editedLate(Uuid::random(), 20, 22, {0.1, 0.1}, 1.3, 0.3, 0.3, Easing::linear, false);
    const ZoomBeat editedEarly(Uuid::random(), 0.65, 3, {0.9, 0.9}, 1.6, 0.3, 0.3, Easing::spring, false);
    const ZoomBeat stale(Uuid::random(), 5, 7, {0.5, 0.5}, 1.9, 0.35, 0.35, Easing::easeInOut, true);
    const CameraTrack track{{editedLate, stale, editedEarly}, CameraTrack::Style::subtle};

    const CameraTrack result = director().regenerate(track, recording({click(1), click(12)}));
    ASSERT_EQ(result.beats.size(), 4u);
    EXPECT_EQ(result.style, CameraTrack::Style::subtle);
    EXPECT_EQ(result.beats[0].id, editedEarly.id); // same start as the first generated beat: kept first
    EXPECT_TRUE(result.beats[1].isGenerated);
    EXPECT_DOUBLE_EQ(result.beats[1].start, 0.65);
    EXPECT_DOUBLE_EQ(result.beats[2].start, 11.65);
    EXPECT_EQ(result.beats[3].id, editedLate.id);
    for (const ZoomBeat& b : result.beats) {
        EXPECT_NE(b.id, stale.id);
    }

    const CameraTrack off = director(CameraTrack::Style::off).regenerate(track, recording({click(1)}));
    ASSERT_EQ(off.beats.size(), 2u);
    EXPECT_FALSE(off.beats[0].isGenerated);
    EXPECT_FALSE(off.beats[1].isGenerated);
}
