// The arithmetic of cuts: normalising removals, moving times between the source and the output clock,
// and moving beats, words and events through a cut.

#include "model/ModelCoding.h"

#include <gtest/gtest.h>

using namespace marlowick;

namespace {

const TimeMap twoToFour({{2, 4}}, 10);

CaptionTrack::Word word(std::string text, double start, double end) {
    return {std::move(text), start, end, 0.9};
}

} // namespace

TEST(TimeMap, ConstructorNormalisesRemovals) {
    EXPECT_TRUE(TimeMap({{5, 6}}, 3).isIdentity());

    const TimeMap merged({{8, 20}, {-2, 1}, {1, 2}}, 10);
    EXPECT_EQ(merged.removals(), (std::vector<Range>{{0, 2}, {8, 10}}));
    EXPECT_EQ(merged.outputDuration(), 6);

    const TimeMap negative({{1, 2}}, -4);
    EXPECT_EQ(negative.sourceDuration(), 0);
    EXPECT_TRUE(negative.isIdentity());

    const TimeMap overlapping({{3, 5}, {1, 4}, {7, 7}, {6, 6.5}}, 10);
    EXPECT_EQ(overlapping.removals(), (std::vector<Range>{{1, 5}, {6, 6.5}}));
    EXPECT_EQ(overlapping.removedDuration(), 4.5);
}

TEST(TimeMap, KeptRanges) {
    EXPECT_EQ(twoToFour.keptRanges(), (std::vector<Range>{{0, 2}, {4, 10}}));
    EXPECT_EQ(TimeMap({{0, 3}}, 10).keptRanges(), (std::vector<Range>{{3, 10}}));
    EXPECT_EQ(TimeMap::identity(5).keptRanges(), (std::vector<Range>{{0, 5}}));
    EXPECT_TRUE(TimeMap::identity(0).keptRanges().empty());
    EXPECT_TRUE(TimeMap({{0, 10}}, 10).keptRanges().empty());
}

TEST(TimeMap, TimesInsideACutCollapseOntoIt) {
    for (const auto& [source, output] :
         std::vector<std::pair<double, double>>{{2, 2}, {3, 2}, {4, 2}, {7, 5}, {-3, 0}, {50, 8}}) {
        EXPECT_EQ(twoToFour.outputTimeForSource(source), output) << source;
    }
    EXPECT_TRUE(twoToFour.isRemoved(2));
    EXPECT_TRUE(twoToFour.isRemoved(3.999));
    EXPECT_FALSE(twoToFour.isRemoved(4));
}

TEST(TimeMap, OutputTimeOnACutMapsToTheStretchBeforeIt) {
    EXPECT_EQ(twoToFour.sourceTimeForOutput(2), 2);
    EXPECT_DOUBLE_EQ(twoToFour.sourceTimeForOutput(2.001), 4.001);
    EXPECT_EQ(twoToFour.sourceTimeForOutput(100), 10);
    EXPECT_EQ(twoToFour.sourceTimeForOutput(-1), 0);

    const TimeMap several({{1, 2}, {3, 5}, {9, 10}}, 10);
    for (double out = 0; out <= several.outputDuration(); out += 0.25) {
        const double source = several.sourceTimeForOutput(out);
        EXPECT_DOUBLE_EQ(several.outputTimeForSource(source), out) << out;
    }
    EXPECT_EQ(TimeMap({{0, 10}}, 10).sourceTimeForOutput(0), 10);
}

TEST(TimeMap, BeatsSurviveACutOnlyIfTheMinimumRemains) {
    const ZoomBeat b(Uuid::random(), 1, 3, {0.4, 0.4}, 1.7, 0.3, 0.3, Easing::spring, true);
    const auto kept = TimeMap({{1.2, 2.9}}, 10).apply(b);
    ASSERT_TRUE(kept.has_value());
    EXPECT_NEAR(kept->duration(), 0.3, 1e-12);
    EXPECT_EQ(kept->id, b.id);
    EXPECT_EQ(kept->scale, 1.7);
    EXPECT_FALSE(TimeMap({{1.2, 2.95}}, 10).apply(b).has_value());

    const ZoomBeat late(Uuid::random(), 6, 8, {0.5, 0.5}, 1.5, 0.3, 0.3, Easing::linear, false);
    const CameraTrack moved =
        TimeMap({{1.2, 2.95}}, 10).apply(CameraTrack{{b, late}, CameraTrack::Style::subtle});
    ASSERT_EQ(moved.beats.size(), 1u);
    EXPECT_EQ(moved.beats[0].id, late.id);
    EXPECT_DOUBLE_EQ(moved.beats[0].start, 6 - 1.75);
    EXPECT_EQ(moved.style, CameraTrack::Style::subtle);
}

