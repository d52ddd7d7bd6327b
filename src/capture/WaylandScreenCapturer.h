#pragma once

#include "capture/ScreenCapturer.h"
#include "capture/ScreenCastPortal.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace marlowick {

// The capturer on a Wayland desktop, where no client may read the screen by itself: the desktop's
// screen-sharing portal is asked for a monitor (its dialog shows once; the restore token of the last start
// brings the same screen back without it), and the stream it shares is recorded from PipeWire on the
// producer's own times (see ScreenCastRecorder). The pointer's positions come from the stream's cursor
// metadata where the desktop offers it; clicks, scrolls and keys from the kernel's input devices where this
// user may read them (see EvdevInputMonitor), placed where the metadata last put the pointer. The system's
// sound and the microphone come through PulseAudio, which PipeWire desktops serve too.
//
// The movie is made at the configuration's `size`, or at the shared stream's own where that is empty.
class WaylandScreenCapturer : public ScreenCapturer {
public:
    struct Options {
        ScreenCastPortal::Options portal;
        std::string soundServer;                       // as $PULSE_SERVER says it; empty takes the default
        std::uint64_t minimumFreeBytes = 512ull << 20; // a take stops before the disk is full
        bool allowHardware = true;                     // the GPU's video encoder where one opens
        std::string restoreToken;                      // of the last start, as stored; empty for none
        // Called with each new restore token, on the thread that starts the capture, to be stored: each
        // token brings the screen back once.
        std::function<void(const std::string& token)> restoreTokenChanged;
        // Called with the recording stream's node before it waits for pictures: where no session manager
        // links PipeWire's nodes, the caller links it here.
        std::function<void(std::uint32_t node)> connected;
        // Where the kernel's input devices are; those this user can't read are left alone.
        std::filesystem::path inputDevices = "/dev/input";
    };

    WaylandScreenCapturer()
        : WaylandScreenCapturer(Options{}) {}
    explicit WaylandScreenCapturer(Options options);
    ~WaylandScreenCapturer() override;

    // Where the shared stream carries (or the portal offers) the pointer as metadata: full when some input
    // device is readable too, positionOnly otherwise. none without the metadata, since clicks with no
    // position would only mislead the zooms.
    //
    // The window asks this at every phase change, so it answers from what the capturer keeps: the portal
    // is asked only while nothing is known, once (a portal that can't be asked counts as offering no
    // metadata until a start asks again), and each start replaces the answer with what its portal offered
    // and then with what its stream carries. It never touches the running stream, which `stop` may be
    // taking down on the capture's thread meanwhile.
    TelemetryAvailability telemetryAvailability() const override;
    void start(const CaptureConfiguration& configuration) override;
    Recording stop() override;
    std::optional<CaptureError> interruption() const override;
    std::vector<std::string> takeWarnings() override;
    CaptureStatistics statistics() const override;

    // The restore token to give the next start: the last one the portal handed out.
    std::string restoreToken() const;
    // The video encoder of the running capture, as "libx264".
    std::string encoderName() const;

private:
    struct Capture;
    void warn(const std::string& message);

    Options m_options;
    ScreenCastPortal m_portal; // the thread that starts and stops only; no lock

    // m_lock guards the fields below it. The capture behind m_capture is made and taken down by the thread
    // that starts and stops, outside the lock; other threads reach it only under the lock, and only its
    // parts that may be asked from any thread (the recorder's interruption, statistics and sink).
    mutable std::mutex m_lock;
    std::unique_ptr<Capture> m_capture; // the pointer is set and cleared under m_lock
    std::vector<std::string> m_warnings;
    CaptureStatistics m_lastStatistics;
    std::string m_restoreToken;
    // Whether the pointer comes as metadata: what the running or last capture's stream carries, else what
    // its portal offered, else what the portal said when asked; none until one of them has answered.
    mutable std::optional<bool> m_cursorMetadata;
};

} // namespace marlowick
