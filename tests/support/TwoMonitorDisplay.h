#pragma once

#include "support/TempDir.h"
#include "support/XServer.h"

#include <cstdio>
#include <string>
#include <unistd.h>

namespace marlowick::test {

// A private X server with two monitors on one screen, stopped at the end: Xorg with the dummy video
// driver, its root window 2080×720 holding "DUMMY0", 1280×720 at (0, 0) and primary, and "DUMMY1",
// 800×600 at (1280, 120), as RandR lists them. Xvfb can't stand in: it ignores `xrandr --setmonitor`, and
// `+xinerama` makes screens of their own rather than monitors of one root.
//
// It runs with -noreset (see VirtualDisplay) and without input devices of its own; XTEST fakes the input.
// The server's log is kept in a folder of its own, for a test to show when something goes wrong.
class TwoMonitorDisplay {
public:
    static constexpr const char* configuration = R"(Section "ServerFlags"
    Option "AutoAddDevices" "false"
    Option "AutoAddGPU" "false"
EndSection
Section "Device"
    Identifier "card"
    Driver "dummy"
    VideoRam 65536
    Option "Monitor-DUMMY0" "left"
    Option "Monitor-DUMMY1" "right"
EndSection
Section "Monitor"
    Identifier "left"
    HorizSync 5.0-1000.0
    VertRefresh 5.0-200.0
    Modeline "1280x720" 74.25 1280 1390 1430 1650 720 725 730 750
    Option "PreferredMode" "1280x720"
    Option "Primary" "true"
EndSection
Section "Monitor"
    Identifier "right"
    HorizSync 5.0-1000.0
    VertRefresh 5.0-200.0
    Modeline "800x600" 40.00 800 840 968 1056 600 601 605 628
    Option "PreferredMode" "800x600"
    Option "Position" "1280 120"
    Option "Enable" "true"
EndSection
Section "Screen"
    Identifier "screen"
    Device "card"
    Monitor "left"
    DefaultDepth 24
    SubSection "Display"
        Depth 24
        Virtual 2080 720
    EndSubSection
EndSection
)";

    TwoMonitorDisplay()
        : m_server(140, 190, [this](const std::string& name) {
            writeText(m_dir / "xorg.conf", configuration);
            std::freopen("/dev/null", "w", stdout);
            std::freopen((m_dir / "stderr.log").c_str(), "w", stderr);
            execlp("Xorg", "Xorg", name.c_str(), "-config", (m_dir / "xorg.conf").c_str(), "-noreset",
                   "-nolisten", "tcp", "-logfile", (m_dir / "Xorg.log").c_str(), static_cast<char*>(nullptr));
        }) {}
    TwoMonitorDisplay(const TwoMonitorDisplay&) = delete;
    TwoMonitorDisplay& operator=(const TwoMonitorDisplay&) = delete;

    // Empty when the server didn't start.
    const std::string& name() const { return m_server.name(); }
    // What the server said about itself, for a failure's message.
    std::string log() const { return readText(m_dir / "stderr.log"); }

private:
    TempDir m_dir;
    XServer m_server; // after the folder it writes in
};

} // namespace marlowick::test
