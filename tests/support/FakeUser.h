#pragma once

#include "capture/X11Connection.h"

#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace marlowick::test {

// Fakes input on the display through XTEST, as a user would give it.
class FakeUser {
public:
    explicit FakeUser(const std::string& display)
        : m_display(display)
        , m_connection(m_display.get())
        , m_root(m_display.screen().root) {}

    void moveTo(int x, int y) { fake(XCB_MOTION_NOTIFY, 0, x, y); }
    void press(std::uint8_t button) { fake(XCB_BUTTON_PRESS, button); }
    void release(std::uint8_t button) { fake(XCB_BUTTON_RELEASE, button); }
    void key(std::uint8_t keycode) {
        fake(XCB_KEY_PRESS, keycode);
        fake(XCB_KEY_RELEASE, keycode);
    }

private:
    void fake(std::uint8_t type, std::uint8_t detail, int x = 0, int y = 0) {
        xcb_test_fake_input(m_connection, type, detail, XCB_CURRENT_TIME, m_root,
                            static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), 0);
        xcb_aux_sync();
    }
    void xcb_aux_sync() {
        std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    }

    X11Connection m_display;
    xcb_connection_t* m_connection;
    xcb_window_t m_root;
};

} // namespace marlowick::test
