#pragma once

#include "capture/X11Connection.h"

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>

namespace marlowick::test {

// A window of one colour placed on the root where asked, until the object goes: override-redirect, so
// that no window manager moves it. Each change has been handled by the server when its call returns.
class ColouredWindow {
public:
    ColouredWindow(const X11Connection& display, std::uint32_t rgb, int x, int y, int width, int height,
                   bool shown = true)
        : m_connection(display.get())
        , m_window(xcb_generate_id(m_connection)) {
        const xcb_screen_t& screen = display.screen();
        const std::uint32_t values[] = {rgb, 1}; // background pixel, override-redirect
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, screen.root,
                          static_cast<std::int16_t>(x), static_cast<std::int16_t>(y),
                          static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen.root_visual,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
        show(shown);
    }
    ~ColouredWindow() {
        xcb_destroy_window(m_connection, m_window);
        xcb_flush(m_connection);
    }
    ColouredWindow(const ColouredWindow&) = delete;
    ColouredWindow& operator=(const ColouredWindow&) = delete;

    // Maps or unmaps the window; the server paints what it uncovers before it answers the next request.
    void show(bool shown) {
        shown ? xcb_map_window(m_connection, m_window) : xcb_unmap_window(m_connection, m_window);
        sync();
    }
    void moveTo(int x, int y) {
        const std::uint32_t place[] = {static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y)};
        xcb_configure_window(m_connection, m_window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, place);
        sync();
    }

private:
    void sync() {
        std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    }

    xcb_connection_t* m_connection;
    xcb_window_t m_window;
};

} // namespace marlowick::test
