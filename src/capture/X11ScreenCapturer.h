#pragma once

#include "capture/ScreenCapturer.h"
#include "capture/ScreenMonitor.h"
#include "model/Geometry.h"

#include <memory>
#include <mutex>
#include <string>

namespace marlowick {

class X11Connection;

// The capturer on an X11 desktop: one monitor of the display's default screen (the configuration's, by
// name, or the primary one; see MonitorLayout), its rectangle of the root window read through MIT-SHM on a
// thread of its own at the configured rate (the server leaves the cursor out); the system's sound from the
// default sink's monitor and the microphone from the default source, through PulseAudio; the input
// telemetry from the RECORD extension, or from polling the pointer where it is missing.
//
// The picture is recorded at the configuration's `size`, or at the monitor's own where that is empty: the
// monitor's own size gives every pixel as it is, another size is scaled to. Telemetry is on the monitor's
// pixels from its top left, scaled by the same factor (`pointsToPixels`); what happens outside the monitor
// is left out.
class X11ScreenCapturer : public ScreenCapturer {
public:
    struct Options {
        std::string display;                           // as $DISPLAY says it; empty takes $DISPLAY
        std::string soundServer;                       // as $PULSE_SERVER says it; empty takes the default
        std::uint64_t minimumFreeBytes = 512ull << 20; // a take stops before the disk is full
        bool allowTap = true;                          // false: telemetry by polling only
        bool allowHardware = true;                     // the GPU's video encoder where one opens
    };

    X11ScreenCapturer()
        : X11ScreenCapturer(Options{}) {}
    explicit X11ScreenCapturer(Options options);
    // On a display the caller has open already, which each capture shares instead of opening
    // `options.display` again.
    X11ScreenCapturer(Options options, std::shared_ptr<X11Connection> connection);
    ~X11ScreenCapturer() override;

    // While capturing, what the running capture records (from the thread that starts and stops it);
    // otherwise what the display offers.
    TelemetryAvailability telemetryAvailability() const override;
    void start(const CaptureConfiguration& configuration) override;
    Recording stop() override;
    std::optional<CaptureError> interruption() const override;
    std::vector<std::string> takeWarnings() override;
    // Of the running capture, or of the last one once it has stopped.
    CaptureStatistics statistics() const override;

    // The factor from the monitor's pixels to pixels of the recording, per axis; (1, 1) outside a capture.
    Point pointsToPixels() const;
    // When the movie of the last stopped capture begins (its first picture), in seconds on the steady
    // clock; none before any capture or when no picture came.
    std::optional<double> lastMovieStart() const;
    // The video encoder of the running capture, as "libx264".
    std::string encoderName() const;

    // The monitor the running capture records; none outside a capture.
    std::optional<ScreenMonitor> recordedMonitor() const;

private:
    struct Capture;
    void warn(const std::string& message);

    Options m_options;
    std::shared_ptr<X11Connection> m_connection; // as given; none opens the display at each start
    mutable std::mutex m_lock;                   // guards the fields below
    std::unique_ptr<Capture> m_capture;          // present while capturing
    std::vector<std::string> m_warnings;
    CaptureStatistics m_lastStatistics; // of the capture that ended last
    std::optional<double> m_lastMovieStart;
};

} // namespace marlowick
