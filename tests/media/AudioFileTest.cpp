// Sound in and out of real files: our AAC writer read back, and the tracks of a movie taken apart.

#include "media/AudioFile.h"
#include "media/MediaError.h"
#include "support/TempDir.h"
#include "support/Tones.h"

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;

TEST(AudioFile, WhatWeWriteReadsBackInTimeAndLevel) {
    TempDir dir;
    const auto path = dir / "voice.m4a";
    const std::vector<float> original = tone(440, 0.5, 2);
    AudioFile::writeAac(path, original);
    EXPECT_EQ(AudioFile::trackCount(path), 1u);
    EXPECT_NEAR(AudioFile::duration(path), 2, 0.03);
    const std::vector<float> back = AudioFile::decodeTrack(path, 0);
    EXPECT_NEAR(static_cast<double>(back.size()), 96000, 1024);
    EXPECT_NEAR(level(back, 0.1, 1.9), 0.5 / std::sqrt(2.0), 0.01);
    // In time: the decoded tone lines up with the original, encoder delay and all.
    double correlation = 0;
    for (std::size_t i = 4800; i < 91200; ++i) {
        correlation += static_cast<double>(back[i]) * original[i];
    }
    EXPECT_GT(correlation / (86400 * 0.125), 0.95);

    // Nothing to write still makes a file (FFmpeg reads such a file back with no track at all).
    AudioFile::writeAac(dir / "empty.m4a", {});
    EXPECT_TRUE(std::filesystem::exists(dir / "empty.m4a"));
}

TEST(AudioFile, TracksComeInFileOrderMixedDownAndResampled) {
    TempDir dir;
    const auto movie = dir / "take.mov";
    // A stereo 44.1 kHz system track of 300 Hz and a mono 48 kHz voice of 1 kHz, 1.5 s, beside video.
    const std::string command = "ffmpeg -v error -f lavfi -i testsrc2=size=64x48:rate=10 -f lavfi -i "
                                "sine=frequency=300:sample_rate=44100 "
                                "-f lavfi -i sine=frequency=1000:sample_rate=48000 -t 1.5 -map 0 -map 1 -map "
                                "2 -ac:a:0 2 -c:v libx264 "
                                "-c:a aac '" +
                                movie.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(AudioFile::trackCount(movie), 2u);
    const std::vector<float> system = AudioFile::decodeTrack(movie, 0);
    const std::vector<float> voice = AudioFile::decodeTrack(movie, 1);
    EXPECT_NEAR(static_cast<double>(system.size()), 72000, 2048);
    EXPECT_NEAR(static_cast<double>(voice.size()), 72000, 2048);
    // Count zero crossings to tell the tones apart.
    auto crossings = [](const std::vector<float>& s) {
        int n = 0;
        for (std::size_t i = 24001; i < 72000 - 4800; ++i) {
            n += (s[i - 1] < 0) != (s[i] < 0) ? 1 : 0;
        }
        return n;
    };
    EXPECT_NEAR(crossings(system), 2 * 300 * (72000 - 4800 - 24001) / 48000.0, 4);
    EXPECT_NEAR(crossings(voice), 2 * 1000 * (72000 - 4800 - 24001) / 48000.0, 4);
    EXPECT_THROW(AudioFile::decodeTrack(movie, 2), MediaError);
    EXPECT_THROW(AudioFile::trackCount(dir / "none.mov"), MediaError);
}
