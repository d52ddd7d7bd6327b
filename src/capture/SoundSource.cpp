#include "capture/SoundSource.h"

#include "capture/CaptureError.h"
#include "capture/MonotonicClock.h"

#include <pulse/pulseaudio.h>
#include <pulse/simple.h>

#include <chrono>
#include <optional>
#include <vector>

namespace marlowick {

namespace {

constexpr int sampleRate = 48000;
constexpr int channels = 2;
constexpr int pieceFrames = sampleRate * 15 / 1000; // 15 ms

struct SimpleDeleter {
    void operator()(pa_simple* stream) const { pa_simple_free(stream); }
};
using Simple = std::unique_ptr<pa_simple, SimpleDeleter>;

// Opens a record stream from `device`; none and the server's reason in `error` when it can't.
Simple openStream(const std::string& server, const std::string& device, const char* name, int& error) {
    pa_sample_spec spec{};
    spec.format = PA_SAMPLE_FLOAT32LE;
    spec.rate = sampleRate;
    spec.channels = channels;
    pa_buffer_attr buffering{};
    buffering.maxlength = static_cast<std::uint32_t>(-1);
    buffering.tlength = static_cast<std::uint32_t>(-1);
    buffering.prebuf = static_cast<std::uint32_t>(-1);
    buffering.minreq = static_cast<std::uint32_t>(-1);
    buffering.fragsize = pieceFrames * channels * sizeof(float);
    return Simple(pa_simple_new(server.empty() ? nullptr : server.c_str(), "Marlowick", PA_STREAM_RECORD,
                                device.c_str(), name, &spec, nullptr, &buffering, &error));
}

struct MainloopDeleter {
    void operator()(pa_mainloop* loop) const { pa_mainloop_free(loop); }
};
struct ContextDeleter {
    void operator()(pa_context* context) const {
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
};

// Asks the server one question at a time on a private loop; each answer is awaited before the next.
class Introspection {
public:
    explicit Introspection(const std::string& server) {
        m_context.reset(pa_context_new(pa_mainloop_get_api(m_loop.get()), "Marlowick"));
        if (!m_context || pa_context_connect(m_context.get(), server.empty() ? nullptr : server.c_str(),
                                             PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
            m_context.reset();
            return;
        }
        for (;;) {
            const pa_context_state_t state = pa_context_get_state(m_context.get());
            if (state == PA_CONTEXT_READY) {
                return;
            }
            if (!PA_CONTEXT_IS_GOOD(state) || pa_mainloop_iterate(m_loop.get(), 1, nullptr) < 0) {
                m_context.reset();
                return;
            }
        }
    }
    bool connected() const { return m_context != nullptr; }

    std::optional<std::string> defaultSource() {
        struct Answer {
            bool done = false;
            std::string name;
        } answer;
        wait(pa_context_get_server_info(
                 m_context.get(),
                 [](pa_context*, const pa_server_info* info, void* data) {
                     auto* a = static_cast<Answer*>(data);
                     if (info != nullptr && info->default_source_name != nullptr) {
                         a->name = info->default_source_name;
                     }
                     a->done = true;
                 },
                 &answer),
             answer.done);
        return answer.name.empty() ? std::nullopt : std::optional(answer.name);
    }

    struct SourceInfo {
        bool exists = false;
        bool monitor = false;  // the monitor of a sink
        bool hardware = false; // a device of the machine's own, not a virtual one
    };
    SourceInfo source(const std::string& name) {
        struct Answer {
            bool done = false;
            SourceInfo info;
        } answer;
        wait(pa_context_get_source_info_by_name(
                 m_context.get(), name.c_str(),
                 [](pa_context*, const pa_source_info* info, int end, void* data) {
                     auto* a = static_cast<Answer*>(data);
                     if (end != 0 || info == nullptr) {
                         a->done = true;
                         return;
                     }
                     a->info.exists = true;
                     a->info.monitor = info->monitor_of_sink != PA_INVALID_INDEX;
                     a->info.hardware = (info->flags & PA_SOURCE_HARDWARE) != 0;
                 },
                 &answer),
             answer.done);
        return answer.info;
    }

    std::optional<SoundSource::SourceCount> sourceCount() {
        struct Answer {
            bool done = false;
            SoundSource::SourceCount count;
        } answer;
        wait(pa_context_get_source_info_list(
                 m_context.get(),
                 [](pa_context*, const pa_source_info* info, int end, void* data) {
                     auto* a = static_cast<Answer*>(data);
                     if (end != 0 || info == nullptr) {
                         a->done = true;
                         return;
                     }
                     ++(info->monitor_of_sink != PA_INVALID_INDEX ? a->count.monitors : a->count.microphones);
                 },
                 &answer),
             answer.done);
        return answer.done ? std::optional(answer.count) : std::nullopt;
    }

private:
    void wait(pa_operation* operation, const bool& done) {
        if (operation == nullptr) {
            return;
        }
        while (!done && pa_operation_get_state(operation) == PA_OPERATION_RUNNING &&
               pa_mainloop_iterate(m_loop.get(), 1, nullptr) >= 0) {
        }
        pa_operation_unref(operation);
    }

    std::unique_ptr<pa_mainloop, MainloopDeleter> m_loop{pa_mainloop_new()};
    std::unique_ptr<pa_context, ContextDeleter> m_context;
};

} // namespace

struct SoundSource::Stream {
    Simple simple;
};

namespace {

std::optional<std::string> defaultMicrophoneOf(Introspection& introspection) {
    if (!introspection.connected()) {
        return std::nullopt;
    }
    const std::optional<std::string> source = introspection.defaultSource();
    if (!source) {
        return std::nullopt;
    }
    const auto info = introspection.source(*source);
    if (!info.exists || info.monitor) {
        return std::nullopt;
    }
    return source;
}

} // namespace

SoundSource::SoundSource(Kind kind, std::string server, Deliver deliver, Warn warn)
    : m_kind(kind)
    , m_server(std::move(server))
    , m_deliver(std::move(deliver))
    , m_warn(std::move(warn)) {
    if (kind == Kind::microphone) {
        Introspection introspection(m_server);
        if (!introspection.connected()) {
            throw CaptureError(CaptureError::Kind::noSoundServer);
        }
        const std::optional<std::string> microphone = defaultMicrophoneOf(introspection);
        if (!microphone) {
            throw CaptureError(CaptureError::Kind::microphoneDenied);
        }
        m_device = *microphone;
        // A hardware device's latency is sound captured but not yet handed over. A virtual source's (a
        // monitor, a remap of one) counts sound its sink rendered ahead of time: it arrives early, not
        // late, so it is stamped on arrival.
        m_subtractLatency = introspection.source(m_device).hardware;
    } else {
        m_device = "@DEFAULT_MONITOR@";
        m_subtractLatency = false;
    }
    int error = 0;
    m_stream = std::make_unique<Stream>();
    m_stream->simple =
        openStream(m_server, m_device, kind == Kind::microphone ? "Microphone" : "System audio", error);
    if (!m_stream->simple) {
        if (kind == Kind::microphone) {
            throw CaptureError(CaptureError::Kind::microphoneDenied);
        }
        throw CaptureError(CaptureError::Kind::captureUnavailable,
                           std::string("the system's sound can't be recorded: ") + pa_strerror(error));
    }
    m_thread = std::jthread([this](std::stop_token stop) { run(stop); });
}

std::optional<SoundSource::SourceCount> SoundSource::countSources(const std::string& server) {
    Introspection introspection(server);
    if (!introspection.connected()) {
        return std::nullopt;
    }
    return introspection.sourceCount();
}

SoundSource::~SoundSource() {
    stop();
}

void SoundSource::start() {
    m_delivering = true;
}

void SoundSource::stop() {
    m_thread = {};
    m_delivering = false;
}

void SoundSource::run(std::stop_token stop) {
    std::vector<float> piece(static_cast<std::size_t>(pieceFrames * channels));
    const char* what = m_kind == Kind::microphone ? "The microphone" : "The system's sound";
    while (!stop.stop_requested()) {
        if (!m_stream->simple) {
            // Gone: try again once a second, the take going on meanwhile.
            std::this_thread::sleep_for(std::chrono::seconds(1));
            int error = 0;
            m_stream->simple = openStream(m_server, m_device, "Capture", error);
            if (m_stream->simple) {
                m_warn(std::string(what) + " is back.");
            }
            continue;
        }
        int error = 0;
        if (pa_simple_read(m_stream->simple.get(), piece.data(), piece.size() * sizeof(float), &error) < 0) {
            m_stream->simple.reset();
            m_warn(std::string(what) + " stopped (" + pa_strerror(error) +
                   "); the recording goes on, with silence in its place.");
            continue;
        }
        const double arrived = monotonicSeconds();
        const pa_usec_t latency =
            m_subtractLatency ? pa_simple_get_latency(m_stream->simple.get(), &error) : 0;
        const double captured =
            arrived - static_cast<double>(latency) / 1e6 - static_cast<double>(pieceFrames) / sampleRate;
        if (m_delivering) {
            m_deliver(piece.data(), pieceFrames, captured);
        }
    }
}

} // namespace marlowick
