#include "playback/PreviewPlayer.h"
#include "media/VideoDecoder.h"
#include "support/Prerequisites.h"
#include "support/SoundServer.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace marlowick;
using namespace marlowick::test;
using namespace std::chrono_literals;

namespace {

// No server answers here: the player runs on its silent clock.
const std::string noServer = "unix:/nonexistent/pulse/native";

// Five seconds of a moving test picture at 30 frames a second, a keyframe each second, with a tone.
std::filesystem::path makeMovie(const TempDir& dir) {
    const auto movie = dir / "take.mp4";
    const std::string command =
        "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x120:r=30:d=5 -f lavfi -i sine=f=440:r=48000:d=5 "
        "-c:v libx264 -g 30 -pix_fmt yuv420p -c:a aac -shortest '" +
        movie.string() + "'";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("ffmpeg could not make the test movie");
    }
    return movie;
}

bool samePicture(const BgraImage& a, const BgraImage& b) {
    if (a.width != b.width || a.height != b.height) {
        return false;
    }
    for (int y = 0; y < a.height; ++y) {
        if (std::memcmp(a.row(y), b.row(y), static_cast<std::size_t>(a.width) * 4) != 0) {
            return false;
        }
    }
    return true;
}

// Asks for the picture at `time` until one comes; none after five seconds.
std::optional<PlayerFrame> awaitFrame(VideoOutput& video, double time) {
    for (int i = 0; i < 2500; ++i) {
        if (auto frame = video.frameAt(time)) {
            return frame;
        }
        std::this_thread::sleep_for(2ms);
    }
    return std::nullopt;
}

// What the callbacks heard, from the player's thread.
struct Heard {
    std::mutex mutex;
    std::vector<double> times;
    // For each time, the seeks it reflects.
    std::vector<std::uint64_t> seeks;
    std::atomic<int> ends = 0;

    PlayerCallbacks callbacks() {
        PlayerCallbacks c;
        c.time = [this](double t, std::uint64_t seeksDone) {
            const std::scoped_lock lock(mutex);
            times.push_back(t);
            seeks.push_back(seeksDone);
        };
        c.ended = [this] { ++ends; };
        return c;
    }
    double last() {
        const std::scoped_lock lock(mutex);
        return times.empty() ? -1 : times.back();
    }
    std::size_t count() {
        const std::scoped_lock lock(mutex);
        return times.size();
    }
    bool awaitEnd() {
        for (int i = 0; i < 1000 && ends == 0; ++i) {
            std::this_thread::sleep_for(10ms);
        }
        return ends > 0;
    }
};

// Seconds since it was made.
class Stopwatch {
public:
    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

// Whether a clock read as `time` can have run from `from` since `since` started: no earlier, and no further
// than the time since, give or take a step forward the sound card's timing may make when it corrects it.
::testing::AssertionResult ranFrom(double time, double from, const Stopwatch& since) {
    constexpr double correction = 0.02;
    const double elapsed = since.seconds();
    if (time >= from && time <= from + elapsed + correction) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "the clock reads " << time << ", having run from " << from
                                         << " for at most " << elapsed << " s";
}

// Waits until the player's clock reaches `time`; false when it doesn't within five seconds.
bool reach(const Player& player, double time) {
    for (int i = 0; i < 5000 && player.currentTime() < time; ++i) {
        std::this_thread::sleep_for(1ms);
    }
    return player.currentTime() >= time;
}

} // namespace

