// The recording sink on synthetic pictures and sound: what starts the movie, what is refused, how the
// tracks are laid out and kept in step, what is dropped when the encoder falls behind, and the stop
// when the disk fills up. Every movie is decoded back.

#include "capture/RecordingSink.h"
#include "media/AudioFile.h"
#include "media/MediaInfo.h"
#include "support/TakeAnalysis.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <thread>

using namespace marlowick;
using namespace marlowick::test;
using namespace std::chrono_literals;

namespace {

constexpr int width = 320;
constexpr int height = 240;

CaptureConfiguration configuration(const std::filesystem::path& movie, bool system, bool microphone) {
    CaptureConfiguration c;
    c.outputURL = movie;
    c.size = {width, height};
    c.frameRate = 30;
    c.capturesAudio = system;
    c.capturesMicrophone = microphone;
    return c;
}

std::vector<std::uint8_t> picture(int w, int h, std::uint8_t shade) {
    return std::vector<std::uint8_t>(static_cast<std::size_t>(w) * h * 4, shade);
}

// Stereo pieces of a tone (or silence) from `from` to `to` seconds, 10 ms each, handed to the sink.
void feedSound(RecordingSink& sink, RecordingSink::Output output, double from, double to, double amplitude) {
    constexpr int piece = 480;
    std::vector<float> samples(2 * piece);
    for (double t = from; t < to - 1e-9; t += piece / 48000.0) {
        for (int i = 0; i < piece; ++i) {
            const double s = amplitude * std::sin(2 * std::numbers::pi * 440 * (t + i / 48000.0));
            samples[2 * i] = samples[2 * i + 1] = static_cast<float>(s);
        }
        sink.appendAudio(output, samples.data(), piece, t);
    }
}

// 10 ms of stereo silence from the system's sound at `time`; whether the sink took it.
bool quiet(RecordingSink& sink, double time) {
    const std::vector<float> samples(960);
    return sink.appendAudio(RecordingSink::Output::audio, samples.data(), 480, time);
}

} // namespace

TEST(RecordingSink, TheMovieStartsOnTheFirstPictureWithVideoThenSystemSoundThenTheMicrophone) {
    const TempDir dir;
    const auto movie = dir / "take.mov";
    RecordingSink sink(configuration(movie, true, true));
    const auto frame = picture(width, height, 90);

    // Nothing before the first picture counts, and an incomplete picture is no first picture.
    EXPECT_FALSE(quiet(sink, 99.5));
    EXPECT_FALSE(sink.appendVideo(frame.data(), width * 4, width, height, 99.9, false));
    EXPECT_FALSE(sink.sessionStart());

    const double start = 100.0;
    for (int i = 0; i < 30; ++i) {
        ASSERT_TRUE(sink.appendVideo(frame.data(), width * 4, width, height, start + i / 30.0));
        if (i == 0) {
            // Sound stamped before the first picture is refused even once the movie runs.
            EXPECT_FALSE(quiet(sink, start - 0.01));
            feedSound(sink, RecordingSink::Output::audio, start, start + 1.0, 0.5);
            feedSound(sink, RecordingSink::Output::microphone, start, start + 0.5, 0.0);
            feedSound(sink, RecordingSink::Output::microphone, start + 0.5, start + 0.7, 0.5);
            feedSound(sink, RecordingSink::Output::microphone, start + 0.7, start + 1.0, 0.0);
        }
        std::this_thread::sleep_for(10ms);
    }
    // Sound after the last picture makes the take longer; sound earlier than that doesn't shorten it.
    EXPECT_TRUE(quiet(sink, start + 1.2));
    EXPECT_TRUE(quiet(sink, start + 1.1));
    EXPECT_EQ(*sink.sessionStart(), start);

    EXPECT_NEAR(sink.finish(), 1.2, 1e-9);
    EXPECT_FALSE(sink.appendVideo(frame.data(), width * 4, width, height, start + 2));
    EXPECT_FALSE(quiet(sink, start + 2));
    EXPECT_EQ(sink.statistics().framesWritten, 30);
    EXPECT_EQ(sink.statistics().framesDropped, 0);

    const MediaInfo info = MediaInfo::of(movie);
    EXPECT_EQ(info.videoTracks, 1u);
    EXPECT_EQ(info.audioTracks, 2u);
    const std::vector<double> times = frameTimes(movie);
    ASSERT_EQ(times.size(), 30u);
    for (std::size_t i = 0; i < times.size(); ++i) {
        EXPECT_NEAR(times[i], static_cast<double>(i) / 30, 1e-4);
    }
    const std::vector<float> system = AudioFile::decodeTrack(movie, 0);
    const std::vector<float> microphone = AudioFile::decodeTrack(movie, 1);
    EXPECT_GT(level(system, 0.1, 0.9), 0.2);
    EXPECT_LT(level(microphone, 0.1, 0.45), 0.01);
    EXPECT_GT(level(microphone, 0.55, 0.65), 0.2);
    EXPECT_NEAR(onset(microphone, 0.5 / 3), 0.5, 0.01);
    EXPECT_LT(level(microphone, 0.75, 0.95), 0.01);
}

