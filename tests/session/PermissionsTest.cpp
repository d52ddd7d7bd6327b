// The permissions as the onboarding sheet reads them: the object's bookkeeping over fake probes, and the
// system's probes against a private X display and sound server, with and without what each one needs, and
// on Wayland against a fake screen-sharing portal on a private session bus.

#include "session/Permissions.h"
#include "session/SystemPermissionProbes.h"
#include "support/PortalBus.h"
#include "support/Prerequisites.h"
#include "support/SoundServer.h"
#include "support/TempDir.h"
#include "support/VirtualDisplay.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

using Item = Permissions::Item;
using State = Permissions::State;

// Answers with whatever reading it is given, counting reads and the settings it was asked to open.
struct ProbeScript {
    PermissionReading reading;
    int reads = 0;
    int settingsOpened = 0;
};

class ScriptedProbe : public PermissionProbe {
public:
    explicit ScriptedProbe(std::shared_ptr<ProbeScript> script)
        : m_script(std::move(script)) {}
    PermissionReading read() override {
        ++m_script->reads;
        return m_script->reading;
    }
    bool openSettings() override {
        ++m_script->settingsOpened;
        return true;
    }

private:
    std::shared_ptr<ProbeScript> m_script;
};

struct ScriptedSystem {
    std::shared_ptr<ProbeScript> screen = std::make_shared<ProbeScript>();
    std::shared_ptr<ProbeScript> accessibility = std::make_shared<ProbeScript>();
    std::shared_ptr<ProbeScript> microphone = std::make_shared<ProbeScript>();
    std::shared_ptr<ProbeScript> speech = std::make_shared<ProbeScript>();

    PermissionProbes probes() const {
        return {std::make_unique<ScriptedProbe>(screen), std::make_unique<ScriptedProbe>(accessibility),
                std::make_unique<ScriptedProbe>(microphone), std::make_unique<ScriptedProbe>(speech)};
    }
};

// Sets an environment variable for the object's lifetime.
class EnvironmentOverride {
public:
    EnvironmentOverride(const char* name, const std::string& value)
        : m_name(name) {
        if (const char* old = std::getenv(name)) {
            m_previous = old;
        }
        setenv(name, value.c_str(), 1);
    }
    ~EnvironmentOverride() {
        if (m_previous) {
            setenv(m_name, m_previous->c_str(), 1);
        } else {
            unsetenv(m_name);
        }
    }

private:
    const char* m_name;
    std::optional<std::string> m_previous;
};

} // namespace

TEST(Permissions, RefreshReadsEachItemAndNotifiesOnlyChanges) {
    ScriptedSystem system;
    system.screen->reading = {State::granted, "display"};
    system.accessibility->reading = {State::notAsked, "no RECORD"};
    system.microphone->reading = {State::denied, "no microphone"};
    system.speech->reading = {State::granted, "English"};
    Permissions permissions(system.probes());
    for (const Item item : Permissions::items) {
        EXPECT_EQ(permissions.state(item), State::notAsked);
    }
    QSignalSpy changed(&permissions, &Permissions::changed);

    permissions.refresh();
    EXPECT_EQ(permissions.state(Item::screenRecording), State::granted);
    EXPECT_EQ(permissions.state(Item::accessibility), State::notAsked);
    EXPECT_EQ(permissions.reading(Item::accessibility).detail, "no RECORD");
    EXPECT_EQ(permissions.state(Item::microphone), State::denied);
    EXPECT_EQ(permissions.state(Item::speech), State::granted);
    // Accessibility was already notAsked, but its detail is new.
    EXPECT_EQ(changed.count(), 4);

    changed.clear();
    permissions.refresh();
    EXPECT_EQ(changed.count(), 0) << "the same readings again notify nothing";

    system.microphone->reading = {State::granted, "a microphone"};
    permissions.refresh();
    ASSERT_EQ(changed.count(), 1);
    EXPECT_EQ(changed.at(0).at(0).value<PermissionItem>(), Item::microphone);
    EXPECT_EQ(permissions.state(Item::microphone), State::granted);
}

