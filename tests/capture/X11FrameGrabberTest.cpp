// The screen read from a real X server (a private Xvfb, and Xorg's dummy driver with two monitors): a window
// of a known colour shows where it is, to the pixel.

#include "capture/X11FrameGrabber.h"
#include "capture/CaptureError.h"
#include "capture/MonitorLayout.h"
#include "capture/X11Connection.h"
#include "support/ColouredWindow.h"
#include "support/Prerequisites.h"
#include "support/Thrown.h"
#include "support/VirtualDisplay.h"

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;

namespace {

// The colour of a grabbed pixel, as 0xRRGGBB.
std::uint32_t colour(const X11FrameGrabber& grabber, const std::uint8_t* pixels, int x, int y) {
    const std::uint8_t* p = pixels + y * grabber.stride() + x * 4;
    return std::uint32_t{p[2]} << 16 | std::uint32_t{p[1]} << 8 | p[0];
}

} // namespace

TEST(X11FrameGrabber, ReadsTheScreenWithAWindowWhereItIs) {
    const VirtualDisplay display;
    MARLOWICK_REQUIRE(xvfb(display));
    const X11Connection connection(display.name());
    ColouredWindow red(connection, 0xff0000, 50, 60, 200, 100);

    X11FrameGrabber grabber(display.name());
    EXPECT_EQ(grabber.width(), 1280);
    EXPECT_EQ(grabber.height(), 720);
    EXPECT_TRUE(grabber.sharesMemory());
    const std::uint8_t* pixels = grabber.grab();
    for (const auto& [x, y] : {std::pair{50, 60}, std::pair{249, 159}, std::pair{150, 100}}) {
        EXPECT_EQ(colour(grabber, pixels, x, y), 0xff0000u) << x << "," << y;
    }
    EXPECT_NE(colour(grabber, pixels, 49, 60), 0xff0000u); // just outside, the root's pattern
    EXPECT_NE(colour(grabber, pixels, 250, 160), 0xff0000u);

    // It follows the screen: the window moves, the next grab shows it there.
    red.moveTo(400, 300);
    pixels = grabber.grab();
    EXPECT_EQ(colour(grabber, pixels, 450, 350), 0xff0000u);
    EXPECT_NE(colour(grabber, pixels, 150, 100), 0xff0000u);
}

TEST(X11FrameGrabber, WithoutADisplayItSaysSo) {
    const auto absent = thrown<CaptureError>([] { X11FrameGrabber(":4243"); });
    ASSERT_TRUE(absent);
    EXPECT_EQ(absent->kind(), CaptureError::Kind::noDisplayAvailable);
}

TEST(X11FrameGrabber, ReadsOnlyTheMonitorsRectangleOfTheRoot) {
    const TwoMonitorDisplay display;
    MARLOWICK_REQUIRE(xorgDummy(display));
    // A red window on the second monitor, 100 pixels in from its top left, and a green one on the first.
    const auto connection = std::make_shared<X11Connection>(display.name());
    const ColouredWindow red(*connection, 0xff0000, 1280 + 100, 120 + 100, 200, 100);
    const ColouredWindow green(*connection, 0x00ff00, 0, 0, 1280, 720);
    X11FrameGrabber grabber(connection, MonitorLayout::read(*connection).choose("DUMMY1"));
    EXPECT_EQ(grabber.width(), 800);
    EXPECT_EQ(grabber.height(), 600);
    EXPECT_EQ(grabber.stride(), 800 * 4);
    const std::uint8_t* pixels = grabber.grab();
    EXPECT_EQ(colour(grabber, pixels, 100, 100), 0xff0000u);
    EXPECT_EQ(colour(grabber, pixels, 299, 199), 0xff0000u);
    EXPECT_NE(colour(grabber, pixels, 99, 100), 0xff0000u);
    EXPECT_NE(colour(grabber, pixels, 300, 200), 0xff0000u);
    // Nothing of the first monitor's window anywhere.
    for (int y = 0; y < 600; y += 7) {
        for (int x = 0; x < 800; x += 7) {
            ASSERT_NE(colour(grabber, pixels, x, y), 0x00ff00u) << x << "," << y;
        }
    }
}
