#include "capture/X11Connection.h"

#include "capture/CaptureError.h"

#include <xcb/xcb.h>

#include <chrono>
#include <thread>

namespace marlowick {

X11Connection::X11Connection(const std::string& display)
    : m_display(display) {
    const char* name = display.empty() ? nullptr : display.c_str();
    int screen = 0;
    for (m_tries = 1;; ++m_tries) {
        m_connection = xcb_connect(name, &screen);
        const int error = xcb_connection_has_error(m_connection);
        if (error == 0) {
            break;
        }
        xcb_disconnect(m_connection);
        m_connection = nullptr;
        // A display name that doesn't parse, or a screen the server hasn't, won't come right by waiting.
        if (m_tries == attempts || error == XCB_CONN_CLOSED_PARSE_ERR ||
            error == XCB_CONN_CLOSED_INVALID_SCREEN) {
            throw CaptureError(CaptureError::Kind::noDisplayAvailable,
                               "no X display" + (display.empty() ? std::string() : " " + display));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20 + 10 * m_tries));
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    for (int i = 0; i < screen && screens.rem > 0; ++i) {
        xcb_screen_next(&screens);
    }
    m_screen = screens.data;
    if (m_screen == nullptr) {
        xcb_disconnect(m_connection);
        throw CaptureError(CaptureError::Kind::noDisplayAvailable,
                           "no screen on the X display" + (display.empty() ? std::string() : " " + display));
    }
}

X11Connection::~X11Connection() {
    xcb_disconnect(m_connection);
}

} // namespace marlowick
