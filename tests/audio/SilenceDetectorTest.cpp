// Where the pauses are: runs of quiet 20 ms frames, judged against the recording's own level.

#include "audio/SilenceDetector.h"
#include "audio/AudioRenderer.h"
#include "media/AudioFile.h"
#include "support/TempDir.h"

#include <cmath>

#include <gtest/gtest.h>

using namespace marlowick;

namespace {

SilenceTrim on(double minimum = 0.7, double padding = 0.12, double threshold = 0.08) {
    return {true, threshold, minimum, padding};
}

// Loud frames (a 0.5 square wave) except for the silent stretches given in frames of 960 samples.
std::vector<float> speech(std::size_t frames, std::vector<std::pair<std::size_t, std::size_t>> quiet) {
    std::vector<float> s(frames * 960);
    for (std::size_t i = 0; i < s.size(); ++i) {
        const std::size_t f = i / 960;
        const bool silent =
            std::any_of(quiet.begin(), quiet.end(), [f](auto q) { return f >= q.first && f < q.second; });
        s[i] = silent ? 0.001f : (i % 2 ? 0.5f : -0.5f);
    }
    return s;
}

} // namespace

TEST(SilenceDetector, FindsRunsLessTheirPadding) {
    // 200 frames (4 s); silent frames 50–100 (1 s) and 150–200 (to the end).
    const std::vector<float> s = speech(200, {{50, 100}, {150, 200}});
    const TimeMap map = SilenceDetector::detect(s, 48000, on(0.5, 0.1), 4);
    ASSERT_EQ(map.removals().size(), 2u);
    EXPECT_NEAR(map.removals()[0].lower, 1.1, 1e-9);
    EXPECT_NEAR(map.removals()[0].upper, 1.9, 1e-9);
    EXPECT_NEAR(map.removals()[1].lower, 3.1, 1e-9);
    EXPECT_NEAR(map.removals()[1].upper, 3.9, 1e-9); // padding is kept at the end of the recording too

    // A run that leaves exactly the minimum once padded is cut (the test is "at least"); a hair more
    // minimum and it stays. The minimum is worked out as the detector measures the run.
    const std::vector<float> run = speech(200, {{50, 85}});
    const double frame = 960.0 / 48000;
    const double exactly = (frame * 85 - 0.1) - (0.1 + frame * 50);
    EXPECT_EQ(SilenceDetector::detect(run, 48000, on(exactly, 0.1), 4).removals().size(), 1u);
    EXPECT_TRUE(SilenceDetector::detect(run, 48000, on(std::nextafter(exactly, 1.0), 0.1), 4).isIdentity());
}

TEST(SilenceDetector, LeavesTheRecordingWholeWhenItCantJudge) {
    const std::vector<float> s = speech(200, {{50, 100}});
    SilenceTrim off = on();
    off.isEnabled = false;
    EXPECT_EQ(SilenceDetector::detect(s, 48000, off, 4), TimeMap::identity(4));
    EXPECT_EQ(SilenceDetector::detect(std::vector<float>{}, 48000, on(), 4), TimeMap::identity(4));
    const std::vector<float> hush(48000 * 3, 0.0009f);
    EXPECT_EQ(SilenceDetector::detect(hush, 48000, on(), 3), TimeMap::identity(3));
}

TEST(SilenceDetector, TheCutoffIsAFractionOfTheReferenceAndEqualIsNotSilent) {
    // Reference 0.5: with threshold 0.1 the cutoff is 0.05. Frames at exactly 0.05 are speech.
    std::vector<float> s = speech(200, {});
    for (std::size_t i = 50 * 960; i < 100 * 960; ++i) {
        s[i] = 0.05f;
    }
    EXPECT_TRUE(SilenceDetector::detect(s, 48000, on(0.5, 0.1, 0.1), 4).isIdentity());
    for (std::size_t i = 50 * 960; i < 100 * 960; ++i) {
        s[i] = 0.0499f;
    }
    EXPECT_EQ(SilenceDetector::detect(s, 48000, on(0.5, 0.1, 0.1), 4).removals().size(), 1u);
    // A threshold of 0 acts as 0.001 of the reference.
    EXPECT_EQ(SilenceDetector::detect(speech(200, {{50, 100}}), 48000, on(0.5, 0.1, 0), 4).removals().size(),
              0u);
}

TEST(SilenceDetector, ReadsTheVoiceOfAMovie) {
    test::TempDir dir;
    AudioFile::writeAac(dir / "voice.m4a", speech(200, {{50, 100}}));
    const TimeMap map = SilenceDetector{}.detect(dir / "voice.m4a", on(0.5, 0.1));
    ASSERT_EQ(map.removals().size(), 1u);
    EXPECT_NEAR(map.removals()[0].lower, 1.1, 0.03);
    EXPECT_NEAR(map.removals()[0].upper, 1.9, 0.03);
}
