// The screen read from a real X server (a private Xvfb): a window of a known colour shows where it is.

#include "capture/X11FrameGrabber.h"
#include "capture/CaptureError.h"
#include "capture/X11Connection.h"
#include "support/Prerequisites.h"
#include "support/VirtualDisplay.h"

#include <gtest/gtest.h>

#include <xcb/xcb.h>

#include <cstdlib>

using namespace marlowick;
using namespace marlowick::test;

TEST(X11FrameGrabber, ReadsTheScreenWithAWindowWhereItIs) {
    const VirtualDisplay display;
    MARLOWICK_REQUIRE(xvfb(display));
    // A red window at (50, 60), 200×100.
    const X11Connection connection(display.name());
    xcb_connection_t* c = connection.get();
    const xcb_screen_t* screen = &connection.screen();
    const xcb_window_t window = xcb_generate_id(c);
    const std::uint32_t values[] = {0xff0000, 1}; // background pixel, override-redirect
    xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root, 50, 60, 200, 100, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
    xcb_map_window(c, window);
    std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));

    X11FrameGrabber grabber(display.name());
    EXPECT_EQ(grabber.width(), 1280);
    EXPECT_EQ(grabber.height(), 720);
    EXPECT_TRUE(grabber.sharesMemory());
    const std::uint8_t* pixels = grabber.grab();
    auto at = [&](int x, int y) { return pixels + y * grabber.stride() + x * 4; };
    auto red = [&](int x, int y) { return at(x, y)[0] == 0 && at(x, y)[1] == 0 && at(x, y)[2] == 255; };
    for (const auto& [x, y] : {std::pair{50, 60}, std::pair{249, 159}, std::pair{150, 100}}) {
        EXPECT_EQ(at(x, y)[0], 0) << x << "," << y;   // B
        EXPECT_EQ(at(x, y)[1], 0) << x << "," << y;   // G
        EXPECT_EQ(at(x, y)[2], 255) << x << "," << y; // R
    }
    EXPECT_FALSE(red(49, 60)); // just outside, the root's pattern
    EXPECT_FALSE(red(250, 160));

    // It follows the screen: the window moves, the next grab shows it there.
    const std::uint32_t moved[] = {400, 300};
    xcb_configure_window(c, window, XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, moved);
    std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    pixels = grabber.grab();
    EXPECT_TRUE(red(450, 350));
    EXPECT_FALSE(red(150, 100));
}

TEST(X11FrameGrabber, WithoutADisplayItSaysSo) {
    try {
        X11FrameGrabber grabber(":4243");
        FAIL() << "connected";
    } catch (const CaptureError& e) {
        EXPECT_EQ(e.kind(), CaptureError::Kind::noDisplayAvailable);
    }
}
