#pragma once

#include "model/Geometry.h"
#include "model/InputEvent.h"
#include "model/Url.h"

#include <vector>

namespace marlowick {

// The captured source. Inside a document `inputEvents` stays empty: the document holds the telemetry.
struct Recording {
    Url mediaURL;
    Size size;            // frame size of the movie in pixels
    double frameRate = 0; // frames per second
    double duration = 0;  // seconds
    std::vector<InputEvent> inputEvents;
    // The capturer sets these after construction; a file without them reads as microphone false and
    // system audio true, which is what recordings made before the flags existed had.
    bool capturedMicrophone = false;
    bool capturedSystemAudio = false;

    friend bool operator==(const Recording&, const Recording&) = default;
};

} // namespace marlowick
