// The screen read from a real X server (a private Xvfb, and Xorg's dummy driver with two monitors): a window
// of a known colour shows where it is.

#include "capture/X11FrameGrabber.h"
#include "capture/CaptureError.h"
#include "capture/MonitorLayout.h"
#include "capture/X11Connection.h"
#include "support/ColouredWindow.h"
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

TEST(X11FrameGrabber, ReadsOnlyTheMonitorsRectangleOfTheRoot) {
    const TwoMonitorDisplay display;
    MARLOWICK_REQUIRE(xorgDummy(display));
    // A red window on the second monitor, 100 pixels in from its top left, and a green one on the first.
    const auto connection = std::make_shared<X11Connection>(display.name());
    const ColouredWindow red(*connection, 0xff0000, 1280 + 100, 120 + 100, 200, 100);
    const ColouredWindow green(*connection, 0x00ff00, 0, 0, 1280, 720);
    const ScreenMonitor second = MonitorLayout::read(*connection).choose("DUMMY1");

    X11FrameGrabber grabber(connection, second);
    EXPECT_EQ(grabber.width(), 800);
    EXPECT_EQ(grabber.height(), 600);
    EXPECT_EQ(grabber.stride(), 800 * 4);
    EXPECT_TRUE(grabber.sharesMemory());
    const std::uint8_t* pixels = grabber.grab();
    const auto colour = [&](int x, int y) {
        const std::uint8_t* p = pixels + y * grabber.stride() + x * 4;
        return std::uint32_t{p[2]} << 16 | std::uint32_t{p[1]} << 8 | p[0];
    };
    EXPECT_EQ(colour(100, 100), 0xff0000u);
    EXPECT_EQ(colour(299, 199), 0xff0000u);
    EXPECT_NE(colour(99, 100), 0xff0000u);
    EXPECT_NE(colour(300, 200), 0xff0000u);
    // Nothing of the first monitor's window anywhere.
    for (int y = 0; y < 600; y += 7) {
        for (int x = 0; x < 800; x += 7) {
            ASSERT_NE(colour(x, y), 0x00ff00u) << x << "," << y;
        }
    }
}
