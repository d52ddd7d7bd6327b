#pragma once

#include "capture/ScreenMonitor.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace marlowick {

class X11Connection;

// Reads the picture of an X display's root window, the whole screen or one monitor's rectangle of it, through
// a shared-memory segment (MIT-SHM: the server copies into memory we read, no bytes through the socket), or
// through the socket where the server can't share memory (a remote display). The X server leaves the cursor
// out of the image; the cursor is drawn later from telemetry.
//
// Pixels are 32-bit B, G, R, X in memory (the fourth byte undefined), row 0 at the top. One thread at a
// time.
class X11FrameGrabber {
public:
    // `display` as $DISPLAY says it; empty takes $DISPLAY. Throws CaptureError (noDisplayAvailable) when
    // no display answers, (captureUnavailable) when its screen isn't 24 or 32 bits deep.
    explicit X11FrameGrabber(const std::string& display = {});
    // On a connection shared with others (see X11Connection for which may share one); throws
    // CaptureError (captureUnavailable) when the screen isn't 24 or 32 bits deep.
    // With a `monitor`, only its rectangle of the root (which must lie within the root, as MonitorLayout
    // gives them) is read.
    explicit X11FrameGrabber(std::shared_ptr<X11Connection> connection,
                             const std::optional<ScreenMonitor>& monitor = std::nullopt);
    ~X11FrameGrabber();
    X11FrameGrabber(const X11FrameGrabber&) = delete;
    X11FrameGrabber& operator=(const X11FrameGrabber&) = delete;

    // Of the picture: the monitor's size, or the root's.
    int width() const;
    int height() const;
    int stride() const; // bytes from one row to the next
    bool sharesMemory() const;

    // Reads the screen as it is now. The pixels stay valid until the next grab. Throws CaptureError
    // (captureUnavailable) when the server refuses.
    const std::uint8_t* grab();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace marlowick
