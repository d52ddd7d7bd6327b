// The export of a 1080p60 screen take beside the ffmpeg CLI transcoding the same movie with the same
// encoder settings and no compositing, in the same run: the machine's limit for decode and encode
// alone. The take is the built-in sample (a synthetic desktop with telemetry), made by the marlowick
// tool at the start; its sound is one track with settings that leave it as it is, so both sides copy
// it. $MARLOWICK_BENCH_SECONDS sets the take's length (60 unless set).
//
// DecodeEncode is the same decode and encode through our own media layer, for machines without the ffmpeg
// CLI. ExportMotion and FfmpegMotion do the same for the worst case, a 15-second movie that changes
// everywhere in every frame (FFmpeg's testsrc2), where working only where frames change gains nothing. /0 is
// the export as it runs; /1 the same with hardware encoders barred, to tell the encoder's share from the
// pipeline's where a GPU is present.

#include "compositor/EglContext.h"
#include "export/Exporter.h"
#include "media/VideoDecoder.h"
#include "media/VideoEncoder.h"
#include "model/MarlowickDocument.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include <sys/resource.h>

using namespace marlowick;
namespace fs = std::filesystem;

namespace {

double seconds() {
    const char* text = std::getenv("MARLOWICK_BENCH_SECONDS");
    return text ? std::atof(text) : 60.0;
}

struct Take {
    fs::path dir;
    fs::path package;
    fs::path movie;

    Take() {
        std::fprintf(stderr, "GL renderer: %s\n", EglContext().renderer());
        const char* base = std::getenv("MARLOWICK_BENCH_DIR");
        dir = fs::path(base ? base : fs::temp_directory_path().c_str()) / "marlowick-export-bench";
        fs::remove_all(dir);
        fs::create_directories(dir);
        package = dir / "take.marlowick";
        const std::string make = std::string("'") + MARLOWICK_CLI + "' sample '" + package.string() +
                                 "' --size 1920x1080 --rate 60 --no-voice --seconds " +
                                 std::to_string(seconds()) + " >/dev/null 2>&1";
        if (std::system(make.c_str()) != 0) {
            throw std::runtime_error("marlowick sample could not make the take");
        }
        MarlowickDocument document = MarlowickDocument::read(package);
        document.project.audio.enhanceVoice = false;
        document.project.audio.ducking = 0;
        document.project.audio.normalize = false;
        document.write(package);
        movie = MarlowickDocument::read(package).project.source.mediaURL.path();
    }
    ~Take() { fs::remove_all(dir); }
};

const Take& take() {
    static Take t;
    return t;
}

constexpr double motionSeconds = 15;

// A movie that changes everywhere in every frame, made by the ffmpeg CLI, and a project of it as a fresh
// recording's (no telemetry, so no zooms).
struct MotionTake {
    fs::path movie;
    Project project;

    MotionTake() {
        movie = take().dir / "motion.mov";
        const std::string make = "ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=60 -t " +
                                 std::to_string(motionSeconds) +
                                 " -c:v libx264 -preset ultrafast -crf 20 -pix_fmt yuv420p '" +
                                 movie.string() + "'";
        if (std::system(make.c_str()) != 0) {
            throw std::runtime_error("ffmpeg could not make the moving take");
        }
        project.source.mediaURL = Url::fileUrl(movie);
        project.source.size = {1920, 1080};
        project.source.frameRate = 60;
        project.source.duration = motionSeconds;
        project.canvas = Canvas::freshRecording();
    }
};

const MotionTake& motionTake() {
    static MotionTake t;
    return t;
}

ExportPreset preset() {
    return {"bench-1080p60",          "1080p60", {1920, 1080}, 60, ExportPreset::Container::mp4,
            ExportPreset::Codec::h264};
}

// CPU seconds (user and system) used so far by this process's threads, or by the children it waited for.
double cpuSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    auto toSeconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
    };
    return toSeconds(usage.ru_utime) + toSeconds(usage.ru_stime);
}

