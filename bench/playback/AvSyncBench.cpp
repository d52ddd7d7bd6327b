// The preview player's A/V sync, end to end on a private PulseAudio daemon: a movie with a white picture
// and a beep at the start of every second plays into a null sink, and each flash's hand-out (when the
// player's clock passed it) is compared with when its beep was heard on the sink's monitor (see
// tests/support/AvSyncProbe.h). Played from 0.5 s to the end with a pause of 0.4 s half way, twice: once
// undisturbed, and once with this process stopped for 100 to 400 ms about every second (SIGSTOP and SIGCONT
// from a child), as a machine too busy to run the player would keep it waiting. The sound server runs on.
// Prints, for each, the flashes measured and how long after its beep each was handed out (median, least,
// most), against the target of every flash within 20 ms of its beep.
//
//   marlowick-avsync-bench [seconds]     (the movie's length; 20 unless given)

#include "playback/PreviewPlayer.h"
#include "support/AvSyncProbe.h"
#include "support/SoundServer.h"
#include "support/TempDir.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

using namespace marlowick;
using namespace marlowick::test;
using namespace std::chrono_literals;

namespace {

constexpr double target = 0.020;

// A child that stops its parent for a moment every so often, until the parent closes the write end of
// `ends` (a pipe). It ends only between a stop and the next, so that the parent is never left stopped.
pid_t startStalling(const int ends[2]) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        close(ends[1]);
        std::mt19937 random(7);
        std::uniform_int_distribution<int> between(500, 1500);
        std::uniform_int_distribution<int> stalled(100, 400);
        pollfd end{ends[0], POLLIN, 0};
        while (poll(&end, 1, between(random)) == 0) {
            kill(parent, SIGSTOP);
            std::this_thread::sleep_for(std::chrono::milliseconds(stalled(random)));
            kill(parent, SIGCONT);
        }
        _exit(0);
    }
    return child;
}

// Plays the movie once and prints what came of it.
void measure(const SoundServer& sound, const std::filesystem::path& movie, int seconds, bool stalling,
             const char* title) {
    HeardBeeps heard(sound.server());
    PreviewPlayer player(sound.server());
    std::atomic<int> reports = 0;
    std::atomic<int> ended = 0;
    PlayerCallbacks callbacks;
    callbacks.time = [&](double, std::uint64_t) { ++reports; };
    callbacks.ended = [&] { ++ended; };
    player.open(PlayerItem::ofMovie(movie, seconds, 1), callbacks);
    for (int i = 0; i < 1000 && reports == 0; ++i) {
        std::this_thread::sleep_for(10ms);
    }
    if (!player.soundCardClock()) {
        std::printf("%s: the player could not open a sound stream\n", title);
        return;
    }
    FlashWatch watch(player, seconds);
    int pipeEnds[2] = {-1, -1};
    pid_t staller = 0;
    if (stalling && pipe(pipeEnds) == 0) {
        staller = startStalling(pipeEnds);
        close(pipeEnds[0]);
    }
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(2 * seconds + 10);
    const auto wait = [&](auto&& done) {
        while (!done() && ended == 0 && std::chrono::steady_clock::now() < until) {
            std::this_thread::sleep_for(1ms);
        }
    };
    player.seek(0.5);
    player.play();
    wait([&] { return player.currentTime() >= seconds / 2.0 + 0.5; });
    player.pause();
    std::this_thread::sleep_for(400ms);
    player.play();
    wait([] { return false; });
    if (staller > 0) {
        close(pipeEnds[1]);
        waitpid(staller, nullptr, 0);
    }
    watch.stop();
    heard.stop();

    const auto flashes = watch.flashes();
    const auto leads = flashLeads(flashes, heard.onsets(), 0.5);
    std::vector<double> found;
    for (const auto& lead : leads) {
        if (lead) {
            found.push_back(*lead);
        }
    }
    std::sort(found.begin(), found.end());
    const std::size_t expected = static_cast<std::size_t>(seconds) - 1;
    std::printf(
        "%s: %zu of %zu flashes measured, %zu matched with a beep; monitor pieces arrived up to %.0f ms "
        "late\n",
        title, flashes.size(), expected, found.size(), heard.worstArrival() * 1000);
    if (found.empty()) {
        return;
    }
    const double worst = std::max(std::abs(found.front()), std::abs(found.back()));
    std::printf(
        "  handed out after its beep: median %+.1f ms, least %+.1f ms, most %+.1f ms; target ±%.0f ms %s\n",
        found[found.size() / 2] * 1000, found.front() * 1000, found.back() * 1000, target * 1000,
        worst <= target && found.size() == expected ? "met" : "missed");
}

} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const int seconds = argc > 1 ? std::max(4, std::atoi(argv[1])) : 20;
    const TempDir dir;
    const SoundServer sound;
    if (!sound.up()) {
        std::printf("PulseAudio could not be started: install pulseaudio and pulseaudio-utils\n");
        return 1;
    }
    const auto movie = makeFlashMovie(dir, seconds);
    measure(sound, movie, seconds, false, "undisturbed");
    measure(sound, movie, seconds, true, "stopped now and then for 100-400 ms");
    return 0;
}
