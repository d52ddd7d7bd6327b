// The input monitor on a real X server (Xvfb started by the fixture) where it doesn't tap the server's
// events: positions only, polled. What the tap sees is tested through the X11 capturer's take.

#include "capture/InputMonitor.h"
#include "support/FakeUser.h"
#include "support/Prerequisites.h"
#include "support/VirtualDisplay.h"

#include <gtest/gtest.h>

#include <thread>

using namespace marlowick;
using namespace marlowick::test;
using namespace std::chrono_literals;

TEST(InputMonitor, PollingGivesPositionsOnly120TimesASecondAndARestartForgets) {
    const VirtualDisplay display;
    MARLOWICK_REQUIRE(xvfb(display));
    FakeUser user(display.name());
    user.moveTo(640, 10);
    InputMonitor monitor(display.name(), false);
    monitor.start();
    ASSERT_EQ(monitor.mode(), InputMonitor::Mode::polling);
    std::this_thread::sleep_for(200ms);
    monitor.start(); // begins again, empty
    user.press(1);
    std::this_thread::sleep_for(500ms);
    user.release(1);
    const std::vector<InputEvent> events = monitor.stop();
    EXPECT_NEAR(static_cast<double>(events.size()), 60, 8);
    for (const InputEvent& e : events) {
        EXPECT_EQ(e.kind, InputEvent::Kind::move);
        EXPECT_EQ(e.location.x, 640);
        EXPECT_EQ(e.location.y, 10);
        EXPECT_GE(e.time, 0);
        EXPECT_LT(e.time, 0.6);
    }
}

TEST(InputMonitor, WithoutADisplayNothingIsRecorded) {
    InputMonitor monitor(":4242");
    EXPECT_FALSE(InputMonitor::isEventTapPermitted(":4242"));
    monitor.start();
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(monitor.stop().empty());
}
