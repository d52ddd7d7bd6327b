#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace marlowick {

// One PulseAudio capture stream (PipeWire serves the same protocol): the default sink's monitor for the
// system's sound, or the default source for the microphone. Sound comes as stereo 48 kHz float in pieces
// of about 15 ms (the server's default buffering would hand it over in bursts of two seconds), each
// stamped with the steady-clock time its first sample was captured: arrival time, less the piece's length,
// less the stream's latency where the source is a hardware device. The latency a virtual source reports
// (a sink's monitor, a remap of one) counts sound its sink rendered ahead of time, which arrives early
// rather than late; such sound is stamped on arrival.
//
// The stream is read from the moment it opens, on the source's own thread, and what comes before `start`
// is dropped there. Read only from `start`, the sound the server had buffered since the opening would come
// in one burst, every piece stamped on that late arrival: the track would begin with sound from before the
// take and lag the picture by that much to its end.
//
// A device that goes away during a take is reported once as a warning and reopened every second; the
// take goes on, and the gap is the sink's to fill with silence.
//
// `start` and `stop` from one thread; `deliver` and `warn` are called on the source's own thread,
// `deliver` only between `start` and `stop`.
class SoundSource {
public:
    enum class Kind { systemAudio, microphone };
    using Deliver = std::function<void(const float* samples, int frames, double time)>;
    using Warn = std::function<void(const std::string& message)>;

    // Opens the stream and begins reading it at once, so that it runs before the take starts. `server`
    // as $PULSE_SERVER says it; empty takes the default. Throws CaptureError: microphoneDenied when there
    // is no microphone (a default source that is only a monitor of a sink counts as none) or the server
    // refuses it, captureUnavailable when the system's sound can't be opened.
    SoundSource(Kind kind, std::string server, Deliver deliver, Warn warn);
    ~SoundSource();
    SoundSource(const SoundSource&) = delete;
    SoundSource& operator=(const SoundSource&) = delete;

    // Delivers the sound read from now on.
    void start();
    // Ends the reading for good: nothing is delivered once this returns, and `start` starts nothing again.
    void stop();

    // The source's device name as the server knows it.
    const std::string& device() const { return m_device; }

    // The sound server's sources, apart into microphones and monitors of outputs.
    struct SourceCount {
        int microphones = 0;
        int monitors = 0;
    };
    // Asks the server at `server` (as for the constructor) for its sources, from any thread; none when no
    // server answers.
    static std::optional<SourceCount> countSources(const std::string& server);

private:
    struct Stream;
    void run(std::stop_token stop);

    Kind m_kind;
    std::string m_server;
    std::string m_device;
    bool m_subtractLatency = false; // the source is a hardware device, whose latency is a real delay
    Deliver m_deliver;
    Warn m_warn;
    std::atomic<bool> m_delivering = false; // set by `start`; read by the source's thread
    std::unique_ptr<Stream> m_stream;       // owned by the source's thread while it runs
    std::jthread m_thread;                  // from the opening to `stop`
};

} // namespace marlowick
