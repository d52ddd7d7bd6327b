#include "playback/PreviewPlayer.h"
#include "support/AvSyncProbe.h"
#include "support/Prerequisites.h"
#include "support/SoundServer.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

using namespace marlowick;
using namespace marlowick::test;
using namespace std::chrono_literals;

// Each flash is handed out when its beep is heard on the sink: from the start, after a pause and after a
// seek. The beeps are timed by their place in the sink's monitor stream, the flashes by when the player's
// clock passed them, so that neither depends on when a thread of this test got to run; each flash is
// matched with the nearest beep. (Not every beep has a flash: the null sink's monitor may deliver a little
// of what the sink had rendered ahead when the stream is corked.) The bound is what a viewer doesn't
// notice: sound ahead of the picture by 45 ms is just noticed, sound behind it only from about 125 ms. How
// close the player really comes is the benchmark's to say (marlowick-avsync-bench).
TEST(AvSync, FlashesAreHandedOutAsTheirBeepsAreHeard) {
    constexpr double unnoticed = 0.045;
    TempDir dir;
    const SoundServer sound;
    MARLOWICK_REQUIRE(pulseAudio(sound));
    const auto movie = makeFlashMovie(dir, 6);

    HeardBeeps heard(sound.server());
    PreviewPlayer player(sound.server());
    std::atomic<int> reports = 0;
    std::atomic<int> ended = 0;
    PlayerCallbacks callbacks;
    callbacks.time = [&](double, std::uint64_t) { ++reports; };
    callbacks.ended = [&] { ++ended; };
    player.open(PlayerItem::ofMovie(movie, 6, 1), callbacks);
    // The player reports its time once it has opened the item, its sound stream included.
    for (int i = 0; i < 1000 && reports == 0; ++i) {
        std::this_thread::sleep_for(10ms);
    }
    ASSERT_TRUE(player.soundCardClock());

    FlashWatch watch(player, 6);
    // Waits, on the player's clock, until `time`; false when it doesn't get there in ten seconds.
    auto reach = [&](double time) {
        const auto until = std::chrono::steady_clock::now() + 10s;
        while (player.currentTime() < time && ended == 0 && std::chrono::steady_clock::now() < until) {
            std::this_thread::sleep_for(1ms);
        }
        return player.currentTime() >= time;
    };
    player.seek(0.5);
    player.play();
    EXPECT_TRUE(reach(2.5)); // the flashes at 1 and 2
    player.pause();
    std::this_thread::sleep_for(400ms);
    player.play();
    EXPECT_TRUE(reach(3.5)); // the flash at 3, after the pause
    player.seek(0.6);        // the flashes at 1 to 5, after the seek
    const auto until = std::chrono::steady_clock::now() + 20s;
    while (ended == 0 && std::chrono::steady_clock::now() < until) {
        std::this_thread::sleep_for(10ms);
    }
    watch.stop();
    heard.stop();
    ASSERT_EQ(ended, 1);

    const auto flashes = watch.flashes();
    // A command carried out late on a busy machine may let one more flash through.
    std::string passed;
    for (const auto& flash : flashes) {
        passed += " " + std::to_string(static_cast<int>(flash.time));
    }
    EXPECT_GE(flashes.size(), 8U) << "the clock passed the flashes at" << passed;
    const auto leads = flashLeads(flashes, heard.onsets(), 0.5);
    int seen = 0;
    for (std::size_t i = 0; i < flashes.size(); ++i) {
        const auto& flash = flashes[i];
        ASSERT_TRUE(leads[i]) << "no beep heard within half a second of the flash at " << flash.time;
        EXPECT_LT(std::abs(*leads[i]), unnoticed)
            << "the flash at " << flash.time << " handed out " << *leads[i] * 1000 << " ms after its beep";
        // Where the watcher looked while the flash's picture was due, that picture was white.
        if (flash.seen) {
            ++seen;
            EXPECT_TRUE(flash.white) << "the picture due at " << flash.time << " is not the flash";
        }
    }
    EXPECT_GT(seen, 0);
}
