#pragma once

#include "capture/ScreenMonitor.h"

#include <string>
#include <string_view>
#include <vector>

namespace marlowick {

class X11Connection;

// The monitors of an X screen, as RandR describes them: its monitors where the server speaks RandR 1.5
// (what `xrandr --listmonitors` shows, those set up with `--setmonitor` included), otherwise one for each
// CRTC that lights an output, named after its first output; where RandR has nothing (no extension, or no
// output lit) the whole root window as one monitor named "screen".
//
// Each rectangle is clipped to the root window, since only the root's pixels can be read, and a monitor
// wholly outside it is left out. Exactly one monitor is primary: RandR's primary one, or the first where
// RandR names none. A value; it doesn't follow later changes of the screen.
class MonitorLayout {
public:
    // Monitors already known, in the pixels of a root window `rootWidth` by `rootHeight`, kept in their
    // order; none at all stand for the whole root.
    MonitorLayout(std::vector<ScreenMonitor> monitors, int rootWidth, int rootHeight);

    // The layout of the display's default screen now. Throws CaptureError (noDisplayAvailable) when no
    // display answers.
    static MonitorLayout read(const X11Connection& connection);
    static MonitorLayout read(const std::string& display = {});
    // The same from RandR 1.2's outputs alone, as a server without RandR 1.5 gives it.
    static MonitorLayout readOutputs(const X11Connection& connection);

    // At least one, unless the root itself is empty.
    const std::vector<ScreenMonitor>& monitors() const { return m_monitors; }

    // The monitor a take records: the one named `name`, or the primary one for an empty name. Throws
    // CaptureError (unknownMonitor) naming the monitors there are when none has that name.
    const ScreenMonitor& choose(std::string_view name) const;

    // The monitors for a person to read, as "DUMMY0 (1280×720, primary) and DUMMY1 (800×600)".
    std::string listing() const;

private:
    static MonitorLayout read(const X11Connection& connection, bool monitors);

    std::vector<ScreenMonitor> m_monitors;
};

} // namespace marlowick
