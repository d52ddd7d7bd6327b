#include "capture/WaylandScreenCapturer.h"

#include "capture/CaptureSounds.h"
#include "capture/EvdevInputMonitor.h"
#include "capture/RecordingSink.h"
#include "capture/ScreenCastRecorder.h"

#include <unistd.h>

namespace marlowick {

struct WaylandScreenCapturer::Capture {
    std::unique_ptr<ScreenCastRecorder> recorder;
    std::optional<CaptureSounds> sounds;      // after the recorder, whose sink it feeds: it goes first
    std::unique_ptr<EvdevInputMonitor> input; // where the pointer's positions come and a device is readable
};

WaylandScreenCapturer::WaylandScreenCapturer(Options options)
    : m_options(std::move(options))
    , m_portal(m_options.portal)
    , m_restoreToken(m_options.restoreToken) {}

WaylandScreenCapturer::~WaylandScreenCapturer() {
    std::unique_ptr<Capture> capture;
    {
        std::lock_guard lock(m_lock);
        capture = std::move(m_capture);
    }
    if (capture) {
        // The sound stops first; the recorder still leaves a complete movie behind.
        capture->sounds.reset();
        capture->input.reset();
        capture->recorder.reset();
    }
    m_portal.close();
}

TelemetryAvailability WaylandScreenCapturer::telemetryAvailability() const {
    std::optional<bool> cursor;
    {
        std::lock_guard lock(m_lock);
        cursor = m_cursorMetadata;
    }
    if (!cursor) {
        // The portal tells without a dialog; asked on a portal of its own, since this may run on any thread,
        // and outside the lock, so that no other caller waits for its answer.
        bool offered = false;
        try {
            ScreenCastPortal portal(m_options.portal);
            offered = portal.offersCursorMetadata();
        } catch (const CaptureError&) {
        }
        std::lock_guard lock(m_lock);
        if (!m_cursorMetadata) {
            m_cursorMetadata = offered; // unless a start answered meanwhile
        }
        cursor = m_cursorMetadata;
    }
    if (!*cursor) {
        return TelemetryAvailability::none;
    }
    return EvdevInputMonitor::readableDevices(m_options.inputDevices).empty()
               ? TelemetryAvailability::positionOnly
               : TelemetryAvailability::full;
}

void WaylandScreenCapturer::start(const CaptureConfiguration& configuration) {
    std::string token;
    {
        std::lock_guard lock(m_lock);
        if (m_capture) {
            throw CaptureError(CaptureError::Kind::alreadyRecording);
        }
        token = m_restoreToken;
    }
    const ScreenCastPortal::Share share = m_portal.open(token);
    {
        std::lock_guard lock(m_lock);
        m_cursorMetadata = share.cursorMetadata; // the portal's answer, until the stream's is known
    }
    if (!share.restoreToken.empty()) {
        {
            std::lock_guard lock(m_lock);
            m_restoreToken = share.restoreToken;
        }
        if (m_options.restoreTokenChanged) {
            m_options.restoreTokenChanged(share.restoreToken);
        }
    }

    auto capture = std::make_unique<Capture>();
    Capture* c = capture.get();
    bool handedOver = false; // the recorder's stream owns the connection from then on
    try {
        capture->sounds.emplace(
            configuration, m_options.soundServer, [c]() -> RecordingSink& { return c->recorder->sink(); },
            [this](const std::string& message) { warn(message); });
        ScreenCastRecorder::Options recorderOptions;
        recorderOptions.minimumFreeBytes = m_options.minimumFreeBytes;
        recorderOptions.allowHardware = m_options.allowHardware;
        recorderOptions.connected = m_options.connected;
        handedOver = true;
        capture->recorder = std::make_unique<ScreenCastRecorder>(PipeWireStream::Remote{share.fd, {}},
                                                                 share.node, configuration, recorderOptions);
    } catch (...) {
        if (!handedOver) {
            ::close(share.fd);
        }
        capture.reset();
        m_portal.close();
        throw;
    }
    // The sink takes pictures from here on, and the sound goes to it from now too; the sink refuses what
    // was captured before its first picture.
    capture->sounds->start();
    // Kept now, while this thread owns the stream: other threads ask the kept answer, never the stream.
    const bool cursorMetadata = capture->recorder->hasCursorMetadata();
    if (cursorMetadata) {
        capture->input = std::make_unique<EvdevInputMonitor>(m_options.inputDevices);
        if (!capture->input->start()) {
            capture->input.reset(); // no readable device: positions only
        }
    }
    std::lock_guard lock(m_lock);
    m_cursorMetadata = cursorMetadata;
    m_capture = std::move(capture);
}

Recording WaylandScreenCapturer::stop() {
    Capture* c = nullptr;
    {
        std::lock_guard lock(m_lock);
        if (!m_capture) {
            throw CaptureError(CaptureError::Kind::notRecording);
        }
        c = m_capture.get();
    }
    c->sounds->stop();
    std::optional<Recording> recording;
    std::optional<CaptureError> failure;
    try {
        recording = c->recorder->stop();
    } catch (const CaptureError& error) {
        failure = error;
    }
    if (c->input) {
        const std::vector<EvdevInputMonitor::DeviceEvent> events = c->input->stop();
        const std::optional<double> start = c->recorder->movieStart();
        if (recording && start) {
            recording->inputEvents =
                EvdevInputMonitor::placed(recording->inputEvents, events, *start, recording->duration);
        }
    }
    m_portal.close();
    for (std::string& message : c->recorder->sink().takeWarnings()) {
        warn(message);
    }
    std::unique_ptr<Capture> ended;
    {
        std::lock_guard lock(m_lock);
        m_lastStatistics = c->recorder->statistics();
        ended = std::move(m_capture);
    }
    if (failure) {
        throw *failure;
    }
    return *recording;
}

std::optional<CaptureError> WaylandScreenCapturer::interruption() const {
    std::lock_guard lock(m_lock);
    return m_capture ? m_capture->recorder->interruption() : std::nullopt;
}

std::vector<std::string> WaylandScreenCapturer::takeWarnings() {
    std::lock_guard lock(m_lock);
    return std::exchange(m_warnings, {});
}

CaptureStatistics WaylandScreenCapturer::statistics() const {
    std::lock_guard lock(m_lock);
    return m_capture ? m_capture->recorder->statistics() : m_lastStatistics;
}

std::string WaylandScreenCapturer::restoreToken() const {
    std::lock_guard lock(m_lock);
    return m_restoreToken;
}

std::string WaylandScreenCapturer::encoderName() const {
    std::lock_guard lock(m_lock);
    return m_capture ? m_capture->recorder->sink().encoderName() : std::string();
}

void WaylandScreenCapturer::warn(const std::string& message) {
    std::lock_guard lock(m_lock);
    m_warnings.push_back(message);
}

} // namespace marlowick
