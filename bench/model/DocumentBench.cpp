// Open and save of a package holding an hour of pointer telemetry (432,000 events at 120 Hz), beside the
// baselines a plainer implementation would pay: parsing the events with nlohmann::json, and copying the
// package's files instead of linking them.

#include "model/MarlowickDocument.h"
#include "model/TelemetryFile.h"

#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <sys/stat.h>

using namespace marlowick;
namespace fs = std::filesystem;

namespace {

constexpr std::size_t hourOfEvents = 432'000;

std::vector<InputEvent> hourOfTelemetry() {
    std::vector<InputEvent> events;
    events.reserve(hourOfEvents);
    for (std::size_t i = 0; i < hourOfEvents; ++i) {
        const double t = static_cast<double>(i) / 120.0;
        InputEvent::Kind kind = InputEvent::Kind::move;
        if (i % 600 == 300) {
            kind = InputEvent::Kind::down;
        } else if (i % 600 == 310) {
            kind = InputEvent::Kind::up;
        } else if (i % 600 > 300 && i % 600 < 310) {
            kind = InputEvent::Kind::drag;
        } else if (i % 2400 == 7) {
            kind = InputEvent::Kind::keyPress;
        }
        events.push_back(
            {t, kind, {960 + 700 * std::sin(t * 0.7) + 0.37, 540 + 400 * std::cos(t * 0.45) + 0.61}});
    }
    return events;
}

ino_t inodeOf(const fs::path& path) {
    struct stat info {};
    ::stat(path.c_str(), &info);
    return info.st_ino;
}

// One package on disk for the whole run, under $MARLOWICK_BENCH_DIR or the temporary directory.
struct Setup {
    fs::path root;
    fs::path package;
    fs::path movie;

    Setup() {
        const char* base = std::getenv("MARLOWICK_BENCH_DIR");
        root = fs::path(base ? base : fs::temp_directory_path().c_str()) / "marlowick-bench";
        fs::remove_all(root);
        fs::create_directories(root);
        movie = root / "take-bench.mov";
        std::ofstream(movie, std::ios::binary) << std::string(64 << 20, 'm'); // stands in for the movie
        package = root / "Hour.marlowick";
        Project p;
        p.id = Uuid::random();
        p.name = "Hour";
        p.source.mediaURL = Url::fileUrl(movie);
        p.source.size = {1920, 1080};
        p.source.frameRate = 60;
        p.source.duration = 3600;
        MarlowickDocument(p, hourOfTelemetry()).write(package);
    }
    ~Setup() { fs::remove_all(root); }
};

Setup& setup() {
    static Setup s;
    return s;
}

void Open(benchmark::State& state) {
    const fs::path package = setup().package;
    for (auto _ : state) {
        MarlowickDocument doc = MarlowickDocument::read(package);
        benchmark::DoNotOptimize(doc.telemetry().data());
    }
    state.counters["events"] = static_cast<double>(MarlowickDocument::read(package).telemetry().size());
    state.counters["eventsMB"] = static_cast<double>(fs::file_size(package / "Telemetry/events.json")) / 1e6;
}

void SaveChangedTelemetry(benchmark::State& state) {
    MarlowickDocument doc = MarlowickDocument::read(setup().package);
    for (auto _ : state) {
        doc.setTelemetry(doc.telemetry()); // counts as changed: the events are encoded and written
        doc.write(setup().package);
    }
}

void SaveUnchanged(benchmark::State& state) {
    const fs::path package = setup().package;
    const MarlowickDocument doc = MarlowickDocument::read(package);
    const ino_t events = inodeOf(package / "Telemetry/events.json");
    const ino_t media = inodeOf(package / "Media/take-bench.mov");
    for (auto _ : state) {
        doc.write(package);
    }
    // 1 when the save brought the very same files along, moving none of their bytes.
    state.counters["sameEventsInode"] = inodeOf(package / "Telemetry/events.json") == events ? 1 : 0;
    state.counters["sameMovieInode"] = inodeOf(package / "Media/take-bench.mov") == media ? 1 : 0;
}

void Baseline_NlohmannParseEvents(benchmark::State& state) {
    const fs::path events = setup().package / "Telemetry/events.json";
    for (auto _ : state) {
        std::ifstream in(events, std::ios::binary);
        const nlohmann::json json = nlohmann::json::parse(in);
        benchmark::DoNotOptimize(json.size());
    }
}

void Baseline_CopyPackageFiles(benchmark::State& state) {
    const fs::path package = setup().package;
    const fs::path copy = setup().root / "copy";
    for (auto _ : state) {
        fs::remove_all(copy);
        fs::create_directories(copy);
        fs::copy_file(package / "Telemetry/events.json", copy / "events.json");
        fs::copy_file(package / "Media/take-bench.mov", copy / "take-bench.mov");
        ::sync();
    }
}

} // namespace

BENCHMARK(Open)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(SaveChangedTelemetry)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(SaveUnchanged)->Unit(benchmark::kMillisecond)->MinTime(1);
BENCHMARK(Baseline_NlohmannParseEvents)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(Baseline_CopyPackageFiles)->Unit(benchmark::kMillisecond)->MinTime(1);

BENCHMARK_MAIN();
