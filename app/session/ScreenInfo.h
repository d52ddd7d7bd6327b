#pragma once

#include "model/Geometry.h"

#include <optional>

namespace marlowick {

// The main screen as the window system reports it, which sizes a new capture: the window answers from Qt's
// primary screen; a session without a window has none, and the capture falls back on a 1920 by 1080
// screen at twice the pixels. Each value is asked for on its own, and either may be missing.
// Thread: called on the session's thread only.
class ScreenInfo {
public:
    virtual ~ScreenInfo() = default;

    // The primary screen's size in device-independent pixels (Qt's `geometry().size()`).
    virtual std::optional<Size> primaryScreenSize() const = 0;
    // Device pixels to a device-independent pixel on that screen (Qt's `devicePixelRatio()`).
    virtual std::optional<double> primaryScreenScale() const = 0;
};

} // namespace marlowick
