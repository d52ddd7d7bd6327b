#pragma once

#include "capture/ScreenMonitor.h"

#include <vector>

namespace marlowick {

// The monitors a take may record, as the window system lists them, for the person to pick one: the window
// answers from Qt's screens where the capture is X11's (Qt names them as RandR does, and the capture takes
// them by those names). A session without a window, and a Wayland desktop, where the desktop's own dialog
// picks the screen, have none to offer, and a take records the primary monitor.
// Thread: called on the session's thread only.
class ScreenInfo {
public:
    virtual ~ScreenInfo() = default;

    // In the root window's device pixels, exactly one of them primary; asked anew each time, since
    // monitors come and go.
    virtual std::vector<ScreenMonitor> monitors() const = 0;
};

} // namespace marlowick
