#pragma once

#include "model/CameraTrack.h"

namespace marlowick {

// The curve of a ramp at progress p, which is clamped to 0..1 first. Every curve runs from 0 to 1;
// `spring` alone passes beyond 1 on its way and comes back to it at the end.
double apply(Easing easing, double p);

} // namespace marlowick
