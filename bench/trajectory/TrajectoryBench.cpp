// The director and the cursor sampler on an hour of telemetry: 432,000 events at 120 Hz with clicks,
// drags, key presses and pauses. The baseline copies the events once, the least any pass over them costs.

#include "trajectory/CursorSampler.h"
#include "trajectory/ZoomDirector.h"

#include <benchmark/benchmark.h>

#include <cmath>

using namespace marlowick;
using Kind = InputEvent::Kind;

namespace {

// A session of bursts: 20 s of pointer work with a click every 2 s and a drag every 10 s, then 10 s at
// rest, over and over for an hour.
std::vector<InputEvent> hourOfTelemetry(bool withActions) {
    std::vector<InputEvent> events;
    events.reserve(432'000);
    Point at{960, 540};
    for (int i = 0; i < 432'000; ++i) {
        const double t = i / 120.0;
        const double phase = std::fmod(t, 30.0);
        Kind kind = Kind::move;
        if (phase < 20) {
            at = {960 + 700 * std::sin(t * 0.9), 540 + 400 * std::cos(t * 0.55)};
            const int tick = i % 240;
            if (withActions && tick == 0) {
                kind = Kind::down;
            } else if (withActions && tick == 3) {
                kind = Kind::up;
            } else if (withActions && i % 1200 > 600 && i % 1200 < 700) {
                kind = Kind::drag;
            } else if (withActions && i % 2400 == 1000) {
                kind = Kind::keyPress;
            }
        }
        events.push_back({t, kind, at});
    }
    return events;
}

Recording hourRecording(bool withActions) {
    Recording r;
    r.size = {1920, 1080};
    r.frameRate = 60;
    r.duration = 3600;
    r.inputEvents = hourOfTelemetry(withActions);
    return r;
}

void Director_Clicks(benchmark::State& state) {
    const Recording r = hourRecording(true);
    ZoomDirector director;
    for (auto _ : state) {
        benchmark::DoNotOptimize(director.beatsFor(r));
    }
    state.counters["beats"] = static_cast<double>(director.beatsFor(r).size());
}

void Director_PositionsOnly(benchmark::State& state) {
    const Recording r = hourRecording(false);
    ZoomDirector director;
    for (auto _ : state) {
        benchmark::DoNotOptimize(director.beatsFor(r));
    }
    state.counters["beats"] = static_cast<double>(director.beatsFor(r).size());
}

void CursorSampler_Build(benchmark::State& state) {
    const Recording r = hourRecording(true);
    for (auto _ : state) {
        const CursorSampler sampler(r.inputEvents, r, CursorStyle{});
        benchmark::DoNotOptimize(sampler.positions.data());
    }
    const CursorSampler sampler(r.inputEvents, r, CursorStyle{});
    state.counters["frames"] = static_cast<double>(sampler.positions.size());
    state.counters["idleGaps"] = static_cast<double>(sampler.idleGaps.size());
}

void CursorSampler_FrameAt(benchmark::State& state) {
    const Recording r = hourRecording(true);
    const CursorSampler sampler(r.inputEvents, r, CursorStyle{});
    double t = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(sampler.frameAt(t));
        t = t > 3600 ? 0 : t + 1.0 / 60;
    }
}

void Baseline_CopyEvents(benchmark::State& state) {
    const Recording r = hourRecording(true);
    for (auto _ : state) {
        std::vector<InputEvent> copy = r.inputEvents;
        benchmark::DoNotOptimize(copy.data());
    }
}

} // namespace

BENCHMARK(Director_Clicks)->Unit(benchmark::kMillisecond);
BENCHMARK(Director_PositionsOnly)->Unit(benchmark::kMillisecond);
BENCHMARK(CursorSampler_Build)->Unit(benchmark::kMillisecond);
BENCHMARK(CursorSampler_FrameAt)->Unit(benchmark::kMicrosecond);
BENCHMARK(Baseline_CopyEvents)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