TEST(TimeMap, WordsGoWithTheirMidpoint) {
    const CaptionTrack::Cue cue{
        Uuid::random(),
        {word("one", 0, 1), word("two", 1.8, 2.4), word("three", 3.6, 4.5), word("four", 5, 6)}};
    const auto moved = twoToFour.apply(cue);
    ASSERT_TRUE(moved.has_value());
    EXPECT_EQ(moved->id, cue.id);
    ASSERT_EQ(moved->words.size(), 3u); // "two" has its midpoint 2.1 inside the cut
    EXPECT_EQ(moved->words[1].text, "three");
    // "three" starts inside the cut: it starts on the cut, and keeps its end.
    EXPECT_EQ(moved->words[1].start, 2);
    EXPECT_DOUBLE_EQ(moved->words[1].end, 2.5);
    EXPECT_EQ(moved->words[2].start, 3);

    // A kept word squeezed to nothing still shows for a moment.
    const CaptionTrack::Cue squeezed{Uuid::random(), {word("hm", 1.9, 4.3)}};
    const auto s = TimeMap({{1.95, 4.3}}, 10).apply(squeezed);
    ASSERT_FALSE(s.has_value()); // midpoint 3.1 is removed
    const auto kept =
        TimeMap({{2.0, 4.3}}, 10).apply(CaptionTrack::Cue{Uuid::random(), {word("hm", 1.0, 2.5)}});
    ASSERT_TRUE(kept.has_value());
    EXPECT_DOUBLE_EQ(kept->words[0].end, 2.0);
    const auto tiny =
        TimeMap({{1.0, 4.3}}, 10).apply(CaptionTrack::Cue{Uuid::random(), {word("a", 0.99, 4.3)}});
    ASSERT_FALSE(tiny.has_value());
    const auto pinned = TimeMap({{1.0, 2.0}, {2.01, 4.3}}, 10)
                            .apply(CaptionTrack::Cue{Uuid::random(), {word("b", 2.0, 2.01)}});
    ASSERT_TRUE(pinned.has_value());
    EXPECT_NEAR(pinned->words[0].end - pinned->words[0].start, 0.05, 1e-12);

    const CaptionTrack track{
        {cue, CaptionTrack::Cue{Uuid::random(), {word("gone", 2.5, 3.5)}}}, CaptionStyle{}, false};
    const CaptionTrack movedTrack = twoToFour.apply(track);
    EXPECT_EQ(movedTrack.cues.size(), 1u);
    EXPECT_FALSE(movedTrack.isEnabled);
}

TEST(TimeMap, EventsInsideACutAreDropped) {
    const std::vector<InputEvent> events{{1, InputEvent::Kind::down, {5, 5}},
                                         {2, InputEvent::Kind::move, {6, 6}},
                                         {4, InputEvent::Kind::up, {7, 7}}};
    const auto moved = twoToFour.apply(events);
    ASSERT_EQ(moved.size(), 2u);
    EXPECT_EQ(moved[1].time, 2);
    EXPECT_EQ(moved[1].kind, InputEvent::Kind::up);
    EXPECT_EQ(moved[1].location, (Point{7, 7}));
}

TEST(TimeMap, StoredMapsAreNormalisedOnRead) {
    const TimeMap read = fromJson<TimeMap>(Json::parse(
        R"({"removals": [{"start": 6, "end": 8}, {"start": 1, "end": 3}, {"start": 2, "end": 4}, {"start": 9, "end": 8.5}],
            "sourceDuration": 7})"));
    EXPECT_EQ(read.removals(), (std::vector<Range>{{1, 4}, {6, 7}}));
    EXPECT_EQ(fromJson<TimeMap>(toJson(read)), read);
    EXPECT_THROW(fromJson<TimeMap>(Json::parse(R"({"removals": []})")), CodingError);
    EXPECT_THROW(fromJson<TimeMap>(Json::parse(R"({"removals": [{"start": 1}], "sourceDuration": 3})")),
                 CodingError);
}

TEST(ProjectTrim, SilenceRemovalsCountOnlyWhileSilenceCuttingIsOn) {
    Project p;
    p.source.duration = 20;
    p.manualCuts = {Span(Uuid::random(), 1, 2), Span(Uuid::random(), 12, 11)};
    p.trim = TimeMap({{1.5, 3}, {15, 16}}, 99);
    EXPECT_EQ(p.effectiveTrim().removals(), (std::vector<Range>{{1, 2}, {11, 12}}));
    p.audio.silence.isEnabled = true;
    EXPECT_EQ(p.effectiveTrim().removals(), (std::vector<Range>{{1, 3}, {11, 12}, {15, 16}}));
    EXPECT_EQ(p.effectiveTrim().sourceDuration(), 20); // the source's, not the stored map's
}

TEST(ProjectTrim, ApplyingTrimMovesEverythingOntoOutputTime) {
    Project p;
    p.source.duration = 10;
    p.camera.beats = {ZoomBeat(Uuid::random(), 5, 7, {0.5, 0.5}, 1.5, 0.3, 0.3, Easing::easeInOut, true)};
    p.captions =
        CaptionTrack{{CaptionTrack::Cue{Uuid::random(), {word("hi", 6, 6.5)}}}, CaptionStyle{}, true};
    p.trim = TimeMap({{0, 1}}, 10);
    p.audio.silence.isEnabled = true;
    p.manualCuts = {Span(Uuid::random(), 2, 4)};
    const std::vector<InputEvent> telemetry{{0.5, InputEvent::Kind::move, {1, 1}},
                                            {6, InputEvent::Kind::down, {2, 2}}};

    const auto [moved, events] = p.applyingTrim(telemetry);
    EXPECT_EQ(moved.source.duration, 7);
    EXPECT_EQ(moved.camera.beats[0].start, 2);
    EXPECT_EQ(moved.captions->cues[0].words[0].start, 3);
    EXPECT_FALSE(moved.trim.has_value());
    EXPECT_EQ(moved.manualCuts.size(), 1u); // kept, but not to be applied again
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].time, 3);
    // The clicks the mix sounds: only the `down` events that survive, on output time; a click in a cut
    // is dropped.
    std::vector<InputEvent> clicks = telemetry;
    clicks.push_back({3, InputEvent::Kind::down, {3, 3}});
    clicks.push_back({8, InputEvent::Kind::up, {3, 3}});
    EXPECT_EQ(p.clickTimes(clicks), (std::vector<double>{3}));

    Project plain;
    plain.source.duration = 4;
    plain.trim = TimeMap({{0, 1}}, 4); // silence cutting is off
    const auto unchanged = plain.applyingTrim(telemetry);
    EXPECT_EQ(unchanged.telemetry, telemetry);
    EXPECT_TRUE(unchanged.project.trim.has_value());
}
