// Recording a screen shared through PipeWire, as on a Wayland desktop: a private daemon, the tests'
// synthetic producer at 1920×1080 and 60 fps in a process of its own, and ScreenCastRecorder taking its
// stream into a movie for MARLOWICK_BENCH_SECONDS (60 by default). The producer runs apart so that the
// figures are the recorder's alone.
//
// Usage: marlowick-screencast-bench [--dmabuf] MOVIE [TIMES]
//        marlowick-screencast-bench --node NODE MOVIE
// With --dmabuf the producer hands out its pictures as linear DMA-BUFs (memory files announced as such)
// instead of shared memory that PipeWire allocates. The second form records a node some real desktop
// already shares on the PipeWire daemon of $XDG_RUNTIME_DIR instead (see scripts/try-real-compositor), and
// prints what came of it.
// Prints the CPU seconds (user + system), the share of one core, peak memory, the pictures sent, written
// and dropped. With TIMES, also writes "user system peak-KiB wall" there, as /usr/bin/time -f "%U %S %M %e"
// does, for bench/capture/capture-bench to put beside the X11 capturer's figures.

#include "capture/ScreenCastRecorder.h"
#include "support/PipeWireDaemon.h"
#include "support/SyntheticScreen.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

using namespace marlowick;
using namespace marlowick::test;

