#pragma once

#include "media/BgraImage.h"
#include "model/InputEvent.h"
#include "model/Project.h"

#include <optional>
#include <vector>

namespace marlowick {

// One finished frame of a project, drawn as the export draws it: the recording decoded at the source time
// that `outputTime` (seconds on the finished movie's clock, after the cuts) maps to, on the project's
// canvas at `width` × `height`, with the camera, the cursor and the caption of that output time. The
// picture is straight BGRA, top row first. `telemetry` is in source time.
//
// None when the recording has no frames. Failures: MediaError when the recording can't be read;
// CompositorError when no GL context or program can be had. Any thread: it draws in a headless GL context
// of its own.
std::optional<BgraImage> drawStillFrame(const Project& project, const std::vector<InputEvent>& telemetry,
                                        double outputTime, int width, int height);

} // namespace marlowick
