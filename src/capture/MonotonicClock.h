#pragma once

#include <chrono>

namespace marlowick {

// Seconds on the steady clock (CLOCK_MONOTONIC on Linux, which is also the X server's clock): the one
// clock on which a capture stamps pictures, sound and telemetry.
inline double monotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace marlowick