namespace {

constexpr int width = 1920;
constexpr int height = 1080;
constexpr int frameRate = 60;

double seconds(const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
}

bool writeAll(int fd, const void* data, std::size_t size) {
    return write(fd, data, size) == static_cast<ssize_t>(size);
}

bool readAll(int fd, void* data, std::size_t size) {
    return read(fd, data, size) == static_cast<ssize_t>(size);
}

// The producer's side, in the child: shares the synthetic screen, tells its node, links it to the node it
// is told, and produces until the parent closes its end; then tells how many pictures it sent.
[[noreturn]] void produce(const PipeWireDaemon& daemon, bool dmaBuf, int in, int out) {
    SyntheticScreen::Options options;
    options.dmaBuf = dmaBuf;
    options.width = width;
    options.height = height;
    options.frameRate = frameRate;
    std::uint32_t consumer = 0;
    std::int64_t sent = 0;
    {
        SyntheticScreen screen(daemon.connect(), options);
        const std::uint32_t node = screen.nodeId();
        if (!writeAll(out, &node, sizeof node) || !readAll(in, &consumer, sizeof consumer)) {
            _exit(1);
        }
        screen.link(consumer);
        char c = 0;
        while (read(in, &c, 1) > 0) {
        }
        screen.stop();
        sent = static_cast<std::int64_t>(screen.sent().size());
    }
    _exit(writeAll(out, &sent, sizeof sent) ? 0 : 1);
}

// Records the node `node` that some other program shares, for `duration` seconds, and prints the stream's
// size, whether the pointer came as metadata, the pictures written and the pointer's positions.
int recordNode(std::uint32_t node, const char* movie, double duration) {
    CaptureConfiguration configuration;
    configuration.outputURL = movie;
    configuration.frameRate = frameRate;
    ScreenCastRecorder::Options options;
    options.minimumFreeBytes = 0;
    options.connected = [](std::uint32_t consumer) { std::printf("our stream: node %u\n", consumer); };
    try {
        ScreenCastRecorder recorder({-1, {}}, node, configuration, options);
        const Size size = recorder.streamSize();
        std::printf("stream: %gx%g, cursor metadata %s, encoder %s\n", size.width, size.height,
                    recorder.hasCursorMetadata() ? "yes" : "no", recorder.sink().encoderName().c_str());
        std::fflush(stdout);
        std::this_thread::sleep_for(std::chrono::duration<double>(duration));
        const std::optional<CaptureError> interruption = recorder.interruption();
        const Recording recording = recorder.stop();
        const CaptureStatistics statistics = recorder.statistics();
        std::printf("pictures: %lld written, %lld dropped in %.2f s of movie (%.1f fps)\n",
                    static_cast<long long>(statistics.framesWritten),
                    static_cast<long long>(statistics.framesDropped), recording.duration,
                    recording.duration > 0
                        ? static_cast<double>(statistics.framesWritten) / recording.duration
                        : 0.0);
        std::printf("pointer positions: %zu", recording.inputEvents.size());
        if (!recording.inputEvents.empty()) {
            const InputEvent& first = recording.inputEvents.front();
            const InputEvent& last = recording.inputEvents.back();
            std::printf(", first (%.0f, %.0f) at %.2f s, last (%.0f, %.0f) at %.2f s", first.location.x,
                        first.location.y, first.time, last.location.x, last.location.y, last.time);
        }
        std::printf("\n");
        if (interruption) {
            std::printf("interrupted: %s\n", interruption->what());
        }
    } catch (const CaptureError& error) {
        std::cerr << "marlowick-screencast-bench: " << error.what() << "\n";
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    const char* variable = std::getenv("MARLOWICK_BENCH_SECONDS");
    if (argc == 4 && std::string(argv[1]) == "--node") {
        return recordNode(static_cast<std::uint32_t>(std::stoul(argv[2])), argv[3],
                          variable != nullptr ? std::atof(variable) : 5.0);
    }
    const bool dmaBuf = argc > 1 && std::string(argv[1]) == "--dmabuf";
    if (dmaBuf) {
        --argc;
        ++argv;
    }
    if (argc < 2) {
        std::cerr << "usage: marlowick-screencast-bench [--dmabuf] MOVIE [TIMES]\n";
        return 2;
    }
    const double duration = variable != nullptr ? std::atof(variable) : 60.0;

    const PipeWireDaemon daemon;
    if (!daemon.up()) {
        std::cerr << "marlowick-screencast-bench: no private PipeWire daemon started (the Debian package "
                     "pipewire)\n";
        return 1;
    }
    int toChild[2];
    int fromChild[2];
    if (pipe(toChild) != 0 || pipe(fromChild) != 0) {
        return 1;
    }
    // Forked before this process starts threads of its own.
    const pid_t producer = fork();
    if (producer == 0) {
        ::close(toChild[1]);
        ::close(fromChild[0]);
        produce(daemon, dmaBuf, toChild[0], fromChild[1]);
    }
    ::close(toChild[0]);
    ::close(fromChild[1]);
    std::uint32_t node = 0;
    if (!readAll(fromChild[0], &node, sizeof node)) {
        std::cerr << "marlowick-screencast-bench: the producer didn't start\n";
        return 1;
    }

    CaptureConfiguration configuration;
    configuration.outputURL = argv[1];
    configuration.frameRate = frameRate;
    ScreenCastRecorder::Options options;
    options.minimumFreeBytes = 0;
    options.connected = [&](std::uint32_t consumer) { writeAll(toChild[1], &consumer, sizeof consumer); };

    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    const auto began = std::chrono::steady_clock::now();
    CaptureStatistics statistics;
    std::string encoder;
    try {
        ScreenCastRecorder recorder({daemon.connect(), {}}, node, configuration, options);
        encoder = recorder.sink().encoderName();
        std::this_thread::sleep_for(std::chrono::duration<double>(duration));
        recorder.stop();
        statistics = recorder.statistics();
        if (const std::optional<CaptureError> interruption = recorder.interruption()) {
            std::cerr << "marlowick-screencast-bench: interrupted: " << interruption->what() << "\n";
        }
    } catch (const CaptureError& error) {
        std::cerr << "marlowick-screencast-bench: " << error.what() << "\n";
        return 1;
    }
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    rusage after{};
    getrusage(RUSAGE_SELF, &after);

    ::close(toChild[1]);
    std::int64_t sent = 0;
    readAll(fromChild[0], &sent, sizeof sent);
    rusage producerUsage{};
    int status = 0;
    wait4(producer, &status, 0, &producerUsage);

    const double user = seconds(after.ru_utime) - seconds(before.ru_utime);
    const double system = seconds(after.ru_stime) - seconds(before.ru_stime);
    std::printf(
        "%gs of a %dx%d screen shared at %d fps through PipeWire in %s, recorded with %s (%u cores)\n",
        duration, width, height, frameRate, dmaBuf ? "linear DMA-BUFs" : "shared memory", encoder.c_str(),
        std::thread::hardware_concurrency());
    std::printf("recorder: %.1f CPU s (%.1f user, %.1f system), %.0f%% of a core, peak %ld MB\n",
                user + system, user, system, 100 * (user + system) / wall, after.ru_maxrss / 1024);
    std::printf("recorder: %.2f CPU ms per picture written\n",
                statistics.framesWritten > 0
                    ? 1000 * (user + system) / static_cast<double>(statistics.framesWritten)
                    : 0.0);
    std::printf("pictures: %lld sent, %lld written, %lld dropped (%lld after the first second)\n",
                static_cast<long long>(sent), static_cast<long long>(statistics.framesWritten),
                static_cast<long long>(statistics.framesDropped),
                static_cast<long long>(statistics.framesDroppedAfterFirstSecond));
    std::printf("producer (not counted above): %.1f CPU s\n",
                seconds(producerUsage.ru_utime) + seconds(producerUsage.ru_stime));
    if (argc > 2) {
        std::ofstream(argv[2]) << user << ' ' << system << ' ' << after.ru_maxrss << ' ' << wall << '\n';
    }
    return 0;
}
