// The voice chain and the ducking of an hour of two-track audio (172.8 million samples a track), on
// buffers in memory: the high-pass, the expander, the presence lift and the compressor on the voice,
// then the ducking gains applied to the system track. The counter `realTime` is how many times faster
// than the sound plays. The baseline only copies the two tracks.

#include "audio/AudioRenderer.h"
#include "audio/DSP.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <numbers>

using namespace marlowick;

namespace {

constexpr double rate = 48000;
constexpr double seconds = 3600;

struct Tracks {
    std::vector<float> voice;
    std::vector<float> system;
};

// Speech-like bursts over a faint hiss for the voice, a steady bed of tones and noise for the system.
const Tracks& hour() {
    static const Tracks tracks = [] {
        const auto n = static_cast<std::size_t>(rate * seconds);
        Tracks t{std::vector<float>(n), std::vector<float>(n)};
        std::uint32_t noise = 12345;
        auto hiss = [&noise] {
            noise = noise * 1664525u + 1013904223u;
            return static_cast<double>(noise) / 4294967296.0 - 0.5;
        };
        for (std::size_t i = 0; i < n; ++i) {
            const double time = static_cast<double>(i) / rate;
            const bool speaking = std::fmod(time, 4.0) < 2.6;
            const double syllable = 0.5 + 0.5 * std::sin(2 * std::numbers::pi * 4 * time);
            t.voice[i] = static_cast<float>(
                (speaking ? 0.3 * syllable * std::sin(2 * std::numbers::pi * 180 * time) : 0.0) +
                0.004 * hiss());
            t.system[i] =
                static_cast<float>(0.2 * std::sin(2 * std::numbers::pi * 440 * time) + 0.05 * hiss());
        }
        return t;
    }();
    return tracks;
}

void VoiceChainAndDucking(benchmark::State& state) {
    const Tracks& source = hour();
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<float> voice = source.voice;
        std::vector<float> system = source.system;
        state.ResumeTiming();
        AudioRenderer::enhance(voice, AudioSettings{}); // high-pass, expander, presence, compressor
        const std::vector<float> gains = DSP::duckingGains(voice, 0.6, rate);
        for (std::size_t i = 0; i < system.size(); ++i) {
            system[i] *= gains[i];
        }
        benchmark::DoNotOptimize(system.data());
    }
    state.counters["realTime"] =
        benchmark::Counter(seconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void Baseline_CopyTracks(benchmark::State& state) {
    const Tracks& source = hour();
    for (auto _ : state) {
        std::vector<float> voice = source.voice;
        std::vector<float> system = source.system;
        benchmark::DoNotOptimize(voice.data());
        benchmark::DoNotOptimize(system.data());
    }
}

} // namespace

BENCHMARK(VoiceChainAndDucking)->Unit(benchmark::kSecond)->Iterations(1);
BENCHMARK(Baseline_CopyTracks)->Unit(benchmark::kMillisecond)->Iterations(2);

BENCHMARK_MAIN();