// After seeks to random times the first picture handed out is the one the movie shows there, whole; of
// seeks asked in a row only the last one counts.
TEST(PreviewPlayer, SeeksExactly) {
    TempDir dir;
    const auto movie = makeMovie(dir);
    VideoDecoder reference(movie);
    PreviewPlayer player(noServer);
    Heard heard;
    player.open(PlayerItem::ofMovie(movie, 5, 1), heard.callbacks());

    std::mt19937 random(11);
    std::uniform_real_distribution<double> anywhere(0, 5);
    std::vector<double> asked;
    for (int i = 0; i < 12; ++i) {
        const double t = anywhere(random);
        asked.push_back(t);
        player.seek(t);
        EXPECT_DOUBLE_EQ(player.currentTime(), t);
        const auto frame = awaitFrame(player.videoOutput(), t);
        ASSERT_TRUE(frame) << "no picture after a seek to " << t;
        EXPECT_LE(frame->time, t + 1e-6);
        EXPECT_GT(frame->endTime, t);
        EXPECT_TRUE(frame->change.whole);
        const auto expected = reference.frameAt(t);
        ASSERT_TRUE(expected);
        EXPECT_TRUE(samePicture(*frame->image, expected->image)) << "at " << t;
    }

    for (const double t : {0.4, 3.3, 1.7, 4.2}) {
        asked.push_back(t);
        player.seek(t);
    }
    const auto frame = awaitFrame(player.videoOutput(), 4.2);
    ASSERT_TRUE(frame);
    EXPECT_LE(frame->time, 4.2);
    EXPECT_GT(frame->endTime, 4.2);
    EXPECT_TRUE(samePicture(*frame->image, reference.frameAt(4.2)->image));
    for (int i = 0; i < 500 && heard.last() != 4.2; ++i) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(heard.last(), 4.2);
    EXPECT_DOUBLE_EQ(player.currentTime(), 4.2);

    // Paused, each time heard is where a seek put the clock, and says which seek that was; the seeks
    // passed over while the player was busy go unreported.
    {
        const std::scoped_lock lock(heard.mutex);
        ASSERT_EQ(heard.seeks.back(), asked.size());
        for (std::size_t i = 0; i < heard.times.size(); ++i) {
            if (heard.seeks[i] > 0) {
                EXPECT_EQ(heard.times[i], asked[heard.seeks[i] - 1]) << "report " << i;
            }
            if (i > 0) {
                EXPECT_GE(heard.seeks[i], heard.seeks[i - 1]);
            }
        }
    }

    // Opened again after a seek it hasn't carried out, the player drops it: its time is 0, and counts
    // every seek asked before as done, so that its owner doesn't wait for one that won't come.
    player.seek(2.5);
    Heard again;
    player.open(PlayerItem::ofMovie(movie, 5, 1), again.callbacks());
    for (int i = 0; i < 500 && again.last() < 0; ++i) {
        std::this_thread::sleep_for(10ms);
    }
    const std::scoped_lock lock(again.mutex);
    ASSERT_EQ(again.times.size(), 1u);
    EXPECT_EQ(again.times.front(), 0);
    EXPECT_EQ(again.seeks.front(), asked.size() + 1);
}

// Played through a composition with two cuts (one decoded across, one sought over), every picture handed
// out is the source's picture at the time the composition maps it to, none from inside a cut; the changed
// areas each carries, laid over the one before, rebuild it. Play ends at the end, paused there.
TEST(PreviewPlayer, PlaysThroughCutsAndStopsAtTheEnd) {
    TempDir dir;
    const auto movie = makeMovie(dir);
    VideoDecoder reference(movie);
    PlayerItem item;
    item.movie = movie;
    item.composition.segments = {{0, 1.0, 0}, {1.6, 0.8, 1.0}, {3.6, 1.0, 1.8}};
    item.composition.videoTracks = 1;
    item.composition.audio = {{movie, 0, false}};
    PreviewPlayer player(noServer);
    Heard heard;
    player.open(item, heard.callbacks());
    player.play();

    std::vector<PlayerFrame> handed;
    BgraImage canvas;
    int rebuiltWrong = 0;
    // Asks for the picture at the clock's time as a canvas would, and lays what changed over the canvas.
    const auto look = [&] {
        const double now = player.currentTime();
        if (auto frame = player.videoOutput().frameAt(now);
            frame && (handed.empty() || frame->image != handed.back().image)) {
            EXPECT_LE(frame->time, now + 1e-6);
            if (frame->change.whole) {
                canvas = *frame->image;
            } else {
                for (const PixelRect& area : frame->change.areas) {
                    for (int y = area.y; y < area.bottom(); ++y) {
                        std::memcpy(canvas.row(y) + area.x * 4, frame->image->row(y) + area.x * 4,
                                    static_cast<std::size_t>(area.width) * 4);
                    }
                }
            }
            rebuiltWrong += samePicture(canvas, *frame->image) ? 0 : 1;
            handed.push_back(std::move(*frame));
        }
    };
    while (heard.ends == 0) {
        look();
        std::this_thread::sleep_for(2ms);
        ASSERT_LT(handed.size(), 1000U);
    }
    // The last picture lasts to the end, where the clock stays: it is handed out there, whether or not this
    // thread got to look before play ended.
    for (int i = 0; i < 2500 && (handed.empty() || handed.back().endTime < 2.8 - 1e-9); ++i) {
        look();
        std::this_thread::sleep_for(2ms);
    }
    EXPECT_EQ(rebuiltWrong, 0);
    EXPECT_EQ(heard.ends, 1);
    EXPECT_DOUBLE_EQ(player.currentTime(), 2.8);
    EXPECT_DOUBLE_EQ(heard.last(), 2.8);
    std::this_thread::sleep_for(100ms);
    EXPECT_DOUBLE_EQ(player.currentTime(), 2.8);

    // About 84 pictures at 30 a second; most are seen, and some from each segment.
    EXPECT_GT(handed.size(), 40U);
    int perSegment[3] = {0, 0, 0};
    for (const PlayerFrame& frame : handed) {
        std::size_t s = 0;
        while (s + 1 < item.composition.segments.size() &&
               frame.time >= item.composition.segments[s + 1].compositionStart - 1e-6) {
            ++s;
        }
        const auto& segment = item.composition.segments[s];
        ++perSegment[s];
        EXPECT_LE(frame.endTime, segment.compositionStart + segment.duration + 1e-6);
        const double source = segment.sourceStart + (frame.time - segment.compositionStart);
        const auto expected = reference.frameAt(source);
        ASSERT_TRUE(expected);
        EXPECT_TRUE(samePicture(*frame.image, expected->image))
            << "the picture at " << frame.time << " is not the source's at " << source;
    }
    EXPECT_GT(perSegment[0], 5);
    EXPECT_GT(perSegment[1], 5);
    EXPECT_GT(perSegment[2], 5);
    EXPECT_DOUBLE_EQ(handed.back().endTime, 2.8);
}

