#pragma once

#include "compositor/FrameUniforms.h"
#include "model/Project.h"

#include <optional>

namespace marlowick {

// The whole layout of one frame, free of the GPU: how the recording sits in the canvas, what a device
// frame takes of it, how much room a tilt needs, where the camera looks, and the cursor of the moment.
// `t` is on the clock of `project` (callers pass a project moved onto output time, and an output time);
// `canvas` is the output size in pixels. The caption fields are left at zero: the renderer fills them.
FrameUniforms frameUniforms(const Project& project, double t, Size canvas,
                            const std::optional<CursorFrame>& cursor);

} // namespace marlowick
