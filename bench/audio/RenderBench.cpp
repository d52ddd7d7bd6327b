// The whole sound render and the silence search on a generated two-track take, beside the ffmpeg CLI
// doing comparable work on the same file in the same run: a filter graph of high-pass, gate, peaking EQ,
// compressor, sidechain ducking, mix and limiter into AAC (with the encoder's default search, /0, and
// with the fast search our render uses, /1), and `silencedetect`. The take lasts
// $MARLOWICK_BENCH_MINUTES minutes (60 unless set). The render's peak memory is measured in a child
// process of its own.

#include "audio/AudioRenderer.h"
#include "audio/SilenceDetector.h"
#include "media/AudioFile.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <numbers>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace marlowick;
namespace fs = std::filesystem;

namespace {

double minutes() {
    const char* text = std::getenv("MARLOWICK_BENCH_MINUTES");
    return text ? std::atof(text) : 60.0;
}

struct Take {
    fs::path dir;
    fs::path movie;

    Take() {
        const char* base = std::getenv("MARLOWICK_BENCH_DIR");
        dir = fs::path(base ? base : fs::temp_directory_path().c_str()) / "marlowick-render-bench";
        fs::remove_all(dir);
        fs::create_directories(dir);
        const auto n = static_cast<std::size_t>(minutes() * 60 * 48000);
        std::vector<float> voice(n);
        std::vector<float> system(n);
        std::uint32_t noise = 777;
        for (std::size_t i = 0; i < n; ++i) {
            noise = noise * 1664525u + 1013904223u;
            const double hiss = static_cast<double>(noise) / 4294967296.0 - 0.5;
            const double t = static_cast<double>(i) / 48000;
            const bool speaking = std::fmod(t, 4.0) < 2.6; // talk, then a pause
            voice[i] =
                static_cast<float>((speaking ? 0.3 * (0.5 + 0.5 * std::sin(2 * std::numbers::pi * 4 * t)) *
                                                   std::sin(2 * std::numbers::pi * 180 * t)
                                             : 0.0) +
                                   0.003 * hiss);
            system[i] = static_cast<float>(0.15 * std::sin(2 * std::numbers::pi * 440 * t) + 0.03 * hiss);
        }
        AudioFile::writeAac(dir / "system.m4a", system);
        AudioFile::writeAac(dir / "voice.m4a", voice);
        movie = dir / "take.mov";
        const std::string mux = "ffmpeg -v error -y -i '" + (dir / "system.m4a").string() + "' -i '" +
                                (dir / "voice.m4a").string() + "' -map 0:a -map 1:a -c copy '" +
                                movie.string() + "'";
        if (std::system(mux.c_str()) != 0) {
            throw std::runtime_error("ffmpeg could not put the take together");
        }
    }
    ~Take() { fs::remove_all(dir); }
};

const Take& take() {
    static Take t;
    return t;
}

void counters(benchmark::State& state) {
    state.counters["realTime"] = benchmark::Counter(minutes() * 60 * static_cast<double>(state.iterations()),
                                                    benchmark::Counter::kIsRate);
}

void Render(benchmark::State& state) {
    const Take& t = take();
    for (auto _ : state) {
        AudioRenderer{}.render(t.movie, AudioSettings{}, {}, std::nullopt, t.dir / "mix.m4a");
    }
    counters(state);
    // The same render again in a child process, for its peak memory alone.
    const pid_t child = ::fork();
    if (child == 0) {
        AudioRenderer{}.render(t.movie, AudioSettings{}, {}, std::nullopt, t.dir / "mix-child.m4a");
        ::_exit(0);
    }
    int status = 0;
    struct rusage usage {};
    ::wait4(child, &status, 0, &usage);
    state.counters["peakMB"] = static_cast<double>(usage.ru_maxrss) / 1024;
}

void Ffmpeg_FilterGraph(benchmark::State& state) {
    const Take& t = take();
    const std::string command =
        "ffmpeg -v error -y -i '" + t.movie.string() +
        "' -filter_complex \"[0:a:1]aresample=48000,aformat=channel_layouts=mono,highpass=f=85,"
        "agate=threshold=0.01:ratio=4,equalizer=f=3000:t=q:w=0.9:g=2.4,acompressor=threshold=-16dB:ratio=3:"
        "makeup=2.4,asplit=2[v1][v2];[0:a:0]aresample=48000,aformat=channel_layouts=mono[s];[s][v1]"
        "sidechaincompress=threshold=0.02:ratio=8[d];[d][v2]amix=inputs=2:normalize=0,alimiter=limit=0.89["
        "out]\""
        " -map \"[out]\" -c:a aac -b:a 192k " +
        (state.range(0) ? "-aac_coder fast " : "") + "'" + (t.dir / "ffmpeg.m4a").string() + "'";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("ffmpeg failed");
        }
    }
    counters(state);
}

void Silence(benchmark::State& state) {
    const Take& t = take();
    SilenceTrim settings;
    settings.isEnabled = true;
    for (auto _ : state) {
        benchmark::DoNotOptimize(SilenceDetector{}.detect(t.movie, settings));
    }
    counters(state);
}

void Ffmpeg_SilenceDetect(benchmark::State& state) {
    const Take& t = take();
    const std::string command = "ffmpeg -v error -y -i '" + t.movie.string() +
                                "' -map 0:a:1 -af silencedetect=n=-30dB:d=0.7 -f null -";
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("ffmpeg failed");
        }
    }
    counters(state);
}

} // namespace

BENCHMARK(Render)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(Ffmpeg_FilterGraph)->Arg(0)->Arg(1)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(Silence)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(Ffmpeg_SilenceDetect)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();

BENCHMARK_MAIN();
