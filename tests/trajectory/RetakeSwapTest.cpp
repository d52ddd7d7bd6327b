// A new take under a finished edit: what is kept, what is remade, and how a person's beats are fitted
// onto a take of another length.

#include "trajectory/RetakeSwap.h"

#include <gtest/gtest.h>

using namespace marlowick;
using Kind = InputEvent::Kind;

namespace {

ZoomBeat edited(double start, double end) {
    return ZoomBeat(Uuid::random(), start, end, {0.3, 0.7}, 1.6, 0.4, 0.5, Easing::spring, false);
}

MarlowickDocument document(double duration, std::vector<ZoomBeat> beats) {
    Project p;
    p.id = Uuid::random();
    p.name = "Tour";
    p.source.mediaURL = Url{"file:///tmp/take-old.mov"};
    p.source.size = {1920, 1080};
    p.source.frameRate = 60;
    p.source.duration = duration;
    p.camera = CameraTrack{std::move(beats), CameraTrack::Style::dynamic};
    p.manualCuts = {Span(Uuid::random(), 2, 3)};
    p.trim = TimeMap({{4, 5}}, duration);
    p.canvas.cornerRadius = 31;
    MarlowickDocument doc(p, {{1, Kind::down, {10, 10}}});
    return doc;
}

Recording retake(double duration, std::vector<InputEvent> events = {{1, Kind::down, {960, 540}}}) {
    Recording r;
    r.mediaURL = Url{"file:///tmp/take-new.mov"};
    r.size = {1920, 1080};
    r.frameRate = 60;
    r.duration = duration;
    r.inputEvents = std::move(events);
    return r;
}

} // namespace

TEST(RetakeSwap, ATakeOfTheSameLengthKeepsTheEditAndRedirects) {
    const ZoomBeat mine = edited(3, 6);
    const ZoomBeat old(Uuid::random(), 8, 9, {0.5, 0.5}, 1.9, 0.35, 0.35, Easing::easeInOut, true);
    const auto [doc, report] = RetakeSwap{}.apply(retake(20), document(20, {mine, old}));

    const Project& p = doc.project;
    EXPECT_EQ(p.source.mediaURL.absoluteString, "file:///tmp/take-new.mov");
    EXPECT_TRUE(p.source.inputEvents.empty());
    EXPECT_EQ(doc.telemetry().size(), 1u);
    EXPECT_TRUE(doc.telemetryChanged());
    EXPECT_EQ(p.name, "Tour");
    EXPECT_EQ(p.canvas.cornerRadius, 31);
    EXPECT_EQ(p.manualCuts.size(), 1u);
    EXPECT_EQ(p.trim->removals(), (std::vector<Range>{{4, 5}}));

    ASSERT_EQ(p.camera.beats.size(), 2u);
    EXPECT_TRUE(p.camera.beats[0].isGenerated); // the retake's click at 1 s
    EXPECT_DOUBLE_EQ(p.camera.beats[0].start, 0.65);
    EXPECT_EQ(p.camera.beats[1], mine);

    EXPECT_EQ(report, (RetakeSwap::Report{20, 20, 1, 1, false}));
    EXPECT_EQ(report.timeScale(), 1);
    EXPECT_FALSE(report.needsReview());
}

TEST(RetakeSwap, LongerAndShorterTakesScaleTheBeatsButNotTheRamps) {
    const ZoomBeat mine = edited(3, 6);
    const auto twice = RetakeSwap{}.apply(retake(40), document(20, {mine}));
    const ZoomBeat& moved = twice.document.project.camera.beats.back();
    EXPECT_EQ(moved.id, mine.id);
    EXPECT_EQ(moved.start, 6);
    EXPECT_EQ(moved.end, 12);
    EXPECT_EQ(moved.rampIn, 0.4);
    EXPECT_EQ(moved.rampOut, 0.5);
    EXPECT_EQ(twice.report.timeScale(), 2);
    EXPECT_TRUE(twice.report.needsReview());

    const auto slightly = RetakeSwap{}.apply(retake(20.2), document(20, {mine}));
    EXPECT_DOUBLE_EQ(slightly.report.timeScale(), 1.01);
    EXPECT_FALSE(slightly.report.needsReview());

    const auto noBeats = RetakeSwap{}.apply(retake(60), document(20, {}));
    EXPECT_FALSE(noBeats.report.needsReview());

    const auto fromNothing = RetakeSwap{}.apply(retake(30), document(0, {mine}));
    EXPECT_EQ(fromNothing.report.timeScale(), 1);
    EXPECT_FALSE(fromNothing.report.needsReview());
    EXPECT_EQ(fromNothing.document.project.camera.beats.back().start, 3);
}

TEST(RetakeSwap, BeatsNearTheEndOfAShorterTakeKeepAPlace) {
    const ZoomBeat late = edited(50, 58);
    const ZoomBeat last = edited(59, 60);
    const auto result = RetakeSwap{}.apply(retake(10, {}), document(60, {late, last}));
    const auto& beats = result.document.project.camera.beats;
    ASSERT_EQ(beats.size(), 2u);
    EXPECT_DOUBLE_EQ(beats[0].start, 50.0 / 6);
    EXPECT_DOUBLE_EQ(beats[0].end, 58.0 / 6);
    EXPECT_DOUBLE_EQ(beats[1].start, 9.7); // no later than the take's end less the shortest beat
    EXPECT_DOUBLE_EQ(beats[1].end, 10);
    EXPECT_EQ(result.report.regeneratedBeats, 0);
    EXPECT_EQ(result.report.remappedBeats, 2);

    // A take shorter than the shortest beat: every beat spans it whole.
    const auto tiny = RetakeSwap{}.apply(retake(0.2, {}), document(60, {late, last}));
    for (const ZoomBeat& b : tiny.document.project.camera.beats) {
        EXPECT_EQ(b.start, 0);
        EXPECT_EQ(b.end, 0.2);
    }
}

TEST(RetakeSwap, CaptionsAreEmptiedAndTheStyleCanChange) {
    MarlowickDocument doc = document(20, {});
    CaptionStyle look;
    look.position = CaptionStyle::Position::top;
    doc.project.captions = CaptionTrack{{CaptionTrack::Cue{Uuid::random(), {{"Hi", 1, 2, 1}}}}, look, false};
    RetakeSwap swap;
    swap.style = CameraTrack::Style::cinematic;
    const auto result = swap.apply(retake(20), doc);
    ASSERT_TRUE(result.document.project.captions.has_value());
    EXPECT_TRUE(result.document.project.captions->cues.empty());
    EXPECT_EQ(result.document.project.captions->style, look);
    EXPECT_FALSE(result.document.project.captions->isEnabled);
    EXPECT_TRUE(result.report.captionsCleared);
    EXPECT_EQ(result.document.project.camera.style, CameraTrack::Style::cinematic);
    EXPECT_EQ(result.document.project.camera.beats[0].scale, 2.6);

    doc.project.captions->cues.clear();
    EXPECT_FALSE(RetakeSwap{}.apply(retake(20), doc).report.captionsCleared);
    doc.project.captions.reset();
    const auto none = RetakeSwap{}.apply(retake(20, {}), doc);
    EXPECT_FALSE(none.document.project.captions.has_value());
    EXPECT_TRUE(none.document.telemetryChanged());
    EXPECT_TRUE(none.document.telemetry().empty());
}
