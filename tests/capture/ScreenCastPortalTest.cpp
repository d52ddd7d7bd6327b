// Asking for the screen through a fake screen-sharing portal on a private session bus: the calls and
// their order, the options they carry, a cancelled dialog, and a bus with no portal or no bus at all. (The
// restore token given again at the next start, the Wayland capturer's test follows through its takes.)

#include "capture/ScreenCastPortal.h"
#include "capture/CaptureError.h"
#include "support/PortalBus.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>

using namespace marlowick;
using namespace marlowick::test;

namespace {

std::vector<nlohmann::json> parsed(const std::vector<std::string>& lines) {
    std::vector<nlohmann::json> calls;
    for (const std::string& line : lines) {
        calls.push_back(nlohmann::json::parse(line));
    }
    return calls;
}

std::vector<std::string> methods(const std::vector<nlohmann::json>& calls) {
    std::vector<std::string> names;
    for (const nlohmann::json& call : calls) {
        names.push_back(call["method"]);
    }
    return names;
}

// How asking the portal at `address` for the screen failed; none where it shared it.
std::optional<CaptureError> refusal(const std::string& address) {
    return thrown<CaptureError>([&] { ScreenCastPortal({address, 10}).open(""); });
}

} // namespace

TEST(ScreenCastPortal, RunsTheFlowInOrderAskingForAMonitorAndThePointerAsMetadata) {
    PortalBus bus;
    MARLOWICK_REQUIRE(sessionBus(bus));
    MARLOWICK_REQUIRE(fakePortal(bus.startPortal()));
    ScreenCastPortal portal({bus.address(), 10});

    const ScreenCastPortal::Share first = portal.open("");
    EXPECT_EQ(first.node, 57u);
    EXPECT_EQ(first.size, (Size{320, 240}));
    EXPECT_TRUE(first.cursorMetadata);
    EXPECT_EQ(first.restoreToken, "token-1");
    struct stat status {};
    EXPECT_EQ(fstat(first.fd, &status), 0) << "the PipeWire connection isn't open";
    ::close(first.fd);
    portal.close();

    const std::vector<nlohmann::json> calls = parsed(bus.calls());
    EXPECT_EQ(methods(calls), (std::vector<std::string>{"CreateSession", "SelectSources", "Start",
                                                        "OpenPipeWireRemote", "Close"}));
    const nlohmann::json& selected = calls.at(1)["options"];
    EXPECT_EQ(selected["types"], 1);        // a monitor
    EXPECT_EQ(selected["cursor_mode"], 4);  // the pointer as metadata
    EXPECT_EQ(selected["persist_mode"], 2); // until revoked
    EXPECT_EQ(selected["multiple"], false);
    EXPECT_FALSE(selected.contains("restore_token"));
}

TEST(ScreenCastPortal, HidesThePointerWhereNoMetadataIsOfferedAndPersistsOnlyWhereItCan) {
    PortalBus bus;
    MARLOWICK_REQUIRE(sessionBus(bus));
    MARLOWICK_REQUIRE(fakePortal(bus.startPortal({"--cursor-modes", "3", "--version", "3"})));
    ScreenCastPortal portal({bus.address(), 10});
    const ScreenCastPortal::Share share = portal.open("token-9");
    ::close(share.fd);
    EXPECT_FALSE(share.cursorMetadata);
    const std::vector<nlohmann::json> calls = parsed(bus.calls());
    const nlohmann::json& selected = calls.at(1)["options"];
    EXPECT_EQ(selected["cursor_mode"], 1); // hidden: the picture never holds the pointer
    EXPECT_FALSE(selected.contains("persist_mode"));
    EXPECT_FALSE(selected.contains("restore_token"));
}

TEST(ScreenCastPortal, ASessionTheStartingBackendEndsIsAskedForOnceMore) {
    PortalBus bus;
    MARLOWICK_REQUIRE(sessionBus(bus));
    MARLOWICK_REQUIRE(fakePortal(bus.startPortal({"--end-first", "CreateSession"})));
    ScreenCastPortal portal({bus.address(), 10});
    EXPECT_NO_THROW(portal.open(""));
    const std::vector<std::string> names = methods(parsed(bus.calls()));
    EXPECT_EQ(std::count(names.begin(), names.end(), "CreateSession"), 2);
    EXPECT_EQ(std::count(names.begin(), names.end(), "OpenPipeWireRemote"), 1);
    // A dialog's request that the portal ends is not asked again: it would show the dialog twice.
    MARLOWICK_REQUIRE(fakePortal(bus.startPortal({"--end-first", "SelectSources"})));
    const auto ended = refusal(bus.address());
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->kind(), CaptureError::Kind::captureUnavailable);
    EXPECT_NE(std::string(ended->what()).find("could not set up"), std::string::npos) << ended->what();
}

TEST(ScreenCastPortal, ACancelledDialogIsPermissionDeniedAndClosesTheSession) {
    PortalBus bus;
    MARLOWICK_REQUIRE(sessionBus(bus));
    for (const char* method : {"SelectSources", "Start"}) {
        SCOPED_TRACE(method);
        MARLOWICK_REQUIRE(fakePortal(bus.startPortal({"--cancel", method})));
        const auto cancelled = refusal(bus.address());
        ASSERT_TRUE(cancelled);
        EXPECT_EQ(cancelled->kind(), CaptureError::Kind::permissionDenied);
        const std::vector<std::string> names = methods(parsed(bus.calls()));
        ASSERT_FALSE(names.empty());
        EXPECT_EQ(names.back(), "Close");
        EXPECT_EQ(std::count(names.begin(), names.end(), "OpenPipeWireRemote"), 0);
    }
}

TEST(ScreenCastPortal, NoPortalOrNoBusIsCaptureUnavailableNamingWhatIsMissing) {
    PortalBus bus;
    MARLOWICK_REQUIRE(sessionBus(bus));
    const auto names = [](const std::optional<CaptureError>& e, const std::string& missing) {
        ASSERT_TRUE(e) << "the screen was shared without " << missing;
        EXPECT_EQ(e->kind(), CaptureError::Kind::captureUnavailable);
        EXPECT_NE(std::string(e->what()).find(missing), std::string::npos) << e->what();
    };
    names(refusal(bus.address()), "xdg-desktop-portal");
    // A portal whose desktop has no screen-sharing backend names the backends to install.
    ASSERT_TRUE(bus.startPortal({"--no-screencast"}));
    names(refusal(bus.address()), "xdg-desktop-portal-gnome");
    names(refusal("unix:path=/nonexistent/bus"), "session bus");
}
