// Camera tracks: beat construction, the edits of the list, and older files stored as keyframes.

#include "model/ModelCoding.h"

#include <gtest/gtest.h>

using namespace marlowick;

namespace {

ZoomBeat beat(double start, double end, double scale = 1.5) {
    return ZoomBeat(Uuid::random(), start, end, {0.5, 0.5}, scale, 0.35, 0.35, Easing::easeInOut, true);
}

Json keyframe(double time, double scale, double x = 0.5) {
    return {{"time", time}, {"center", {{"x", x}, {"y", 0.5}}}, {"scale", scale}};
}

CameraTrack fromKeyframes(const Json& keyframes) {
    return fromJson<CameraTrack>({{"keyframes", keyframes}});
}

} // namespace

TEST(ZoomBeat, ConstructorKeepsBeatsInTimeAndAtLeastTheMinimumLong) {
    const ZoomBeat b(Uuid::random(), -1, 0.1, {0.2, 0.3}, 2, 5, 5, Easing::linear, false);
    EXPECT_EQ(b.start, 0);
    EXPECT_DOUBLE_EQ(b.end, ZoomBeat::minimumDuration);
    EXPECT_EQ(b.rampIn, 5); // stored as given; evaluation limits them
    EXPECT_EQ(beat(2, 10).end, 10);
}

TEST(CameraTrack, EditsKeepPositionsAndMarkBeatsAsEdited) {
    CameraTrack track{{beat(5, 6), beat(1, 2), beat(5, 7)}, CameraTrack::Style::dynamic};
    const auto ordered = track.ordered();
    EXPECT_EQ(ordered[0].id, track.beats[1].id);
    EXPECT_EQ(ordered[1].id, track.beats[0].id); // same start: list order
    EXPECT_EQ(ordered[2].id, track.beats[2].id);

    ZoomBeat edited = track.beats[0];
    edited.scale = 2.2;
    edited.isGenerated = true;
    track.update(edited);
    EXPECT_EQ(track.beats[0].scale, 2.2);
    EXPECT_FALSE(track.beats[0].isGenerated);

    track.update(beat(9, 10)); // unknown: nothing is added
    EXPECT_EQ(track.beats.size(), 3u);

    track.beats.push_back(track.beats[1]);
    track.remove(track.beats[1].id);
    EXPECT_EQ(track.beats.size(), 2u);
    track.remove(Uuid::random());
    EXPECT_EQ(track.beats.size(), 2u);
}

TEST(CameraTrackCoding, MissingPartsAndUnknownValues) {
    const CameraTrack empty = fromJson<CameraTrack>(Json::object());
    EXPECT_TRUE(empty.beats.empty());
    EXPECT_EQ(empty.style, CameraTrack::Style::dynamic);

    // Beats win over keyframes, even when there are none.
    const CameraTrack none =
        fromJson<CameraTrack>({{"beats", Json::array()}, {"keyframes", {keyframe(1, 2)}}});
    EXPECT_TRUE(none.beats.empty());

    EXPECT_THROW(fromJson<CameraTrack>({{"style", "wild"}}), CodingError);
    Json b = toJson(beat(1, 2));
    b["easing"] = "bounce";
    EXPECT_THROW(fromJson<ZoomBeat>(b), CodingError);
    for (const char* key :
         {"id", "start", "end", "center", "scale", "rampIn", "rampOut", "easing", "isGenerated"}) {
        Json missing = toJson(beat(1, 2));
        missing.erase(key);
        EXPECT_THROW(fromJson<ZoomBeat>(missing), CodingError) << key;
    }
    // A stored beat is read as written, not clamped as a new one is.
    b = toJson(beat(1, 2));
    b["start"] = -0.5;
    b["end"] = -0.4;
    EXPECT_EQ(fromJson<ZoomBeat>(b).start, -0.5);
    EXPECT_EQ(fromJson<ZoomBeat>(b).end, -0.4);
}

TEST(KeyframeMigration, ARunAboveRestBecomesOneBeat) {
    const CameraTrack t =
        fromKeyframes({keyframe(0, 1), keyframe(2, 1.5, 0.1), keyframe(3, 1.8, 0.7), keyframe(5, 1)});
    ASSERT_EQ(t.beats.size(), 1u);
    const ZoomBeat& b = t.beats[0];
    EXPECT_EQ(b.start, 0);
    EXPECT_EQ(b.end, 5);
    EXPECT_EQ(b.scale, 1.8);
    EXPECT_EQ(b.center.x, 0.7);
    EXPECT_EQ(b.rampIn, 0.35);
    EXPECT_EQ(b.easing, Easing::easeInOut);
    EXPECT_TRUE(b.isGenerated);
}

TEST(KeyframeMigration, EdgesOfRuns) {
    // Starting above rest: the beat starts at the first keyframe itself.
    auto t = fromKeyframes({keyframe(1.5, 1.4), keyframe(2, 1.2), keyframe(4, 1)});
    ASSERT_EQ(t.beats.size(), 1u);
    EXPECT_EQ(t.beats[0].start, 1.5);
    EXPECT_EQ(t.beats[0].end, 4);

    // Nothing behind the zoom: it ends at its own last keyframe.
    t = fromKeyframes({keyframe(1, 1.0), keyframe(2, 1.5)});
    ASSERT_EQ(t.beats.size(), 1u);
    EXPECT_EQ(t.beats[0].start, 1);
    EXPECT_EQ(t.beats[0].end, 2);

    // A last keyframe at the very time of the one before it still gives the shortest beat.
    t = fromKeyframes({keyframe(1, 1.0), keyframe(1, 1.5)});
    ASSERT_EQ(t.beats.size(), 1u);
    EXPECT_DOUBLE_EQ(t.beats[0].duration(), 0.3);

    // 1.001 is rest.
    EXPECT_TRUE(fromKeyframes({keyframe(0, 1.001), keyframe(1, 1.001)}).beats.empty());

    // Shared peaks: the earlier one gives the centre. Unsorted input is sorted first.
    t = fromKeyframes({keyframe(3, 1.6, 0.9), keyframe(0, 1), keyframe(2, 1.6, 0.2), keyframe(4, 1)});
    ASSERT_EQ(t.beats.size(), 1u);
    EXPECT_EQ(t.beats[0].center.x, 0.2);
}

TEST(KeyframeMigration, SeveralRunsAndEditedKeyframes) {
    Json frames = {keyframe(0, 1), keyframe(1, 1.5), keyframe(2, 1),
                   keyframe(6, 1), keyframe(7, 2.0), keyframe(8, 1)};
    frames[4]["isGenerated"] = false;
    const CameraTrack t = fromKeyframes(frames);
    ASSERT_EQ(t.beats.size(), 2u);
    EXPECT_EQ(t.beats[0].start, 0);
    EXPECT_EQ(t.beats[0].end, 2);
    EXPECT_TRUE(t.beats[0].isGenerated);
    EXPECT_EQ(t.beats[1].start, 6);
    EXPECT_EQ(t.beats[1].end, 8);
    EXPECT_FALSE(t.beats[1].isGenerated);

    // Written back as beats, so the migration happens once.
    const Json written = toJson(t);
    EXPECT_FALSE(written.contains("keyframes"));
    EXPECT_EQ(written["beats"].size(), 2u);
}
