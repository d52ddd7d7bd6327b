#include "capture/MonotonicClock.h"
#include "capture/SoundSource.h"
#include "playback/PreviewPlayer.h"
#include "support/Prerequisites.h"
#include "support/SoundServer.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace marlowick;
using namespace marlowick::test;
using namespace std::chrono_literals;

namespace {

// Six seconds of black with a white frame and a 30 ms beep at the start of every second.
std::filesystem::path makeFlashes(const TempDir& dir) {
    const auto movie = dir / "flashes.mp4";
    const std::string command =
        "ffmpeg -v error -y -f lavfi -i \"color=c=black:s=64x48:r=30:d=6,"
        "drawbox=x=0:y=0:w=iw:h=ih:color=white:t=fill:enable='lt(mod(t,1),0.02)'\" "
        "-f lavfi -i \"aevalsrc='if(lt(mod(t,1),0.03),0.8*sin(2*PI*1000*t),0)':s=48000:d=6\" "
        "-c:v libx264 -g 30 -pix_fmt yuv420p -c:a aac -b:a 192k '" +
        movie.string() + "'";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("ffmpeg could not make the test movie");
    }
    return movie;
}

} // namespace

// Each flash is handed out when its beep is heard on the sink, within 20 ms: from the start, after a pause
// and after a seek. The sound is recorded from the sink's monitor, each piece stamped on the monotonic
// clock as it arrives; the pictures are asked for by the player's clock as a canvas would, more often.
// (Every flash is matched with a beep, not every beep with a flash: the null sink's monitor may deliver a
// little of what the sink had rendered ahead when the stream is corked.)
TEST(AvSync, FlashesAreHandedOutAsTheirBeepsAreHeard) {
    TempDir dir;
    const SoundServer sound;
    MARLOWICK_REQUIRE(pulseAudio(sound));
    const auto movie = makeFlashes(dir);

    std::mutex mutex;
    std::vector<double> beeps; // when each beep starts to be heard, on the monotonic clock
    double quietSince = -1;
    SoundSource monitor(
        SoundSource::Kind::systemAudio, sound.server(),
        [&](const float* samples, int frames, double time) {
            const std::scoped_lock lock(mutex);
            for (int i = 0; i < frames; ++i) {
                const double level = std::max(std::abs(samples[2 * i]), std::abs(samples[2 * i + 1]));
                const double at = time + static_cast<double>(i) / 48000;
                if (level > 0.1) {
                    if (quietSince >= 0 && at - quietSince > 0.3) {
                        beeps.push_back(at);
                    }
                    quietSince = -1;
                } else if (quietSince < 0) {
                    quietSince = at;
                }
            }
        },
        [](const std::string&) {});
    monitor.start();

    PreviewPlayer player(sound.server());
    std::atomic<int> ended = 0;
    PlayerCallbacks callbacks;
    callbacks.ended = [&] { ++ended; };
    player.open(PlayerItem::ofMovie(movie, 6, 1), callbacks);
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(player.soundCardClock());

    std::vector<double> flashes; // when each white picture is first handed out
    std::atomic<bool> watching = true;
    std::thread watcher([&] {
        std::shared_ptr<const BgraImage> shown;
        bool white = false;
        while (watching) {
            const auto frame = player.videoOutput().frameAt(player.currentTime());
            if (frame && frame->image != shown) {
                shown = frame->image;
                const bool nowWhite = shown->row(shown->height / 2)[4 * (shown->width / 2)] > 200;
                if (nowWhite && !white) {
                    flashes.push_back(monotonicSeconds());
                }
                white = nowWhite;
            }
            std::this_thread::sleep_for(1ms);
        }
    });

    // Waits, on the player's clock, until `time`; false when it doesn't get there in ten seconds.
    auto reach = [&](double time) {
        for (int i = 0; i < 10000 && player.currentTime() < time && ended == 0; ++i) {
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
    for (int i = 0; i < 1000 && ended == 0; ++i) {
        std::this_thread::sleep_for(10ms);
    }
    watching = false;
    watcher.join();
    monitor.stop();
    ASSERT_EQ(ended, 1);

    const std::scoped_lock lock(mutex);
    EXPECT_EQ(flashes.size(), 8U);
    for (const double flash : flashes) {
        double nearest = 1e9;
        for (const double beep : beeps) {
            if (std::abs(flash - beep) < std::abs(nearest)) {
                nearest = flash - beep;
            }
        }
        EXPECT_LT(std::abs(nearest), 0.020)
            << "a flash handed out " << nearest * 1000 << " ms after its beep";
    }
}
