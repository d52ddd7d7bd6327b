// Exact-seek latency of the preview player on a 1080p60 H.264 movie with a keyframe each second: the time
// from `seek(t)` until the picture showing at t is handed out, over 100 random times (the same times on
// every side), as the median and the 95th percentile. Beside it, in the same run, the ffmpeg CLI decoding
// the one frame at each time (`ffmpeg -ss T -i take -frames:v 1 -f null -`, the process's start included),
// and our VideoDecoder's frameAt in process. The movie (FFmpeg's testsrc2, which changes everywhere) is
// made by the ffmpeg CLI at the start; $MARLOWICK_BENCH_SECONDS sets its length (20 unless set).
//
// Then the processor time of playing the whole movie with its sound (a tone) in real time, every picture
// fetched as a canvas would and none drawn, beside `ffmpeg -re -i take -map 0 -f null -`, which decodes
// every stream at the same pace and writes nothing: once on that movie, where every pixel changes in every
// frame, and once on a screen recording as people make them (the tool's sample take at 1920x1080 and
// 60 fps, as long), where most frames change in a few places or not at all. ffmpeg runs a second time
// converting every picture to BGRA as well, the player's own work for the canvas.

#include "media/VideoDecoder.h"
#include "playback/PreviewPlayer.h"

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace marlowick;
namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

double seconds() {
    const char* text = std::getenv("MARLOWICK_BENCH_SECONDS");
    return text ? std::atof(text) : 20.0;
}

struct Take {
    fs::path dir;
    fs::path movie;
    std::vector<double> times;

    Take() {
        const char* base = std::getenv("MARLOWICK_BENCH_DIR");
        dir = fs::path(base ? base : fs::temp_directory_path().c_str()) / "marlowick-seek-bench";
        fs::remove_all(dir);
        fs::create_directories(dir);
        movie = dir / "take.mp4";
        const std::string make =
            "ffmpeg -v error -y -f lavfi -i testsrc2=s=1920x1080:r=60:d=" + std::to_string(seconds()) +
            " -f lavfi -i sine=frequency=440:sample_rate=48000 -t " + std::to_string(seconds()) +
            " -c:v libx264 -preset veryfast -g 60 -pix_fmt yuv420p -c:a aac '" + movie.string() + "'";
        if (std::system(make.c_str()) != 0) {
            throw std::runtime_error("ffmpeg could not make the take");
        }
        std::mt19937 random(5);
        std::uniform_real_distribution<double> anywhere(0, seconds() - 0.1);
        for (int i = 0; i < 100; ++i) {
            times.push_back(anywhere(random));
        }
    }
    ~Take() { fs::remove_all(dir); }

    // The sample take's movie, made on first use.
    const fs::path& screen() const {
        if (screenMovie.empty()) {
            const fs::path package = dir / "screen.marlowick";
            const std::string make = std::string("'") + MARLOWICK_CLI + "' sample '" + package.string() +
                                     "' --size 1920x1080 --rate 60 --seconds " + std::to_string(seconds()) +
                                     " >/dev/null 2>&1";
            if (std::system(make.c_str()) != 0) {
                throw std::runtime_error("marlowick could not make the sample take");
            }
            for (const auto& entry : fs::directory_iterator(package / "Media")) {
                screenMovie = entry.path();
            }
        }
        return screenMovie;
    }
    mutable fs::path screenMovie;
};

const Take& take() {
    static Take t;
    return t;
}

// Median and 95th percentile of the latencies, in milliseconds, as the benchmark's counters.
void report(benchmark::State& state, std::vector<double> latencies) {
    std::sort(latencies.begin(), latencies.end());
    state.counters["median_ms"] = latencies[latencies.size() / 2] * 1000;
    state.counters["p95_ms"] = latencies[latencies.size() * 95 / 100] * 1000;
}