// Pause holds the clock and play goes on from there; without a sound server, or with one, the clock runs.
// Commands are carried out on the player's thread, a moment later on a busy machine: a clock read after one
// is bounded by the time since, and a paused clock is read once the player has reported the pause.
TEST(PreviewPlayer, PauseHoldsTheClockWithOrWithoutSound) {
    TempDir dir;
    const auto movie = makeMovie(dir);
    const SoundServer sound;
    MARLOWICK_REQUIRE(pulseAudio(sound));

    for (const bool soundCard : {false, true}) {
        SCOPED_TRACE(soundCard ? "through the sound server" : "with no sound server");
        PreviewPlayer player(soundCard ? sound.server() : noServer);
        Heard heard;
        // Time is reported as play starts and then once a second, so that the report of a pause stands out
        // among few others.
        PlayerCallbacks callbacks = heard.callbacks();
        callbacks.interval = 1;
        player.open(PlayerItem::ofMovie(movie, 5, 1), callbacks);
        player.seek(1);
        player.play();
        // A sound server may take a moment to start a stream: the clock is waited for, not timed.
        ASSERT_TRUE(reach(player, 1.2));
        EXPECT_EQ(player.soundCardClock(), soundCard);
        const Stopwatch sincePlaying;
        const double playing = player.currentTime();
        const std::size_t reportsBefore = heard.count();
        player.pause();
        // Paused, the player reports the time where it stopped the clock. (A report of play going on reads
        // behind the clock by then.)
        double held = -1;
        for (int i = 0; i < 1000; ++i) {
            if (heard.count() > reportsBefore && player.currentTime() == heard.last()) {
                held = heard.last();
                break;
            }
            std::this_thread::sleep_for(5ms);
        }
        ASSERT_GE(held, 0) << "no report of the pause";
        EXPECT_TRUE(ranFrom(held, playing, sincePlaying));
        std::this_thread::sleep_for(300ms);
        EXPECT_EQ(player.currentTime(), held);
        EXPECT_EQ(heard.last(), held);

        const Stopwatch sincePlay;
        player.play();
        ASSERT_TRUE(reach(player, held + 0.1));
        EXPECT_TRUE(ranFrom(player.currentTime(), held, sincePlay));

        // A seek while playing goes on from the time sought.
        const Stopwatch sinceSeek;
        player.seek(4.5);
        EXPECT_TRUE(ranFrom(player.currentTime(), 4.5, sinceSeek));
        ASSERT_TRUE(reach(player, 4.6));
        ASSERT_TRUE(heard.awaitEnd());
        EXPECT_EQ(player.currentTime(), 5);
        // Played again from the end, it starts over.
        const Stopwatch sinceReplay;
        player.play();
        EXPECT_TRUE(ranFrom(player.currentTime(), 0, sinceReplay));
        ASSERT_TRUE(reach(player, 0.1));
        EXPECT_TRUE(ranFrom(player.currentTime(), 0, sinceReplay));
    }
}

// An item without sound plays on the silent clock, to its last picture.
TEST(PreviewPlayer, PlaysASilentMovieOnItsOwnClock) {
    TempDir dir;
    const auto movie = makeMovie(dir);
    PreviewPlayer player(noServer);
    Heard heard;
    player.open(PlayerItem::ofMovie(movie, 5, 0), heard.callbacks());
    player.seek(4.7);
    player.play();
    ASSERT_TRUE(heard.awaitEnd());
    EXPECT_FALSE(player.soundCardClock());
    EXPECT_DOUBLE_EQ(player.currentTime(), 5);
    // Nobody asked for pictures while it played: the ones left are decoded as they are asked for, up to
    // the last, which lasts to the end.
    std::optional<PlayerFrame> last;
    for (int i = 0; i < 2500 && !(last && last->endTime == 5); ++i) {
        last = player.videoOutput().frameAt(5);
        std::this_thread::sleep_for(2ms);
    }
    ASSERT_TRUE(last);
    EXPECT_DOUBLE_EQ(last->endTime, 5);
    EXPECT_NEAR(last->time, 4.9667, 1e-3);
}
