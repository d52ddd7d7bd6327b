#pragma once

#include <pulse/error.h>
#include <pulse/simple.h>

#include <atomic>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace marlowick::test {

// Plays into one sink of a sound server (as SoundServer's "sysaudio" or "micsink"), silence and now and
// then a beep (40 ms of 1 kHz at half the full scale), keeping a few tens of milliseconds queued, so that a
// beep is heard soon after it is asked for.
class Beeper {
public:
    static constexpr int rate = 48000;

    Beeper(const std::string& server, const char* sink) {
        pa_sample_spec spec{};
        spec.format = PA_SAMPLE_FLOAT32LE;
        spec.rate = rate;
        spec.channels = 1;
        pa_buffer_attr buffering{};
        buffering.maxlength = static_cast<std::uint32_t>(-1);
        buffering.tlength = rate * 30 / 1000 * sizeof(float);
        buffering.prebuf = static_cast<std::uint32_t>(-1);
        buffering.minreq = static_cast<std::uint32_t>(-1);
        buffering.fragsize = static_cast<std::uint32_t>(-1);
        int error = 0;
        m_stream = pa_simple_new(server.c_str(), "Marlowick test", PA_STREAM_PLAYBACK, sink, "beeps", &spec,
                                 nullptr, &buffering, &error);
        if (m_stream == nullptr) {
            throw std::runtime_error(std::string("no playback stream: ") + pa_strerror(error));
        }
        m_playing = std::jthread([this](std::stop_token stop) {
            std::vector<float> piece(rate / 100); // 10 ms
            int beeping = -1;                     // the beep's next sample, or -1 between beeps
            while (!stop.stop_requested()) {
                if (beeping < 0 && m_asked.exchange(false)) {
                    beeping = 0;
                }
                for (std::size_t i = 0; i < piece.size(); ++i) {
                    const bool on = beeping >= 0 && beeping < rate * 40 / 1000;
                    piece[i] =
                        on ? static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 1000 * beeping / rate))
                           : 0.0f;
                    beeping = on ? beeping + 1 : -1;
                }
                if (pa_simple_write(m_stream, piece.data(), piece.size() * sizeof(float), nullptr) < 0) {
                    return;
                }
            }
        });
    }
    ~Beeper() {
        m_playing = {};
        pa_simple_free(m_stream);
    }
    Beeper(const Beeper&) = delete;
    Beeper& operator=(const Beeper&) = delete;

    // From any thread; a beep asked while one plays is played after it.
    void beep() { m_asked = true; }

private:
    pa_simple* m_stream = nullptr;
    std::atomic<bool> m_asked = false;
    std::jthread m_playing;
};

} // namespace marlowick::test