void PlayerSeek(benchmark::State& state) {
    const Take& t = take();
    PreviewPlayer player("unix:/nonexistent/pulse/native");
    player.open(PlayerItem::ofMovie(t.movie, seconds(), 0), {});
    std::vector<double> latencies;
    for (auto _ : state) {
        latencies.clear();
        for (const double time : t.times) {
            const auto start = Clock::now();
            player.seek(time);
            while (!player.videoOutput().frameAt(time)) {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
            latencies.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        }
    }
    report(state, latencies);
}
BENCHMARK(PlayerSeek)->Iterations(1)->Unit(benchmark::kSecond);

void DecoderFrameAt(benchmark::State& state) {
    const Take& t = take();
    VideoDecoder decoder(t.movie);
    std::vector<double> latencies;
    for (auto _ : state) {
        latencies.clear();
        for (const double time : t.times) {
            const auto start = Clock::now();
            benchmark::DoNotOptimize(decoder.frameAt(time));
            latencies.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        }
    }
    report(state, latencies);
}
BENCHMARK(DecoderFrameAt)->Iterations(1)->Unit(benchmark::kSecond);

void FfmpegSeek(benchmark::State& state) {
    const Take& t = take();
    std::vector<double> latencies;
    for (auto _ : state) {
        latencies.clear();
        for (const double time : t.times) {
            const std::string command = "ffmpeg -v error -ss " + std::to_string(time) + " -i '" +
                                        t.movie.string() + "' -frames:v 1 -f null -";
            const auto start = Clock::now();
            if (std::system(command.c_str()) != 0) {
                state.SkipWithError("ffmpeg failed");
                return;
            }
            latencies.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        }
    }
    report(state, latencies);
}
BENCHMARK(FfmpegSeek)->Iterations(1)->Unit(benchmark::kSecond);

double processorSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Argument 0: the movie that changes everywhere; 1: the screen recording.
const fs::path& playedMovie(const benchmark::State& state) {
    return state.range(0) == 0 ? take().movie : take().screen();
}

void PlayerPlaying(benchmark::State& state) {
    const fs::path& movie = playedMovie(state);
    long long frames = 0;
    double processor = 0;
    for (auto _ : state) {
        PreviewPlayer player;
        player.open(PlayerItem::ofMovie(movie, seconds(), 1), {});
        const double before = processorSeconds(RUSAGE_SELF);
        player.play();
        const auto give = Clock::now() + std::chrono::duration<double>(seconds() + 10);
        // A canvas's paints: sixty a second, each taking the picture due if there is a new one.
        while (player.currentTime() < seconds() - 0.05 && Clock::now() < give) {
            const double now = player.currentTime();
            if (player.videoOutput().hasNewFrame(now) && player.videoOutput().frameAt(now)) {
                ++frames;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(16667));
        }
        processor = processorSeconds(RUSAGE_SELF) - before;
    }
    state.counters["cpu_s"] = processor;
    state.counters["cpu_per_s"] = processor / seconds();
    state.counters["frames_shown"] = static_cast<double>(frames);
}
BENCHMARK(PlayerPlaying)->Arg(0)->Arg(1)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// Argument 0 or 1 as above; with a second argument of 1, ffmpeg also converts every picture to BGRA, as the
// player does for the canvas, which shows what that conversion alone costs.
void FfmpegRealTime(benchmark::State& state) {
    const fs::path& movie = playedMovie(state);
    const std::string convert = state.range(1) == 1 ? " -pix_fmt bgra" : "";
    double processor = 0;
    for (auto _ : state) {
        const double before = processorSeconds(RUSAGE_CHILDREN);
        const std::string command =
            "ffmpeg -v error -re -i '" + movie.string() + "' -map 0" + convert + " -f null -";
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("ffmpeg failed");
            return;
        }
        processor = processorSeconds(RUSAGE_CHILDREN) - before;
    }
    state.counters["cpu_s"] = processor;
    state.counters["cpu_per_s"] = processor / seconds();
}
BENCHMARK(FfmpegRealTime)
    ->Args({0, 0})
    ->Args({1, 0})
    ->Args({0, 1})
    ->Args({1, 1})
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

} // namespace

BENCHMARK_MAIN();
