// The input monitor on a real X server (Xvfb started by the fixture), driven by XTEST: clicks, drags,
// scrolls and key presses come back as telemetry at their pixel positions and times.

#include "capture/InputMonitor.h"
#include "support/FakeUser.h"
#include "support/Prerequisites.h"
#include "support/VirtualDisplay.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace marlowick;
using namespace marlowick::test;
using namespace std::chrono_literals;

namespace {

double since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

TEST(InputMonitor, TheTapSeesClicksDragsScrollsAndKeysWhereAndWhenTheyHappen) {
    const VirtualDisplay display;
    MARLOWICK_REQUIRE(xvfb(display));
    ASSERT_TRUE(InputMonitor::isEventTapPermitted(display.name()));
    FakeUser user(display.name());
    InputMonitor monitor(display.name());
    const auto start = std::chrono::steady_clock::now();
    monitor.start();
    ASSERT_EQ(monitor.mode(), InputMonitor::Mode::tapping);

    struct Expected {
        InputEvent::Kind kind;
        double x, y;
        double before, after; // seconds: when the fake input was sent, and when the server had it
    };
    std::vector<Expected> expected;
    auto step = [&](InputEvent::Kind kind, double x, double y, auto&& act) {
        std::this_thread::sleep_for(60ms);
        const double before = since(start);
        act();
        expected.push_back({kind, x, y, before, since(start)});
    };
    step(InputEvent::Kind::move, 100, 200, [&] { user.moveTo(100, 200); });
    step(InputEvent::Kind::down, 100, 200, [&] { user.press(1); });
    step(InputEvent::Kind::drag, 300, 400, [&] { user.moveTo(300, 400); });
    step(InputEvent::Kind::up, 300, 400, [&] { user.release(1); });
    step(InputEvent::Kind::scroll, 300, 400, [&] {
        user.press(4);
        user.release(4);
    });
    step(InputEvent::Kind::keyPress, 300, 400, [&] { user.key(38); });
    user.press(3); // the right button is no action of ours
    user.release(3);
    std::this_thread::sleep_for(50ms);
    const std::vector<InputEvent> events = monitor.stop();
    EXPECT_EQ(monitor.mode(), InputMonitor::Mode::stopped);

    ASSERT_EQ(events.size(), expected.size());
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i].kind, expected[i].kind) << i;
        EXPECT_EQ(events[i].location.x, expected[i].x) << i;
        EXPECT_EQ(events[i].location.y, expected[i].y) << i;
        EXPECT_GE(events[i].time, expected[i].before - 0.02) << i;
        EXPECT_LE(events[i].time, expected[i].after + 0.02) << i;
    }
}

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
