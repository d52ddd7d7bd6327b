// The capturer on Wayland, end to end without a desktop: a fake screen-sharing portal on a private session
// bus hands out connections to a private PipeWire daemon, where a synthetic producer shares its screen.
// The take, the restore token kept and given again, the telemetry available, and the backend chosen by
// the session's environment.

#include "capture/WaylandScreenCapturer.h"
#include "capture/CaptureBackend.h"
#include "media/VideoDecoder.h"
#include "support/PipeWireDaemon.h"
#include "support/PortalBus.h"
#include "support/SyntheticScreen.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

using namespace marlowick;
using namespace marlowick::test;

namespace {

// A capturer of `screen` through the portal on `bus`, without sound, and without an input device this user
// may read: positions only, whatever the machine's own devices are.
WaylandScreenCapturer::Options sharing(const PortalBus& bus, SyntheticScreen& screen, const TempDir& dir) {
    WaylandScreenCapturer::Options options;
    options.portal = {bus.address(), 10};
    options.soundServer = "unix:/nonexistent";
    options.allowHardware = false;
    options.minimumFreeBytes = 0;
    options.connected = [&screen](std::uint32_t consumer) { screen.link(consumer); };
    writeText(dir / "event0", "not a device");
    options.inputDevices = dir.path();
    return options;
}

CaptureConfiguration configurationIn(const TempDir& dir) {
    CaptureConfiguration configuration;
    configuration.outputURL = dir / "take.mov";
    configuration.frameRate = 60;
    return configuration;
}

} // namespace

TEST(WaylandScreenCapturer, RecordsTheSharedScreenAndKeepsEachRestoreToken) {
    const PipeWireDaemon daemon;
    PortalBus bus;
    MARLOWICK_REQUIRE(pipeWire(daemon), sessionBus(bus));
    SyntheticScreen screen(daemon.connect(), {});
    const std::uint32_t node = screen.nodeId();
    MARLOWICK_REQUIRE(fakePortal(
        bus.startPortal({"--pipewire", daemon.socket().string(), "--node", std::to_string(node)})));
    const TempDir dir;

    std::vector<std::string> stored;
    WaylandScreenCapturer::Options options = sharing(bus, screen, dir);
    options.restoreToken = "token-0";
    options.restoreTokenChanged = [&](const std::string& token) { stored.push_back(token); };
    WaylandScreenCapturer capturer(options);
    EXPECT_EQ(capturer.telemetryAvailability(), TelemetryAvailability::positionOnly);
    EXPECT_THROW(capturer.stop(), CaptureError);

    const CaptureConfiguration configuration = configurationIn(dir);
    for (int take = 1; take <= 2; ++take) {
        SCOPED_TRACE(take);
        capturer.start(configuration);
        EXPECT_EQ(capturer.telemetryAvailability(), TelemetryAvailability::positionOnly);
        ASSERT_TRUE(screen.waitForPictures(screen.sent().size() + 30));
        const Recording recording = capturer.stop();
        EXPECT_FALSE(capturer.interruption());
        EXPECT_EQ(recording.size, (Size{320, 240}));
        EXPECT_GT(capturer.statistics().framesWritten, 20);
        EXPECT_FALSE(recording.inputEvents.empty());
        VideoDecoder decoder(configuration.outputURL);
        EXPECT_EQ(decoder.width(), 320);
    }
    // Each start gave the token the one before it got, and each new one was handed out to be stored.
    EXPECT_EQ(stored, (std::vector<std::string>{"token-1", "token-2"}));
    EXPECT_EQ(capturer.restoreToken(), "token-2");
    std::vector<std::string> given;
    for (const std::string& line : bus.calls()) {
        const auto at = line.find("\"restore_token\": \"");
        if (line.find("SelectSources") != std::string::npos && at != std::string::npos) {
            given.push_back(line.substr(at + 18, line.find('"', at + 18) - at - 18));
        }
    }
    EXPECT_EQ(given, (std::vector<std::string>{"token-0", "token-1"}));
}