// Frames a second, and the CPU time of all threads (`cpu_s`, per iteration) beside the wall time.
void counters(benchmark::State& state, double cpu, double takeSeconds = seconds()) {
    state.counters["fps"] = benchmark::Counter(takeSeconds * 60 * static_cast<double>(state.iterations()),
                                               benchmark::Counter::kIsRate);
    state.counters["cpu_s"] = cpu / static_cast<double>(state.iterations());
}

void Export(benchmark::State& state) {
    const Take& t = take();
    const MarlowickDocument document = MarlowickDocument::read(t.package);
    if (state.range(0) == 1) {
        setenv("MARLOWICK_SOFTWARE_ENCODER", "1", 1);
    }
    const double cpu = cpuSeconds(RUSAGE_SELF);
    for (auto _ : state) {
        Exporter{}.exportMovie(document.project, document.telemetry(), preset(), t.dir / "export.mp4");
    }
    unsetenv("MARLOWICK_SOFTWARE_ENCODER");
    counters(state, cpuSeconds(RUSAGE_SELF) - cpu);
}
BENCHMARK(Export)->Arg(0)->Arg(1)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1)->Repetitions(2);

// Our media layer alone: decode to BGRA and encode again with the export's settings, no compositing.
// Where the ffmpeg CLI isn't at hand it stands in for it; it does a little more (the BGRA round trip).
void DecodeEncode(benchmark::State& state) {
    const Take& t = take();
    const double cpu = cpuSeconds(RUSAGE_SELF);
    for (auto _ : state) {
        VideoDecoder decoder(t.movie);
        VideoEncoder::Settings settings;
        settings.width = 1920;
        settings.height = 1080;
        settings.frameRate = 60;
        settings.timeScale = decoder.timeScale();
        settings.audio.push_back({t.movie, 0});
        VideoEncoder encoder(t.dir / "plain.mp4", settings);
        BgraImage image;
        while (const auto time = decoder.next(image, [](double) { return true; })) {
            encoder.encode(image.bytes.data(), image.stride, *time);
        }
        encoder.finish();
    }
    counters(state, cpuSeconds(RUSAGE_SELF) - cpu);
}
BENCHMARK(DecodeEncode)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1)->Repetitions(2);

// ffmpeg with the encoder settings the export uses for H.264 at this size.
void ffmpegTranscode(benchmark::State& state, const fs::path& movie, const std::string& maps,
                     double takeSeconds) {
    if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0) {
        state.SkipWithError("no ffmpeg CLI here");
        return;
    }
    const std::string command = "ffmpeg -v error -y -i '" + movie.string() + "' " + maps +
                                " -c:v libx264 -preset veryfast -crf 18 -pix_fmt yuv420p -c:a copy '" +
                                (take().dir / "ffmpeg.mp4").string() + "'";
    const double cpu = cpuSeconds(RUSAGE_CHILDREN);
    for (auto _ : state) {
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("ffmpeg failed");
        }
    }
    counters(state, cpuSeconds(RUSAGE_CHILDREN) - cpu, takeSeconds);
}

void FfmpegTranscode(benchmark::State& state) {
    ffmpegTranscode(state, take().movie, "-map 0:v -map 0:a", seconds());
}
BENCHMARK(FfmpegTranscode)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1)->Repetitions(2);

void ExportMotion(benchmark::State& state) {
    const MotionTake& t = motionTake();
    const double cpu = cpuSeconds(RUSAGE_SELF);
    for (auto _ : state) {
        Exporter{}.exportMovie(t.project, {}, preset(), take().dir / "motion.mp4");
    }
    counters(state, cpuSeconds(RUSAGE_SELF) - cpu, motionSeconds);
}
BENCHMARK(ExportMotion)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1)->Repetitions(2);

void FfmpegMotion(benchmark::State& state) {
    ffmpegTranscode(state, motionTake().movie, "-map 0:v", motionSeconds);
}
BENCHMARK(FfmpegMotion)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1)->Repetitions(2);

} // namespace

BENCHMARK_MAIN();