TEST(Permissions, RequestOpensSettingsOnlyForARefusalAndRereadsEverything) {
    ScriptedSystem system;
    system.screen->reading = {State::notAsked, "no display"};
    system.microphone->reading = {State::denied, "no microphone"};
    Permissions permissions(system.probes());

    permissions.request(Item::microphone);
    EXPECT_EQ(system.microphone->settingsOpened, 1);
    EXPECT_EQ(permissions.state(Item::microphone), State::denied) << "a refusal leaves the state as it is";
    EXPECT_GE(system.speech->reads, 1) << "a request reads all four again";

    permissions.request(Item::screenRecording);
    EXPECT_EQ(system.screen->settingsOpened, 0) << "an item that wasn't refused has no settings to open";

    // Granted in the meantime: the request finds it so.
    system.screen->reading = {State::granted, "display"};
    permissions.request(Item::screenRecording);
    EXPECT_EQ(permissions.state(Item::screenRecording), State::granted);
    EXPECT_EQ(system.screen->settingsOpened, 0);
}

TEST(SystemPermissionProbes, ReadTheDisplayAndTheSoundServerThatAnswer) {
    const VirtualDisplay display;
    const SoundServer sound;
    MARLOWICK_REQUIRE(xvfb(display), pulseAudio(sound));
    Permissions permissions(systemPermissionProbes(
        {display.name(), sound.server(), SpeechRoots::standard(), CaptureBackend::x11}));
    permissions.refresh();

    EXPECT_EQ(permissions.state(Item::screenRecording), State::granted)
        << permissions.reading(Item::screenRecording).detail;
    EXPECT_NE(permissions.reading(Item::screenRecording).detail.find(display.name()), std::string::npos);
    EXPECT_EQ(permissions.state(Item::accessibility), State::granted)
        << permissions.reading(Item::accessibility).detail;
    // The fixture's microphone is a remap of a null sink's monitor: a source of its own, not a monitor.
    EXPECT_EQ(permissions.state(Item::microphone), State::granted)
        << permissions.reading(Item::microphone).detail;
    // scripts/install-deps installs pocketsphinx-en-us.
    EXPECT_EQ(permissions.state(Item::speech), State::granted) << permissions.reading(Item::speech).detail;
    EXPECT_NE(permissions.reading(Item::speech).detail.find("English"), std::string::npos);
}

TEST(SystemPermissionProbes, SayWhatIsMissing) {
    const VirtualDisplay display(false);
    const SoundServer sound;
    MARLOWICK_REQUIRE(xvfb(display), pulseAudio(sound));
    const TempDir noModels;
    const TempDir noServer;
    {
        Permissions permissions(
            systemPermissionProbes({display.name(), "unix:" + (noServer / "native").string(),
                                    SpeechRoots{{noModels.path()}}, CaptureBackend::x11}));
        permissions.refresh();
        EXPECT_EQ(permissions.state(Item::screenRecording), State::granted);
        EXPECT_EQ(permissions.state(Item::accessibility), State::notAsked);
        EXPECT_NE(permissions.reading(Item::accessibility).detail.find("RECORD"), std::string::npos);
        EXPECT_EQ(permissions.state(Item::microphone), State::notAsked) << "no server answers";
        EXPECT_EQ(permissions.state(Item::speech), State::notAsked);
        EXPECT_NE(permissions.reading(Item::speech).detail.find("pocketsphinx-en-us"), std::string::npos);
    }
    {
        // No display answers at all: neither the screen nor the clicks can be read.
        Permissions permissions(systemPermissionProbes(
            {":1023", sound.server(), SpeechRoots{{noModels.path()}}, CaptureBackend::x11}));
        permissions.refresh();
        EXPECT_EQ(permissions.state(Item::screenRecording), State::notAsked);
        EXPECT_NE(permissions.reading(Item::screenRecording).detail.find(":1023"), std::string::npos);
        EXPECT_EQ(permissions.state(Item::accessibility), State::notAsked);
    }
}

