// The monitors of an X screen: which one a take records and the rectangle it reads, how a place on the
// root becomes a place on that monitor, and the layout RandR gives on a real server (Xorg's dummy driver
// with two monitors on one root).

#include "capture/MonitorLayout.h"
#include "capture/CaptureError.h"
#include "capture/X11Connection.h"
#include "support/Prerequisites.h"
#include "support/Thrown.h"
#include "support/TwoMonitorDisplay.h"

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;

namespace {

// Two full-HD monitors side by side, the right one primary, on a root that holds both.
MonitorLayout sideBySide() {
    return MonitorLayout({{"HDMI-1", 0, 0, 1920, 1080, false}, {"DP-2", 1920, 0, 1920, 1080, true}}, 3840,
                         1080);
}

} // namespace

TEST(MonitorLayout, ATakeRecordsTheNamedMonitorOrThePrimaryOne) {
    const MonitorLayout layout = sideBySide();
    EXPECT_EQ(layout.choose(""), (ScreenMonitor{"DP-2", 1920, 0, 1920, 1080, true}));
    EXPECT_EQ(layout.choose("HDMI-1"), (ScreenMonitor{"HDMI-1", 0, 0, 1920, 1080, false}));
    const auto unknown = thrown<CaptureError>([&] { layout.choose("VGA-1"); });
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->kind(), CaptureError::Kind::unknownMonitor);
    EXPECT_STREQ(unknown->what(), "VGA-1; the monitors are HDMI-1 (1920×1080) and DP-2 (1920×1080, primary)");

    // Exactly one is primary: the first where RandR names none, the first RandR names where it names two.
    const MonitorLayout none({{"A", 0, 0, 100, 100, false}, {"B", 100, 0, 100, 100, false}}, 200, 100);
    EXPECT_EQ(none.choose("").name, "A");
    EXPECT_FALSE(none.monitors()[1].primary);
    const MonitorLayout two(
        {{"A", 0, 0, 100, 100, false}, {"B", 100, 0, 100, 100, true}, {"C", 0, 100, 100, 100, true}}, 200,
        200);
    EXPECT_EQ(two.choose("").name, "B");
    EXPECT_FALSE(two.monitors()[2].primary);
    EXPECT_EQ(two.listing(), "A (100×100), B (100×100, primary) and C (100×100)");
}

TEST(MonitorLayout, EachRectangleLiesWithinTheRootAndNothingLeftMeansTheWholeRoot) {
    // A monitor hanging over the root's edges is cut to it; one wholly outside is left out.
    const MonitorLayout layout({{"over", -10, 700, 300, 100, false},
                                {"beyond", 1280, 0, 640, 480, true},
                                {"inside", 200, 100, 640, 480, false}},
                               1280, 720);
    ASSERT_EQ(layout.monitors().size(), 2u);
    EXPECT_EQ(layout.monitors()[0], (ScreenMonitor{"over", 0, 700, 290, 20, true}));
    EXPECT_EQ(layout.monitors()[1], (ScreenMonitor{"inside", 200, 100, 640, 480, false}));

    // Where RandR gives nothing, the whole root is the one monitor.
    const MonitorLayout bare({}, 1280, 720);
    ASSERT_EQ(bare.monitors().size(), 1u);
    EXPECT_EQ(bare.choose(""), (ScreenMonitor{"screen", 0, 0, 1280, 720, true}));
}

TEST(MonitorLayout, PlacesOnTheRootBecomePlacesOnTheMonitorAndThoseOutsideItAreNone) {
    const ScreenMonitor right = sideBySide().choose("DP-2");
    EXPECT_EQ(right.place({1920, 0}), (Point{0, 0}));
    EXPECT_EQ(right.place({2500.5, 300}), (Point{580.5, 300}));
    EXPECT_EQ(right.place({3839, 1079}), (Point{1919, 1079}));
    EXPECT_FALSE(right.place({1919, 500})); // on the other monitor
    EXPECT_FALSE(right.place({3840, 500})); // past the right edge
    EXPECT_FALSE(right.place({2000, 1080}));
    EXPECT_FALSE(right.place({2000, -1}));
    const ScreenMonitor lower{"lower", 100, 200, 50, 40, false};
    EXPECT_EQ(lower.place({100, 200}), (Point{0, 0}));
    EXPECT_FALSE(lower.place({120, 199}));
}

TEST(MonitorLayout, RandRGivesTheMonitorsOfOneRoot) {
    const TwoMonitorDisplay display;
    MARLOWICK_REQUIRE(xorgDummy(display));
    const X11Connection connection(display.name());
    const std::vector<ScreenMonitor> expected{{"DUMMY0", 0, 0, 1280, 720, true},
                                              {"DUMMY1", 1280, 120, 800, 600, false}};
    EXPECT_EQ(MonitorLayout::read(connection).monitors(), expected) << display.log();
    // A server without RandR 1.5's monitors lists the same from its outputs' CRTCs.
    EXPECT_EQ(MonitorLayout::readOutputs(connection).monitors(), expected);
}
