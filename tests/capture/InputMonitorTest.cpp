// The input monitor on a real X server (Xvfb started by the fixture), driven by XTEST: clicks, drags,
// scrolls and key presses come back as telemetry at their pixel positions and times.

#include "capture/InputMonitor.h"
#include "support/VirtualDisplay.h"

#include <xcb/xcb.h>
#include <xcb/xtest.h>

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

// Fakes input on the display through XTEST, as a user would give it.
class FakeUser {
public:
    explicit FakeUser(const std::string& display)
        : m_connection(xcb_connect(display.c_str(), nullptr)) {
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    }
    ~FakeUser() { xcb_disconnect(m_connection); }

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

    xcb_connection_t* m_connection;
    xcb_window_t m_root;
};

double since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

TEST(InputMonitor, TheTapSeesClicksDragsScrollsAndKeysWhereAndWhenTheyHappen) {
    const VirtualDisplay display;
    if (display.name().empty()) {
        GTEST_SKIP() << "no Xvfb";
    }
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
    if (display.name().empty()) {
        GTEST_SKIP() << "no Xvfb";
    }
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
