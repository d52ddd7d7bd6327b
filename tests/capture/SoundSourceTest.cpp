// One sound stream of the capture, on a private PulseAudio started by the fixture: what it delivers once
// started, and the times it puts on it.

#include "capture/SoundSource.h"
#include "capture/MonotonicClock.h"
#include "support/Beeper.h"
#include "support/Prerequisites.h"
#include "support/SoundServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <mutex>
#include <thread>
#include <vector>

using namespace marlowick;
using namespace marlowick::test;
using namespace std::chrono_literals;

// The stream opens well before the take starts and a beep plays meanwhile: none of that comes once the
// source is started. What comes is stamped when it was captured, after the start, each piece a piece's
// length after the one before, as the sound came; not a backlog stamped on its late arrival all at once.
TEST(SoundSource, DeliversOnlySoundCapturedSinceTheStartOnItsCapturedTimes) {
    const SoundServer sound;
    MARLOWICK_REQUIRE(pulseAudio(sound));
    Beeper beeper(sound.server(), "sysaudio");
    struct Piece {
        double time;
        int frames;
        float peak;
    };
    std::mutex lock;
    std::vector<Piece> pieces;
    SoundSource source(
        SoundSource::Kind::systemAudio, sound.server(),
        [&](const float* samples, int frames, double time) {
            float peak = 0;
            for (int i = 0; i < 2 * frames; ++i) {
                peak = std::max(peak, std::abs(samples[i]));
            }
            std::lock_guard guard(lock);
            pieces.push_back({time, frames, peak});
        },
        [](const std::string&) {});
    // A new stream's first sound may come a second or more after it opens; the beep comes after that.
    std::this_thread::sleep_for(2s);
    beeper.beep();
    std::this_thread::sleep_for(500ms);
    const double started = monotonicSeconds();
    source.start();
    std::this_thread::sleep_for(600ms);
    source.stop();

    std::lock_guard guard(lock);
    ASSERT_GE(pieces.size(), 10u);
    float loudest = 0;
    for (const Piece& piece : pieces) {
        loudest = std::max(loudest, piece.peak);
    }
    EXPECT_LT(loudest, 0.05) << "the beep from before the start was delivered";
    // One piece may have been on its way at the start.
    EXPECT_GT(pieces.front().time, started - 0.05);
    // The stamps span the sound they stamp, within a few pieces' worth of a busy machine's delays.
    double heard = 0;
    for (std::size_t i = 0; i + 1 < pieces.size(); ++i) {
        heard += pieces[i].frames / 48000.0;
    }
    EXPECT_NEAR(pieces.back().time - pieces.front().time, heard, 0.05) << pieces.size() << " pieces";
}
