#include "capture/X11ScreenCapturer.h"

#include "capture/CaptureSounds.h"
#include "capture/InputMonitor.h"
#include "capture/MonitorLayout.h"
#include "capture/MonotonicClock.h"
#include "capture/RecordingSink.h"
#include "capture/X11Connection.h"
#include "capture/X11FrameGrabber.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <thread>

namespace marlowick {

struct X11ScreenCapturer::Capture {
    CaptureConfiguration configuration;
    std::unique_ptr<RecordingSink> sink;
    std::unique_ptr<X11FrameGrabber> grabber;
    std::optional<CaptureSounds> sounds;
    std::unique_ptr<InputMonitor> monitor;
    ScreenMonitor screen; // the monitor recorded
    Point pointsToPixels{1, 1};
    std::optional<CaptureError> grabFailure; // guarded by the capturer's m_lock
    std::jthread grabbing;                   // last: it ends before the rest goes
};

X11ScreenCapturer::X11ScreenCapturer(Options options)
    : m_options(std::move(options)) {}

X11ScreenCapturer::X11ScreenCapturer(Options options, std::shared_ptr<X11Connection> connection)
    : m_options(std::move(options))
    , m_connection(std::move(connection)) {}

X11ScreenCapturer::~X11ScreenCapturer() {
    std::unique_ptr<Capture> capture;
    {
        std::lock_guard lock(m_lock);
        capture = std::move(m_capture);
    }
    if (capture) {
        // An abandoned capture still leaves a complete movie behind.
        capture->grabbing = {};
        capture->sounds.reset();
        if (capture->monitor) {
            capture->monitor->stop();
        }
        try {
            capture->sink->finish();
        } catch (const CaptureError&) {
        }
    }
}

TelemetryAvailability X11ScreenCapturer::telemetryAvailability() const {
    if (!m_options.allowTap) {
        return TelemetryAvailability::positionOnly;
    }
    {
        // A running capture knows without asking the server again.
        std::lock_guard lock(m_lock);
        if (m_capture) {
            return m_capture->monitor->mode() == InputMonitor::Mode::tapping
                       ? TelemetryAvailability::full
                       : TelemetryAvailability::positionOnly;
        }
    }
    return InputMonitor::isEventTapPermitted(m_options.display) ? TelemetryAvailability::full
                                                                : TelemetryAvailability::positionOnly;
}

void X11ScreenCapturer::start(const CaptureConfiguration& configuration) {
    {
        std::lock_guard lock(m_lock);
        if (m_capture) {
            throw CaptureError(CaptureError::Kind::alreadyRecording);
        }
    }
    auto capture = std::make_unique<Capture>();
    capture->configuration = configuration;
    // One connection for the picture, the monitors and the input monitor; only the monitor's tap opens a
    // second.
    const std::shared_ptr<X11Connection> connection =
        m_connection ? m_connection : std::make_shared<X11Connection>(m_options.display);
    capture->screen = MonitorLayout::read(*connection).choose(configuration.monitor);
    const Size screen = capture->screen.size();
    if (capture->configuration.size.width <= 0 || capture->configuration.size.height <= 0) {
        capture->configuration.size = screen;
    }
    capture->grabber = std::make_unique<X11FrameGrabber>(connection, capture->screen);

    // The sound streams open before the take starts, so that their first pieces come in time; they
    // deliver only once started, when the sink exists. They are started before the first picture is
    // grabbed, so that the sound tracks begin with it: the sink refuses what was captured before it.
    Capture* c = capture.get();
    capture->sounds.emplace(
        capture->configuration, m_options.soundServer, [c]() -> RecordingSink& { return *c->sink; },
        [this](const std::string& message) { warn(message); });

    RecordingSink::Options sinkOptions;
    sinkOptions.minimumFreeBytes = m_options.minimumFreeBytes;
    sinkOptions.allowHardware = m_options.allowHardware;
    capture->sink = std::make_unique<RecordingSink>(capture->configuration, sinkOptions);
    capture->sounds->start();

    capture->grabbing = std::jthread([this, c](std::stop_token stop) {
        const double period = 1.0 / std::max(1.0, c->configuration.frameRate);
        double next = monotonicSeconds();
        while (!stop.stop_requested()) {
            const double wait = next - monotonicSeconds();
            if (wait > 0) {
                std::this_thread::sleep_for(std::chrono::duration<double>(wait));
            }
            const double time = monotonicSeconds();
            try {
                const std::uint8_t* pixels = c->grabber->grab();
                c->sink->appendVideo(pixels, c->grabber->stride(), c->grabber->width(), c->grabber->height(),
                                     time);
            } catch (const CaptureError& error) {
                std::lock_guard lock(m_lock);
                c->grabFailure = error;
                return;
            }
            if (c->sink->interruption()) {
                return;
            }
            next += period;
            // Behind by whole frames (the machine was busy): those moments are lost, and counted.
            const double late = monotonicSeconds();
            const double behind = late - next;
            if (behind >= period) {
                const auto missed = static_cast<std::int64_t>(behind / period);
                next += static_cast<double>(missed) * period;
                c->sink->countMissed(missed, late);
            }
        }
    });
    capture->monitor = std::make_unique<InputMonitor>(connection, m_options.allowTap);
    capture->monitor->start();
    const Size movie = capture->configuration.size;
    capture->pointsToPixels = {screen.width > 0 ? movie.width / screen.width : 1.0,
                               screen.height > 0 ? movie.height / screen.height : 1.0};
    std::lock_guard lock(m_lock);
    m_capture = std::move(capture);
}

Recording X11ScreenCapturer::stop() {
    Capture* c = nullptr;
    {
        std::lock_guard lock(m_lock);
        if (!m_capture) {
            throw CaptureError(CaptureError::Kind::notRecording);
        }
        c = m_capture.get();
    }
    c->grabbing = {};
    c->sounds->stop();
    std::vector<InputEvent> events = c->monitor->stop();
    const double duration = c->sink->finish();
    for (std::string& message : c->sink->takeWarnings()) {
        warn(message);
    }

    // The monitor counts from its own start; the movie from its first picture.
    const std::optional<double> sessionStart = c->sink->sessionStart();
    const double monitorStart =
        std::chrono::duration<double>(c->monitor->startedAt().time_since_epoch()).count();
    const double shift = sessionStart ? monitorStart - *sessionStart : 0.0;
    Recording recording;
    recording.mediaURL = Url::fileUrl(c->configuration.outputURL);
    recording.size = c->configuration.size;
    recording.frameRate = c->configuration.frameRate;
    recording.duration = duration;
    recording.inputEvents.reserve(events.size());
    for (const InputEvent& event : events) {
        const double time = event.time + shift;
        const std::optional<Point> place = c->screen.place(event.location);
        if (time < 0 || !place) {
            continue; // before the movie's first picture, or on another monitor
        }
        recording.inputEvents.push_back(
            {time, event.kind, {place->x * c->pointsToPixels.x, place->y * c->pointsToPixels.y}});
    }
    recording.capturedMicrophone = c->configuration.capturesMicrophone;
    recording.capturedSystemAudio = c->configuration.capturesAudio;

    std::unique_ptr<Capture> ended;
    {
        std::lock_guard lock(m_lock);
        m_lastStatistics = c->sink->statistics();
        m_lastMovieStart = sessionStart;
        ended = std::move(m_capture);
    }
    return recording;
}

std::optional<CaptureError> X11ScreenCapturer::interruption() const {
    std::lock_guard lock(m_lock);
    if (!m_capture) {
        return std::nullopt;
    }
    if (m_capture->grabFailure) {
        return m_capture->grabFailure;
    }
    return m_capture->sink->interruption();
}

std::vector<std::string> X11ScreenCapturer::takeWarnings() {
    std::lock_guard lock(m_lock);
    return std::exchange(m_warnings, {});
}

CaptureStatistics X11ScreenCapturer::statistics() const {
    std::lock_guard lock(m_lock);
    return m_capture ? m_capture->sink->statistics() : m_lastStatistics;
}

std::optional<double> X11ScreenCapturer::lastMovieStart() const {
    std::lock_guard lock(m_lock);
    return m_lastMovieStart;
}

Point X11ScreenCapturer::pointsToPixels() const {
    std::lock_guard lock(m_lock);
    return m_capture ? m_capture->pointsToPixels : Point{1, 1};
}

std::optional<ScreenMonitor> X11ScreenCapturer::recordedMonitor() const {
    std::lock_guard lock(m_lock);
    return m_capture ? std::optional(m_capture->screen) : std::nullopt;
}

std::string X11ScreenCapturer::encoderName() const {
    std::lock_guard lock(m_lock);
    return m_capture ? m_capture->sink->encoderName() : std::string();
}

void X11ScreenCapturer::warn(const std::string& message) {
    std::lock_guard lock(m_lock);
    m_warnings.push_back(message);
}

} // namespace marlowick
