#include "playback/PulseSoundOutput.h"

#include "media/AudioFile.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <vector>

namespace marlowick {

namespace {

constexpr pa_sample_spec sampleSpec{PA_SAMPLE_FLOAT32LE, AudioFile::sampleRate, 1};
// The sound queued ahead of the speaker: short, so that a pause or a seek is heard at once, and long
// enough that a busy machine doesn't starve the stream.
constexpr double targetLatency = 0.05;

// Unlocks the loop at the end of a scope.
class LoopLock {
public:
    explicit LoopLock(pa_threaded_mainloop* loop)
        : m_loop(loop) {
        pa_threaded_mainloop_lock(m_loop);
    }
    ~LoopLock() { pa_threaded_mainloop_unlock(m_loop); }
    LoopLock(const LoopLock&) = delete;
    LoopLock& operator=(const LoopLock&) = delete;

private:
    pa_threaded_mainloop* m_loop;
};

void signalLoop(void* loop) {
    pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(loop), 0);
}

} // namespace

std::unique_ptr<PulseSoundOutput> PulseSoundOutput::open(const std::string& server,
                                                         std::unique_ptr<SoundMixer> mixer) {
    std::unique_ptr<PulseSoundOutput> output(new PulseSoundOutput(std::move(mixer)));
    if (!output->connect(server)) {
        return nullptr;
    }
    return output;
}

PulseSoundOutput::PulseSoundOutput(std::unique_ptr<SoundMixer> mixer)
    : m_mixer(std::move(mixer)) {}

PulseSoundOutput::~PulseSoundOutput() {
    if (m_loop == nullptr) {
        return;
    }
    pa_threaded_mainloop_stop(m_loop);
    if (m_stream != nullptr) {
        pa_stream_disconnect(m_stream);
        pa_stream_unref(m_stream);
    }
    if (m_context != nullptr) {
        pa_context_disconnect(m_context);
        pa_context_unref(m_context);
    }
    pa_threaded_mainloop_free(m_loop);
}

bool PulseSoundOutput::connect(const std::string& server) {
    m_loop = pa_threaded_mainloop_new();
    if (m_loop == nullptr) {
        return false;
    }
    m_context = pa_context_new(pa_threaded_mainloop_get_api(m_loop), "Marlowick");
    if (m_context == nullptr) {
        return false;
    }
    pa_context_set_state_callback(
        m_context, [](pa_context*, void* loop) { signalLoop(loop); }, m_loop);
    if (pa_context_connect(m_context, server.empty() ? nullptr : server.c_str(), PA_CONTEXT_NOAUTOSPAWN,
                           nullptr) < 0 ||
        pa_threaded_mainloop_start(m_loop) < 0) {
        return false;
    }
    const LoopLock lock(m_loop);
    for (;;) {
        const pa_context_state_t state = pa_context_get_state(m_context);
        if (state == PA_CONTEXT_READY) {
            break;
        }
        if (!PA_CONTEXT_IS_GOOD(state)) {
            return false;
        }
        pa_threaded_mainloop_wait(m_loop);
    }

    m_stream = pa_stream_new(m_context, "Preview", &sampleSpec, nullptr);
    if (m_stream == nullptr) {
        return false;
    }
    pa_stream_set_state_callback(
        m_stream, [](pa_stream*, void* loop) { signalLoop(loop); }, m_loop);
    pa_stream_set_write_callback(
        m_stream,
        [](pa_stream*, std::size_t bytes, void* self) { static_cast<PulseSoundOutput*>(self)->write(bytes); },
        this);
    pa_buffer_attr buffering{};
    buffering.maxlength = static_cast<std::uint32_t>(-1);
    buffering.tlength = static_cast<std::uint32_t>(
        pa_usec_to_bytes(static_cast<pa_usec_t>(targetLatency * 1e6), &sampleSpec));
    buffering.prebuf = static_cast<std::uint32_t>(-1);
    buffering.minreq = static_cast<std::uint32_t>(-1);
    buffering.fragsize = static_cast<std::uint32_t>(-1);
    const auto flags =
        static_cast<pa_stream_flags_t>(PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE |
                                       PA_STREAM_ADJUST_LATENCY | PA_STREAM_START_CORKED);
    if (pa_stream_connect_playback(m_stream, nullptr, &buffering, flags, nullptr, nullptr) < 0) {
        return false;
    }
    for (;;) {
        const pa_stream_state_t state = pa_stream_get_state(m_stream);
        if (state == PA_STREAM_READY) {
            // A stream started corked still runs its clock until it is corked by name: cork it, and start
            // the clock at 0 as a seek does.
            break;
        }
        if (!PA_STREAM_IS_GOOD(state)) {
            return false;
        }
        pa_threaded_mainloop_wait(m_loop);
    }
    seekLocked(0);
    return true;
}

