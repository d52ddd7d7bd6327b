#pragma once

#include "capture/CaptureConfiguration.h"
#include "capture/CaptureError.h"
#include "model/Recording.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace marlowick {

// Counts of a capture so far, for the user to be told what was lost.
struct CaptureStatistics {
    std::int64_t framesWritten = 0;
    std::int64_t framesDropped = 0;                 // not grabbed in time, or not taken by a busy encoder
    std::int64_t framesDroppedAfterFirstSecond = 0; // of those, once the encoder had warmed up
};

// Records the screen, system audio and the microphone into one movie, with the input telemetry beside
// it. `start` and `stop` are called from one thread at a time (the session's); each finishes its work
// before it returns. The other members may be called from any thread.
class ScreenCapturer {
public:
    virtual ~ScreenCapturer() = default;

    // How much telemetry a capture from this source will hold; needs no capture to be running.
    virtual TelemetryAvailability telemetryAvailability() const = 0;

    // Begins a capture. Throws CaptureError; a failure leaves the capturer as it was, though a movie
    // already begun stays on disk.
    virtual void start(const CaptureConfiguration& configuration) = 0;

    // Ends the capture and yields the recording, its event locations in pixels of the movie. Throws
    // CaptureError (notRecording, writerFailed).
    virtual Recording stop() = 0;

    // Why the capture ended by itself, if it did (the disk filling up, the display going away). What was
    // written stays, and `stop` still yields it.
    virtual std::optional<CaptureError> interruption() const = 0;

    // Troubles that don't end the capture (a sound device gone), each handed out once.
    virtual std::vector<std::string> takeWarnings() = 0;

    virtual CaptureStatistics statistics() const = 0;
};

} // namespace marlowick
