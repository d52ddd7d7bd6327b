#pragma once

#include <string>

struct xcb_connection_t;
struct xcb_screen_t;

namespace marlowick {

// An open connection to an X display, closed with the object; the one way the capture connects.
//
// An X server now and then closes a new connection right after the client has sent its setup (Xvfb does
// so about once in ten connections), and a take must not be lost to that: a connection that fails is
// tried again a few times, briefly apart, before the display counts as absent.
//
// libxcb connections are thread-safe, so one may be shared by threads that each send their requests and
// wait for their own replies (the grabber, the pointer poller, the RECORD tap's control requests); only a
// connection that blocks on an endless stream of replies, like the tap's data, needs one of its own.
class X11Connection {
public:
    static constexpr int attempts = 5;

    // `display` as $DISPLAY says it; empty takes $DISPLAY. Throws CaptureError (noDisplayAvailable) naming
    // the display when it still fails after `attempts` tries.
    explicit X11Connection(const std::string& display = {});
    ~X11Connection();
    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;

    xcb_connection_t* get() const { return m_connection; }
    // The display's default screen.
    const xcb_screen_t& screen() const { return *m_screen; }
    // As it was given, empty for $DISPLAY.
    const std::string& display() const { return m_display; }
    // Tries it took to connect, 1 when the first one held.
    int tries() const { return m_tries; }

private:
    std::string m_display;
    xcb_connection_t* m_connection = nullptr;
    const xcb_screen_t* m_screen = nullptr;
    int m_tries = 0;
};

} // namespace marlowick
