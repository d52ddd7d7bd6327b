// The sound's toolbox on plain buffers: filters, the expander and compressor, ducking, clicks, levels.

#include "audio/DSP.h"
#include "support/Tones.h"

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;

constexpr double rate = 48000;

TEST(Biquad, HighPassBlocksTheLowAndKeepsTheHigh) {
    Biquad f = Biquad::highPass(85, 0.707, rate);
    std::vector<float> low = tone(20, 0.5, 1);
    f.process(low);
    EXPECT_LT(peak(std::span(low).subspan(24000)), 0.05);
    f.reset();
    std::vector<float> high = tone(1000, 0.5, 1);
    f.process(high);
    EXPECT_NEAR(peak(std::span(high).subspan(24000)), 0.5, 0.01);

    // A peaking filter lifts its own frequency by its gain.
    Biquad lift = Biquad::peaking(3000, 0.9, 6, rate);
    std::vector<float> centre = tone(3000, 0.1, 1);
    lift.process(centre);
    EXPECT_NEAR(20 * std::log10(peak(std::span(centre).subspan(24000)) / 0.1), 6, 0.1);
}

TEST(EnvelopeFollower, RisesAndFallsAtItsOwnPace) {
    EnvelopeFollower f(0.01, 0.1, rate);
    for (int i = 0; i < 480; ++i) {
        f.process(1);
    }
    EXPECT_NEAR(f.current(), 1 - std::exp(-1.0), 1e-3); // one attack time constant
    for (int i = 0; i < 4800; ++i) {
        f.process(0);
    }
    EXPECT_NEAR(f.current(), (1 - std::exp(-1.0)) * std::exp(-1.0), 1e-3);
}

TEST(DSP, NoiseFloorCountsWholeFramesOnly) {
    std::vector<float> oneFrame(2400, 0.5f);
    EXPECT_EQ(DSP::noiseFloor(oneFrame, rate, 0.05, 0.1), 0);
    std::vector<float> twoFrames(4800, 0.25f);
    std::fill(twoFrames.begin(), twoFrames.begin() + 2400, 0.5f);
    EXPECT_DOUBLE_EQ(DSP::noiseFloor(twoFrames, rate, 0.05, 0.1), 0.25);
    twoFrames.resize(4800 + 100, 0.0f); // a trailing part frame counts for nothing
    EXPECT_DOUBLE_EQ(DSP::noiseFloor(twoFrames, rate, 0.05, 0.1), 0.25);
}

TEST(DSP, PercentileIndexesByCountLessOne) {
    EXPECT_EQ(DSP::percentile({}, 0.5), 0);
    EXPECT_EQ(DSP::percentile({7}, 0.95), 7);
    const std::vector<double> ten{9, 0, 8, 1, 7, 2, 6, 3, 5, 4};
    EXPECT_EQ(DSP::percentile(ten, 0.95), 8); // truncate(0.95 × 9) = 8
    EXPECT_EQ(DSP::percentile(ten, 1), 9);
    EXPECT_EQ(DSP::percentile(ten, 0), 0);
}

TEST(DSP, TheExpanderClosesAtTheFloorAndOpensAtTwoAndAHalfTimesIt) {
    // Two seconds at 0.01, which makes the floor, then one second well above 2.5 times it.
    std::vector<float> s(static_cast<std::size_t>(rate * 3));
    for (std::size_t i = 0; i < s.size(); ++i) {
        const double level = static_cast<double>(i) / rate < 2 ? 0.01 : 0.1;
        s[i] = static_cast<float>(i % 2 ? level : -level);
    }
    std::vector<float> quiet = s;
    DSP::denoise(quiet, 1, rate);
    EXPECT_NEAR(std::abs(quiet[static_cast<std::size_t>(rate * 1.5)]), 0.01 * 0.05, 1e-4); // closed: 5%
    EXPECT_NEAR(std::abs(quiet[static_cast<std::size_t>(rate * 2.5)]), 0.1, 1e-6);         // open
    std::vector<float> gentle = s;
    DSP::denoise(gentle, 2, rate);
    EXPECT_EQ(gentle, quiet); // 2 acts as 1

    std::vector<float> silence(48000, 0.0f);
    DSP::denoise(silence, 1, rate);
    EXPECT_EQ(silence, std::vector<float>(48000, 0.0f));
}

