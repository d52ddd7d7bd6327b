// Subtitle files beside an export: the cues on the finished video's clock, around and across cuts.

#include "export/SubtitleFile.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

using namespace marlowick;
namespace fs = std::filesystem;

namespace {

CaptionTrack::Cue cue(std::vector<CaptionTrack::Word> words) {
    return {Uuid::random(), std::move(words)};
}

// Three cues over a 20 s take with 4 s to 8 s cut: one before the cut, one across its start, one
// inside it, and one after it.
CaptionTrack captions() {
    return {{cue({{"Open", 1.0, 1.4, 0.9}, {"settings.", 1.5, 2.2, 0.9}}),
             cue({{"Then", 3.0, 3.5, 0.9}, {"click", 3.6, 3.9, 0.9}, {"here", 4.5, 5.0, 0.9}}),
             cue({{"Gone.", 5.0, 6.0, 0.9}}), cue({{"Done.", 9.0, 9.5123, 0.9}})},
            CaptionStyle{},
            true};
}

} // namespace

TEST(SubtitleFile, CuesFollowTheCutsOntoTheFinishedVideosClock) {
    const TimeMap trim({{4, 8}}, 20);
    const std::vector<SubtitleCue> cues = subtitleCues(captions(), trim);
    ASSERT_EQ(cues.size(), 3u);
    EXPECT_EQ(cues[0], (SubtitleCue{1.0, 2.2, "Open settings."}));
    // The cue across the cut ends at the cut's edge and loses the word the cut takes.
    EXPECT_EQ(cues[1], (SubtitleCue{3.0, 4.0, "Then click"}));
    // The cue after the cut moves 4 s earlier; the one inside it is gone.
    EXPECT_DOUBLE_EQ(cues[2].start, 5.0);
    EXPECT_EQ(cues[2].text, "Done.");

    EXPECT_EQ(subtitleCues(captions(), TimeMap::identity(20)).size(), 4u);
}

TEST(SubtitleFile, SubRipAndWebVttAreWrittenInTheirOwnForms) {
    const std::vector<SubtitleCue> cues{{1.0, 2.2, "Open settings."}, {3661.25, 3662.0005, "Later."}};
    EXPECT_EQ(subtitleText(cues, SubtitleFormat::srt), "1\n00:00:01,000 --> 00:00:02,200\nOpen settings.\n\n"
                                                       "2\n01:01:01,250 --> 01:01:02,001\nLater.\n\n");
    EXPECT_EQ(subtitleText(cues, SubtitleFormat::vtt),
              "WEBVTT\n\n00:00:01.000 --> 00:00:02.200\nOpen settings.\n\n"
              "01:01:01.250 --> 01:01:02.001\nLater.\n\n");

    test::TempDir dir;
    const fs::path target = dir / "talk.srt";
    test::writeText(target, "the earlier file");
    writeSubtitles(target, cues, SubtitleFormat::srt);
    EXPECT_EQ(test::readText(target), subtitleText(cues, SubtitleFormat::srt));
    // Only the target is left: the staging file took its place.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 1);

    // A folder in the way is refused and left alone.
    fs::create_directory(dir / "taken.vtt");
    EXPECT_THROW(writeSubtitles(dir / "taken.vtt", cues, SubtitleFormat::vtt), fs::filesystem_error);
    EXPECT_TRUE(fs::is_directory(dir / "taken.vtt"));
}