TEST(SystemPermissionProbes, AServerWithoutAMicrophoneDeniesItAndItsRequestOpensTheMixer) {
    const SoundServer sound;
    MARLOWICK_REQUIRE(pulseAudio(sound));
    ASSERT_TRUE(sound.run("pactl unload-module module-remap-source"));
    // A mixer of our own on PATH, where the desktop is none in particular, notes that it was started.
    const TempDir bin;
    const fs::path started = bin / "started";
    writeText(bin / "pavucontrol", "#!/bin/sh\necho \"$@\" > '" + started.string() + "'\n");
    fs::permissions(bin / "pavucontrol", fs::perms::owner_all);
    const EnvironmentOverride path("PATH", bin.path().string() + ":" + std::getenv("PATH"));
    const EnvironmentOverride desktop("XDG_CURRENT_DESKTOP", "");

    Permissions permissions(systemPermissionProbes({":1023", sound.server(), SpeechRoots{}}));
    permissions.refresh();
    ASSERT_EQ(permissions.state(Item::microphone), State::denied)
        << permissions.reading(Item::microphone).detail;

    permissions.request(Item::microphone);
    EXPECT_EQ(permissions.state(Item::microphone), State::denied);
    for (int i = 0; i < 100 && !fs::exists(started); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ASSERT_TRUE(fs::exists(started)) << "the request started no mixer";
    EXPECT_EQ(readText(started), "--tab=4\n") << "it opens on the input devices";
}

TEST(SystemPermissionProbes, OnWaylandAskTheScreenSharingPortalAndTheInputDevices) {
    PortalBus bus;
    MARLOWICK_REQUIRE(sessionBus(bus));
    MARLOWICK_REQUIRE(Prerequisite{bus.startPortal(),
                                   "the fake screen-sharing portal (Python with D-Bus and GLib)",
                                   "the Debian packages python3-dbus and python3-gi"});
    // Files named as event devices that are none: nothing here can be read for clicks.
    const TempDir devices;
    writeText(devices / "event0", "not a device");
    const auto probes = [&](const std::string& busAddress) {
        SystemPermissionOptions options{":1023", "unix:/nonexistent", SpeechRoots{}, CaptureBackend::wayland};
        options.busAddress = busAddress;
        options.inputDevices = devices.path();
        return systemPermissionProbes(options);
    };
    {
        Permissions permissions(probes(bus.address()));
        permissions.refresh();
        EXPECT_EQ(permissions.state(Item::screenRecording), State::granted)
            << permissions.reading(Item::screenRecording).detail;
        EXPECT_NE(permissions.reading(Item::screenRecording).detail.find("portal"), std::string::npos);
        EXPECT_EQ(permissions.state(Item::accessibility), State::notAsked);
        EXPECT_NE(permissions.reading(Item::accessibility).detail.find("input group"), std::string::npos)
            << permissions.reading(Item::accessibility).detail;
        // Reading is asking the portal what it offers, never opening a session whose dialog would show.
        for (const std::string& call : bus.calls()) {
            EXPECT_EQ(call.find("CreateSession"), std::string::npos) << call;
            EXPECT_EQ(call.find("Start"), std::string::npos) << call;
        }
    }
    bus.stopPortal();
    {
        Permissions permissions(probes(bus.address()));
        permissions.refresh();
        EXPECT_EQ(permissions.state(Item::screenRecording), State::notAsked);
        EXPECT_NE(permissions.reading(Item::screenRecording).detail.find("xdg-desktop-portal"),
                  std::string::npos)
            << permissions.reading(Item::screenRecording).detail;
    }
    {
        const TempDir noBus;
        Permissions permissions(probes("unix:path=" + (noBus / "bus").string()));
        permissions.refresh();
        EXPECT_EQ(permissions.state(Item::screenRecording), State::notAsked);
        EXPECT_NE(permissions.reading(Item::screenRecording).detail.find("session bus"), std::string::npos)
            << permissions.reading(Item::screenRecording).detail;
    }
}

TEST(SystemPermissionProbes, ReadTheScreenAsTheSessionTypeChoosesTheCapture) {
    PortalBus bus;
    MARLOWICK_REQUIRE(sessionBus(bus));
    MARLOWICK_REQUIRE(Prerequisite{bus.startPortal(),
                                   "the fake screen-sharing portal (Python with D-Bus and GLib)",
                                   "the Debian packages python3-dbus and python3-gi"});
    const auto screenDetail = [&] {
        SystemPermissionOptions options{":1023", "unix:/nonexistent", SpeechRoots{}};
        options.busAddress = bus.address();
        Permissions permissions(systemPermissionProbes(options));
        permissions.refresh();
        return permissions.reading(Item::screenRecording).detail;
    };
    {
        const EnvironmentOverride display("WAYLAND_DISPLAY", "wayland-9");
        EXPECT_NE(screenDetail().find("portal"), std::string::npos) << "a Wayland session asks the portal";
    }
    {
        const EnvironmentOverride display("WAYLAND_DISPLAY", "");
        const EnvironmentOverride type("XDG_SESSION_TYPE", "x11");
        EXPECT_NE(screenDetail().find(":1023"), std::string::npos) << "an X11 session asks the display";
    }
}