void PulseSoundOutput::write(std::size_t bytes) {
    // On the loop's thread, its lock held.
    if (m_seeking) {
        return;
    }
    void* data = nullptr;
    std::size_t size = bytes;
    if (pa_stream_begin_write(m_stream, &data, &size) < 0 || data == nullptr) {
        return;
    }
    size -= size % sizeof(float);
    m_mixer->read(std::span<float>(static_cast<float*>(data), size / sizeof(float)));
    pa_stream_write(m_stream, data, size, nullptr, 0, PA_SEEK_RELATIVE);
}

void PulseSoundOutput::await(pa_operation* operation) {
    if (operation == nullptr) {
        return;
    }
    while (pa_operation_get_state(operation) == PA_OPERATION_RUNNING) {
        pa_threaded_mainloop_wait(m_loop);
    }
    pa_operation_unref(operation);
}

void PulseSoundOutput::cork(bool corked) {
    if (corked && !m_corked) {
        positionLocked(); // where the clock stops
    }
    m_corked = corked;
    await(pa_stream_cork(
        m_stream, corked ? 1 : 0, [](pa_stream*, int, void* loop) { signalLoop(loop); }, m_loop));
    // The stream's time is interpolated from the latest timing the server sent: one from before the cork
    // or uncork would run the clock on (or hold it) for as long as that timing is old. Nobody reads the
    // clock before the fresh one is in, as that takes the loop's lock.
    await(pa_stream_update_timing_info(
        m_stream, [](pa_stream*, int, void* loop) { signalLoop(loop); }, m_loop));
}

void PulseSoundOutput::seek(double time) {
    const LoopLock lock(m_loop);
    seekLocked(time);
}

void PulseSoundOutput::seekLocked(double time) {
    // The waits below let the loop run: nothing is written until the mixer is at the new time.
    m_seeking = true;
    cork(true);
    await(pa_stream_flush(
        m_stream, [](pa_stream*, int, void* loop) { signalLoop(loop); }, m_loop));
    m_mixer->seek(time);
    // The first sample written from now on lands at the stream's write index, and is heard when what has
    // been heard reaches it.
    await(pa_stream_update_timing_info(
        m_stream, [](pa_stream*, int, void* loop) { signalLoop(loop); }, m_loop));
    const pa_timing_info* timing = pa_stream_get_timing_info(m_stream);
    m_anchor =
        timing != nullptr && !timing->write_index_corrupt
            ? static_cast<double>(timing->write_index) / static_cast<double>(pa_bytes_per_second(&sampleSpec))
            : 0;
    m_base = time;
    m_latest = time;
    m_seeking = false;
    // Fills the emptied stream at once rather than waiting for the server to ask.
    if (const std::size_t room = pa_stream_writable_size(m_stream);
        room != static_cast<std::size_t>(-1) && room > 0) {
        write(room);
    }
    if (m_playing) {
        cork(false);
    }
}

void PulseSoundOutput::play() {
    const LoopLock lock(m_loop);
    m_playing = true;
    cork(false);
}

void PulseSoundOutput::pause() {
    const LoopLock lock(m_loop);
    m_playing = false;
    cork(true);
}

double PulseSoundOutput::position() const {
    const LoopLock lock(m_loop);
    return positionLocked();
}

double PulseSoundOutput::positionLocked() const {
    if (m_corked) {
        // Held where it stopped: the server's timing of a corked stream still moves as the sink gives back
        // what it held.
        return m_latest;
    }
    // What has been heard, from the latest timing the server sent: what it has read of the stream, less
    // what the sink holds ahead of the speaker, plus the time since, while it plays. The library's own
    // interpolated time also runs while a freshly made stream is corked, which would put the clock ahead.
    const pa_timing_info* timing = pa_stream_get_timing_info(m_stream);
    if (timing == nullptr || timing->read_index_corrupt) {
        return m_latest;
    }
    const double bytesPerSecond = static_cast<double>(pa_bytes_per_second(&sampleSpec));
    double heard = static_cast<double>(timing->read_index) / bytesPerSecond -
                   static_cast<double>(timing->sink_usec) / 1e6;
    if (timing->playing != 0) {
        heard += static_cast<double>(timing->transport_usec + pa_timeval_age(&timing->timestamp)) / 1e6;
    }
    // Nothing is heard that wasn't written: a writer held up past the buffer lets the stream run dry, and
    // the server's last report, aged, would carry the clock on ahead of the sound.
    if (!timing->write_index_corrupt) {
        heard = std::min(heard, static_cast<double>(timing->write_index) / bytesPerSecond);
    }
    // Each timing the server sends corrects the estimate a little: the clock never goes back for it.
    m_latest = std::max(m_latest, m_base + std::max(0.0, heard - m_anchor));
    return m_latest;
}

} // namespace marlowick