TEST(DSP, TheCompressorSettlesAFullScaleSignal) {
    std::vector<float> full(static_cast<std::size_t>(rate * 2), 1.0f);
    DSP::compress(full, 1, rate);
    // −24 dB threshold, 6:1 above it, 6 dB makeup: 0 dBFS comes out at −24 + 24/6 + 6 = −14 dBFS.
    EXPECT_NEAR(20 * std::log10(full.back()), -14, 0.05);
    std::vector<float> untouched(1000, 0.5f);
    DSP::compress(untouched, 0, rate);
    EXPECT_EQ(untouched, std::vector<float>(1000, 0.5f)); // no makeup either
}

TEST(DSP, DuckingFollowsTheVoiceAboveItsNoise) {
    // 1 s of near-silence, 1 s of voice.
    std::vector<float> voice(static_cast<std::size_t>(rate * 2), 0.0005f);
    for (std::size_t i = 48000; i < voice.size(); ++i) {
        voice[i] = static_cast<float>(0.4 * std::sin(static_cast<double>(i) * 0.05));
    }
    const std::vector<float> gains = DSP::duckingGains(voice, 1, rate);
    ASSERT_EQ(gains.size(), voice.size());
    EXPECT_EQ(gains[24000], 1.0f);
    EXPECT_NEAR(gains[90000], 0.15f, 1e-6);
    EXPECT_EQ(DSP::duckingGains(voice, 0, rate), std::vector<float>(voice.size(), 1.0f));
    EXPECT_EQ(DSP::duckingGains(voice, 2, rate), gains);
    const std::vector<float> whisper(48000, 0.003f);
    EXPECT_EQ(DSP::duckingGains(whisper, 1, rate), std::vector<float>(48000, 1.0f));
}

TEST(DSP, ClicksLandWhereTheyFallAndNowhereElse) {
    const std::vector<double> outside{-0.1, 1.0, 2.0};
    EXPECT_EQ(DSP::clickTrack(outside, 48000, rate, 0.5), std::vector<float>(48000, 0.0f));
    const std::vector<double> nearEnd{(48000 - 10) / rate};
    const auto cut = DSP::clickTrack(nearEnd, 48000, rate, 0.5);
    EXPECT_NE(cut[47999], 0.0f);
    EXPECT_EQ(std::count_if(cut.begin(), cut.end(), [](float x) { return x != 0; }), 9); // sin(0) is 0
    const std::vector<double> twice{0.5, 0.5};
    const std::vector<double> once{0.5};
    EXPECT_FLOAT_EQ(DSP::clickTrack(twice, 48000, rate, 0.5)[24010],
                    2 * DSP::clickTrack(once, 48000, rate, 0.5)[24010]);
    EXPECT_EQ(DSP::clickTrack(once, 100, 160, 0.5), std::vector<float>(100, 0.0f)); // a click of one sample
    EXPECT_EQ(DSP::clickTrack(once, 48000, rate, 0), std::vector<float>(48000, 0.0f));
}

TEST(DSP, NormaliseRaisesWithinItsLimitAndLeavesNearSilence) {
    std::vector<float> exact{0.89f, -0.2f};
    DSP::normalize(exact, 0.89f, 20);
    EXPECT_EQ(exact, (std::vector<float>{0.89f, -0.2f}));
    std::vector<float> faint{0.0001f};
    DSP::normalize(faint, 0.89f, 20);
    EXPECT_EQ(faint[0], 0.0001f);
    std::vector<float> quiet{0.01f, -0.005f};
    DSP::normalize(quiet, 0.89f, 20);
    EXPECT_FLOAT_EQ(quiet[0], 0.2f);
    std::vector<float> loud{2.0f, -1.0f};
    DSP::normalize(loud, 0.89f, 20);
    EXPECT_FLOAT_EQ(loud[0], 0.89f);
}
