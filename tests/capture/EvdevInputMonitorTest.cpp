// Clicks, scrolls and keys from the kernel's input devices: what each kernel event means, its time brought
// onto the monotonic clock, the events placed among the pointer's moves on the movie's clock, directories
// with nothing readable in them, and a real device made through uinput where the machine lets a test make
// one.

#include "capture/EvdevInputMonitor.h"
#include "support/TempDir.h"

#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <time.h>
#include <unistd.h>

using namespace marlowick;
using namespace marlowick::test;
using Kind = InputEvent::Kind;

namespace {

input_event kernelEvent(std::uint16_t type, std::uint16_t code, std::int32_t value, double seconds = 0) {
    input_event event{};
    event.input_event_sec = static_cast<decltype(event.input_event_sec)>(seconds);
    event.input_event_usec =
        static_cast<decltype(event.input_event_usec)>(std::llround((seconds - std::floor(seconds)) * 1e6));
    event.type = type;
    event.code = code;
    event.value = value;
    return event;
}

double now(clockid_t clock) {
    timespec t{};
    clock_gettime(clock, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

} // namespace

TEST(EvdevInputMonitor, KeepsTheLeftButtonEachWheelNotchAndKeyPresses) {
    const auto kinds = [](std::uint16_t type, std::uint16_t code, std::int32_t value) {
        return EvdevInputMonitor::translate(kernelEvent(type, code, value));
    };
    using Kinds = std::vector<Kind>;
    EXPECT_EQ(kinds(EV_KEY, BTN_LEFT, 1), Kinds{Kind::down});
    EXPECT_EQ(kinds(EV_KEY, BTN_LEFT, 0), Kinds{Kind::up});
    // The other buttons, and a touchpad's finger, aren't clicks the director reads.
    EXPECT_EQ(kinds(EV_KEY, BTN_RIGHT, 1), Kinds{});
    EXPECT_EQ(kinds(EV_KEY, BTN_MIDDLE, 1), Kinds{});
    EXPECT_EQ(kinds(EV_KEY, BTN_TOUCH, 1), Kinds{});
    EXPECT_EQ(kinds(EV_KEY, BTN_TRIGGER_HAPPY1, 1), Kinds{});

    // One scroll per notch, either way, on either wheel; the high-resolution twin of a notch isn't another.
    EXPECT_EQ(kinds(EV_REL, REL_WHEEL, 1), Kinds{Kind::scroll});
    EXPECT_EQ(kinds(EV_REL, REL_WHEEL, -3), (Kinds{Kind::scroll, Kind::scroll, Kind::scroll}));
    EXPECT_EQ(kinds(EV_REL, REL_HWHEEL, 2), (Kinds{Kind::scroll, Kind::scroll}));
    EXPECT_EQ(kinds(EV_REL, REL_WHEEL_HI_RES, 120), Kinds{});
    EXPECT_EQ(kinds(EV_REL, REL_X, 5), Kinds{}); // motion comes from the screen's cursor metadata
    EXPECT_EQ(kinds(EV_REL, REL_WHEEL, 100000).size(), 32u);

    // A key counts when it goes down: not its repeats while held, not its release.
    EXPECT_EQ(kinds(EV_KEY, KEY_A, 1), Kinds{Kind::keyPress});
    EXPECT_EQ(kinds(EV_KEY, KEY_A, 2), Kinds{});
    EXPECT_EQ(kinds(EV_KEY, KEY_A, 0), Kinds{});
    EXPECT_EQ(kinds(EV_KEY, KEY_ENTER, 1), Kinds{Kind::keyPress});
    EXPECT_EQ(kinds(EV_KEY, KEY_OK, 1), Kinds{Kind::keyPress}); // the keys above the buttons' range
    EXPECT_EQ(kinds(EV_SYN, SYN_REPORT, 0), Kinds{});
    EXPECT_EQ(kinds(EV_MSC, MSC_SCAN, 30), Kinds{});
}

TEST(EvdevInputMonitor, BringsADevicesTimeOntoTheMonotonicClock) {
    // A device on the monotonic clock, as the monitor sets each: its stamp is the time.
    const input_event onMonotonic = kernelEvent(EV_KEY, BTN_LEFT, 1, 1234.5);
    EXPECT_DOUBLE_EQ(EvdevInputMonitor::monotonicSeconds(onMonotonic, std::nullopt), 1234.5);

    // One that still stamps with the real-time clock: stamped now, it reads as now on the monotonic one.
    const double ahead = now(CLOCK_REALTIME) - now(CLOCK_MONOTONIC);
    const double monotonic = now(CLOCK_MONOTONIC);
    const input_event onRealtime = kernelEvent(EV_KEY, BTN_LEFT, 1, now(CLOCK_REALTIME));
    EXPECT_NEAR(EvdevInputMonitor::monotonicSeconds(onRealtime, ahead), monotonic, 0.01);
    EXPECT_GT(std::abs(EvdevInputMonitor::monotonicSeconds(onRealtime, std::nullopt) - monotonic), 1000.0)
        << "the two clocks should be far apart on any running system";
}

TEST(EvdevInputMonitor, PlacesClicksWhereThePointerLastMovedAndHeldMovesBecomeDrags) {
    const double start = 5000; // the movie's first picture, on the monotonic clock
    const std::vector<InputEvent> moves{
        {0.0, Kind::move, {10, 10}}, {0.5, Kind::move, {20, 20}}, {1.0, Kind::move, {30, 30}},
        {1.5, Kind::move, {40, 40}}, {2.0, Kind::move, {50, 50}},
    };
    const std::vector<EvdevInputMonitor::DeviceEvent> events{
        {start - 0.2, Kind::down},     // held from before the movie: its first moves are drags
        {start + 0.7, Kind::up},       //
        {start + 1.0, Kind::keyPress}, // at the same time as a move: after it, at its place
        {start + 1.2, Kind::down},     //
        {start + 1.8, Kind::up},       //
        {start + 2.5, Kind::scroll},   // after the movie's end
    };
    const std::vector<InputEvent> placed = EvdevInputMonitor::placed(moves, events, start, 2.2);
    const std::vector<InputEvent> expected{
        {0.0, Kind::drag, {10, 10}}, {0.5, Kind::drag, {20, 20}},     {0.7, Kind::up, {20, 20}},
        {1.0, Kind::move, {30, 30}}, {1.0, Kind::keyPress, {30, 30}}, {1.2, Kind::down, {30, 30}},
        {1.5, Kind::drag, {40, 40}}, {1.8, Kind::up, {40, 40}},       {2.0, Kind::move, {50, 50}},
    };
    ASSERT_EQ(placed.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_NEAR(placed[i].time, expected[i].time, 1e-9);
        EXPECT_EQ(placed[i].kind, expected[i].kind);
        EXPECT_EQ(placed[i].location, expected[i].location);
    }

    // A click before the pointer's first reported move is where the pointer first showed.
    const std::vector<InputEvent> late{{1.0, Kind::move, {70, 80}}};
    const std::vector<InputEvent> early =
        EvdevInputMonitor::placed(late, {{start + 0.25, Kind::down}}, start, 2);
    ASSERT_EQ(early.size(), 2u);
    EXPECT_EQ(early[0], (InputEvent{0.25, Kind::down, {70, 80}}));
    EXPECT_EQ(early[1].kind, Kind::drag);

    // With no position at all, a click has nowhere to go.
    EXPECT_TRUE(EvdevInputMonitor::placed({}, events, start, 2.2).empty());
}

TEST(EvdevInputMonitor, FindsNothingToReadAmongFilesThatAreNoInputDevices) {
    const TempDir dir;
    writeText(dir / "event0", "not a device");
    ASSERT_EQ(mkfifo((dir / "event1").c_str(), 0600), 0);
    writeText(dir / "mouse0", "");
    std::filesystem::create_directory(dir / "event2");
    EXPECT_TRUE(EvdevInputMonitor::readableDevices(dir.path()).empty());
    EXPECT_TRUE(EvdevInputMonitor::readableDevices(dir / "absent").empty());

    EvdevInputMonitor monitor(dir.path());
    EXPECT_FALSE(monitor.start());
    EXPECT_EQ(monitor.deviceCount(), 0u);
    EXPECT_TRUE(monitor.stop().empty());
}

// The one test that can't run on every machine: making an input device needs /dev/uinput, which
// containers and most CI runners don't have.
TEST(EvdevInputMonitor, ReadsARealDevicesClicksWheelAndKeysOnTheMonotonicClock) {
    const int uinput = ::open("/dev/uinput", O_RDWR | O_CLOEXEC);
    if (uinput < 0) {
        GTEST_SKIP() << "/dev/uinput can't be opened here (" << std::strerror(errno)
                     << "), so no input device can be made for the test";
    }
    libevdev* prototype = libevdev_new();
    libevdev_set_name(prototype, "marlowick test pointer and keys");
    libevdev_enable_event_type(prototype, EV_REL);
    for (unsigned code : {REL_X, REL_Y, REL_WHEEL}) {
        libevdev_enable_event_code(prototype, EV_REL, code, nullptr);
    }
    libevdev_enable_event_type(prototype, EV_KEY);
    for (unsigned code : {BTN_LEFT, BTN_RIGHT, KEY_A}) {
        libevdev_enable_event_code(prototype, EV_KEY, code, nullptr);
    }
    libevdev_uinput* device = nullptr;
    const int made = libevdev_uinput_create_from_device(prototype, uinput, &device);
    libevdev_free(prototype);
    ASSERT_EQ(made, 0) << std::strerror(-made);
    const char* node = libevdev_uinput_get_devnode(device);
    ASSERT_NE(node, nullptr);

    // The monitor watches a directory holding only this device, so that the machine's own don't mix in.
    const TempDir dir;
    std::filesystem::create_symlink(node, dir / "event0");
    for (int i = 0; i < 200 && EvdevInputMonitor::readableDevices(dir.path()).empty(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // until udev has set its node up
    }
    ASSERT_EQ(EvdevInputMonitor::readableDevices(dir.path()).size(), 1u);

    EvdevInputMonitor monitor(dir.path());
    ASSERT_TRUE(monitor.start());
    const double before = now(CLOCK_MONOTONIC);
    const auto send = [&](unsigned type, unsigned code, int value) {
        libevdev_uinput_write_event(device, type, code, value);
        libevdev_uinput_write_event(device, EV_SYN, SYN_REPORT, 0);
    };
    send(EV_REL, REL_X, 10);
    send(EV_KEY, BTN_LEFT, 1);
    send(EV_REL, REL_WHEEL, -2);
    send(EV_KEY, BTN_RIGHT, 1);
    send(EV_KEY, BTN_RIGHT, 0);
    send(EV_KEY, KEY_A, 1);
    send(EV_KEY, KEY_A, 0);
    send(EV_KEY, BTN_LEFT, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // for the reader to catch up
    const double after = now(CLOCK_MONOTONIC);
    const std::vector<EvdevInputMonitor::DeviceEvent> events = monitor.stop();
    libevdev_uinput_destroy(device);
    ::close(uinput);

    std::vector<Kind> kinds;
    for (const EvdevInputMonitor::DeviceEvent& event : events) {
        kinds.push_back(event.kind);
        EXPECT_GE(event.time, before - 0.001) << "not on the monotonic clock";
        EXPECT_LE(event.time, after);
    }
    EXPECT_EQ(kinds, (std::vector<Kind>{Kind::down, Kind::scroll, Kind::scroll, Kind::keyPress, Kind::up}));
}
