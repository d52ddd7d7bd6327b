// The preview's edit list: segments end to end, and which sound plays.

#include "audio/PlaybackComposition.h"
#include "media/AudioFile.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;
using Segment = PlaybackComposition::Segment;

namespace {

std::filesystem::path movie(const TempDir& dir, bool withAudio) {
    const auto path = dir / (withAudio ? "take.mov" : "silent.mov");
    const std::string command = std::string("ffmpeg -v error -y -f lavfi -i testsrc2=size=64x48:rate=10 ") +
                                (withAudio ? "-f lavfi -i sine=frequency=300:sample_rate=48000 " : "") +
                                "-t 5 " + "-c:v libx264 " + (withAudio ? "-c:a aac " : "") + "'" +
                                path.string() + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return path;
}

} // namespace

TEST(PlaybackComposition, SegmentsCloseTheCuts) {
    TempDir dir;
    const auto take = movie(dir, true);
    const auto cut = PlaybackComposition::make(take, TimeMap({{2, 3}}, 5), std::nullopt);
    ASSERT_TRUE(cut.has_value());
    EXPECT_EQ(cut->segments, (std::vector<Segment>{{0, 2, 0}, {3, 2, 2}}));
    EXPECT_EQ(cut->duration(), 4);
    EXPECT_EQ(cut->videoTracks, 1u);
    ASSERT_EQ(cut->audio.size(), 1u);
    EXPECT_FALSE(cut->audio[0].preTrimmed);

    const auto whole = PlaybackComposition::make(take, TimeMap::identity(5), std::nullopt);
    ASSERT_EQ(whole->segments.size(), 1u);
    EXPECT_NEAR(whole->duration(), 5, 0.05);
    EXPECT_EQ(PlaybackComposition::make(take, std::nullopt, std::nullopt)->segments, whole->segments);

    EXPECT_TRUE(PlaybackComposition::make(take, TimeMap({{0, 5}}, 5), std::nullopt)->segments.empty());
}

TEST(PlaybackComposition, TheProcessedMixReplacesTheSourcesSound) {
    TempDir dir;
    const auto take = movie(dir, true);
    AudioFile::writeAac(dir / "mix.m4a", std::vector<float>(48000, 0.1f));
    const auto mixed = PlaybackComposition::make(take, TimeMap({{2, 3}}, 5), dir / "mix.m4a");
    ASSERT_EQ(mixed->audio.size(), 1u);
    EXPECT_TRUE(mixed->audio[0].preTrimmed);
    EXPECT_EQ(mixed->audio[0].file, dir / "mix.m4a");

    // A mix that can't be opened leaves the source's sound, cut by the segments.
    const auto fallback = PlaybackComposition::make(take, std::nullopt, dir / "missing.m4a");
    ASSERT_EQ(fallback->audio.size(), 1u);
    EXPECT_EQ(fallback->audio[0].file, take);
}

TEST(PlaybackComposition, WhatCantBeBuilt) {
    TempDir dir;
    EXPECT_FALSE(PlaybackComposition::make(dir / "nothing.mov", std::nullopt, std::nullopt).has_value());
    const auto silent = PlaybackComposition::make(movie(dir, false), std::nullopt, std::nullopt);
    ASSERT_TRUE(silent.has_value());
    EXPECT_TRUE(silent->audio.empty());
    EXPECT_EQ(silent->videoTracks, 1u);
}