// The window asks at every change of the session's phase, on its own thread, also while the capture's
// thread is starting or stopping a take: the answer comes from what the capturer keeps, never from the
// stream being taken down, and the portal is asked for it once, not at every call.
TEST(WaylandScreenCapturer, TelemetryIsAnsweredFromWhatIsKeptWhileTakesStartAndStop) {
    const PipeWireDaemon daemon;
    PortalBus bus;
    MARLOWICK_REQUIRE(pipeWire(daemon), sessionBus(bus));
    SyntheticScreen screen(daemon.connect(), {});
    const std::uint32_t node = screen.nodeId();
    MARLOWICK_REQUIRE(fakePortal(bus.startPortal(
        {"--pipewire", daemon.socket().string(), "--node", std::to_string(node), "--log-properties"})));
    const TempDir dir;
    WaylandScreenCapturer capturer(sharing(bus, screen, dir));

    std::atomic<bool> asking = true;
    std::atomic<int> answers = 0;
    std::atomic<int> wrong = 0;
    std::thread window([&] {
        while (asking) {
            wrong += capturer.telemetryAvailability() != TelemetryAvailability::positionOnly;
            answers += 1;
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
    });
    const CaptureConfiguration configuration = configurationIn(dir);
    constexpr int takes = 3;
    for (int take = 1; take <= takes; ++take) {
        SCOPED_TRACE(take);
        capturer.start(configuration);
        ASSERT_TRUE(screen.waitForPictures(screen.sent().size() + 10));
        capturer.stop();
    }
    asking = false;
    window.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(answers, 20);
    // Each start reads what the portal offers; beyond that, only the first answer asked it.
    int cursorModeReads = 0;
    for (const std::string& line : bus.calls()) {
        cursorModeReads += line.find("\"AvailableCursorModes\"") != std::string::npos;
    }
    EXPECT_LE(cursorModeReads, takes + 1);
}

TEST(WaylandScreenCapturer, ACancelledDialogStartsNothingAndNoPortalMeansNoTelemetry) {
    PortalBus bus;
    MARLOWICK_REQUIRE(sessionBus(bus));
    MARLOWICK_REQUIRE(fakePortal(bus.startPortal({"--cancel", "Start", "--cursor-modes", "3"})));
    const TempDir dir;
    WaylandScreenCapturer::Options options;
    options.portal = {bus.address(), 10};
    WaylandScreenCapturer capturer(options);
    EXPECT_EQ(capturer.telemetryAvailability(), TelemetryAvailability::none); // no pointer metadata
    const auto refused = thrown<CaptureError>([&] { capturer.start(configurationIn(dir)); });
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->kind(), CaptureError::Kind::permissionDenied);
    EXPECT_THROW(capturer.stop(), CaptureError); // nothing runs
    bus.stopPortal();
    EXPECT_EQ(WaylandScreenCapturer(options).telemetryAvailability(), TelemetryAvailability::none);
}

TEST(CaptureBackend, WaylandWhereTheSessionIsOneAndX11Otherwise) {
    const auto with = [](const char* display, const char* type) {
        display != nullptr ? setenv("WAYLAND_DISPLAY", display, 1) : unsetenv("WAYLAND_DISPLAY");
        type != nullptr ? setenv("XDG_SESSION_TYPE", type, 1) : unsetenv("XDG_SESSION_TYPE");
        return sessionCaptureBackend();
    };
    const std::string savedDisplay = std::getenv("WAYLAND_DISPLAY") ? std::getenv("WAYLAND_DISPLAY") : "";
    const std::string savedType = std::getenv("XDG_SESSION_TYPE") ? std::getenv("XDG_SESSION_TYPE") : "";
    EXPECT_EQ(with("wayland-0", nullptr), CaptureBackend::wayland);
    EXPECT_EQ(with(nullptr, "wayland"), CaptureBackend::wayland);
    EXPECT_EQ(with("", "x11"), CaptureBackend::x11);
    EXPECT_EQ(with(nullptr, nullptr), CaptureBackend::x11);
    with(savedDisplay.empty() ? nullptr : savedDisplay.c_str(),
         savedType.empty() ? nullptr : savedType.c_str());
    EXPECT_EQ(captureBackendNamed("wayland"), CaptureBackend::wayland);
    EXPECT_EQ(captureBackendNamed("x11"), CaptureBackend::x11);
    EXPECT_EQ(captureBackendNamed("X11 "), std::nullopt);
}