TEST(RecordingSink, ACaptureWithoutPicturesLastsNothingAndUnrecordedSoundIsDropped) {
    const TempDir dir;
    RecordingSink sink(configuration(dir / "take.mov", false, false));
    const auto frame = picture(width, height, 0);
    EXPECT_FALSE(sink.appendVideo(frame.data(), width * 4, width, height, 5.0, false));
    EXPECT_FALSE(quiet(sink, 5.1));
    EXPECT_EQ(sink.finish(), 0.0);
    EXPECT_TRUE(std::filesystem::exists(dir / "take.mov")); // a take is never removed
}

TEST(RecordingSink, ASilentStretchOfADeviceIsFilledSoTheSoundStaysInStep) {
    const TempDir dir;
    const auto movie = dir / "take.mov";
    // Pictures come far faster than real time here: a queue as long as the take keeps the encoder's pace
    // out of what is tested.
    RecordingSink::Options options;
    options.queueDepth = 64;
    RecordingSink sink(configuration(movie, true, false), options);
    const auto frame = picture(width, height, 40);
    const double start = 10.0;
    for (int i = 0; i < 60; ++i) {
        const double t = start + i / 30.0;
        ASSERT_TRUE(sink.appendVideo(frame.data(), width * 4, width, height, t));
        // The device delivers for half a second, is gone for a second, and comes back.
        if (i == 0) {
            feedSound(sink, RecordingSink::Output::audio, start + 0.05, start + 0.5, 0.5);
        }
        if (i == 45) {
            feedSound(sink, RecordingSink::Output::audio, start + 1.5, start + 2.0, 0.5);
        }
        std::this_thread::sleep_for(2ms);
    }
    sink.finish();
    const std::vector<float> system = AudioFile::decodeTrack(movie, 0);
    EXPECT_NEAR(onset(system, 0.5 / 3), 0.05, 0.01);
    EXPECT_LT(level(system, 0.55, 1.45), 0.01);
    EXPECT_NEAR(onset(system, 0.5 / 3, 0.55), 1.5, 0.01);
    EXPECT_NEAR(static_cast<double>(system.size()) / 48000, 2.0, 0.05);
}

TEST(RecordingSink, PicturesTheEncoderCantTakeAreDroppedAndCounted) {
    const TempDir dir;
    const auto movie = dir / "take.mov";
    CaptureConfiguration c = configuration(movie, false, false);
    c.size = {1280, 720};
    RecordingSink::Options options;
    options.queueDepth = 2;
    options.allowHardware = false;
    RecordingSink sink(c, options);
    // Noise is the hardest picture to encode; handed over with no pause, the encoder can't keep up.
    std::mt19937 random(7);
    std::vector<std::uint8_t> noise(1280u * 720 * 4);
    for (auto& byte : noise) {
        byte = static_cast<std::uint8_t>(random());
    }
    int taken = 0;
    for (int i = 0; i < 60; ++i) {
        noise[static_cast<std::size_t>(i)] ^= 0xff;
        taken += sink.appendVideo(noise.data(), 1280 * 4, 1280, 720, 1.0 + i / 60.0) ? 1 : 0;
    }
    sink.finish();
    const CaptureStatistics statistics = sink.statistics();
    EXPECT_GT(statistics.framesDropped, 0);
    EXPECT_EQ(statistics.framesWritten, taken);
    EXPECT_EQ(statistics.framesWritten + statistics.framesDropped, 60);
    EXPECT_EQ(frameTimes(movie).size(), static_cast<std::size_t>(taken));
}

TEST(RecordingSink, ADiskFillingUpStopsTheTakeAndKeepsWhatWasWritten) {
    const TempDir dir;
    const auto movie = dir / "take.mov";
    RecordingSink::Options options;
    options.minimumFreeBytes = UINT64_MAX; // no disk has that much to spare
    RecordingSink sink(configuration(movie, false, false), options);
    const auto frame = picture(width, height, 120);
    int i = 0;
    for (; i < 100 && !sink.interruption(); ++i) {
        sink.appendVideo(frame.data(), width * 4, width, height, i / 30.0);
        std::this_thread::sleep_for(5ms);
    }
    ASSERT_TRUE(sink.interruption());
    EXPECT_EQ(sink.interruption()->kind(), CaptureError::Kind::writerFailed);
    EXPECT_NE(std::string(sink.interruption()->what()).find("disk is almost full"), std::string::npos);
    EXPECT_FALSE(sink.appendVideo(frame.data(), width * 4, width, height, 50.0));
    EXPECT_NO_THROW(sink.finish());
    EXPECT_GE(frameTimes(movie).size(), 1u);
}
