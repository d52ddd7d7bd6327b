#pragma once

#include "model/Geometry.h"

#include <filesystem>
#include <string>

namespace marlowick {

// What a capture records.
struct CaptureConfiguration {
    std::filesystem::path outputURL; // the movie file to write
    Size size;                       // frame size in pixels; empty for the source's own
    // On X11, the monitor to record, by RandR's name ("HDMI-1"); empty for the primary one. On Wayland the
    // desktop's screen-sharing dialog asks instead.
    std::string monitor;
    double frameRate = 60;      // frames per second
    bool capturesAudio = false; // system audio
    bool capturesMicrophone = false;
    // Carried along; the capturer always keeps the system cursor out of the frames, since the cursor is
    // drawn later from telemetry.
    bool capturesCursor = true;
};

// How much telemetry a capture from a source will hold.
enum class TelemetryAvailability {
    full,         // clicks, drags, scrolls and key presses as well as pointer positions
    positionOnly, // pointer positions only
    none,         // no telemetry: a source with no pointer
};

} // namespace marlowick
