#include "session/SystemPermissionProbes.h"

#include "capture/CaptureError.h"
#include "capture/EvdevInputMonitor.h"
#include "capture/ScreenCastPortal.h"
#include "capture/SoundSource.h"
#include "capture/X11Connection.h"

#include <QProcess>
#include <QStandardPaths>
#include <QStringList>

#include <xcb/record.h>
#include <xcb/xcb.h>

#include <cctype>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

namespace marlowick {

namespace {

// A display's name as a sentence names it.
std::string displayName(const std::string& display) {
    if (!display.empty()) {
        return display;
    }
    const char* variable = std::getenv("DISPLAY");
    return variable != nullptr && *variable != '\0' ? variable : "(none: DISPLAY is not set)";
}

// A question asked of the X display: where no display answers, every such probe says so alike.
class X11Probe : public PermissionProbe {
public:
    explicit X11Probe(std::string display)
        : m_display(std::move(display)) {}

    PermissionReading read() final {
        std::unique_ptr<X11Connection> connection;
        try {
            connection = std::make_unique<X11Connection>(m_display);
        } catch (const CaptureError&) {
            return {PermissionState::notAsked, "No X display answers at " + displayName(m_display) + "."};
        }
        return readDisplay(*connection);
    }

protected:
    virtual PermissionReading readDisplay(const X11Connection& connection) = 0;
    const std::string& display() const { return m_display; }

private:
    std::string m_display;
};

class ScreenRecordingProbe : public X11Probe {
public:
    using X11Probe::X11Probe;

protected:
    PermissionReading readDisplay(const X11Connection& connection) override {
        // One pixel of the root window, read the way the capture reads whole frames.
        xcb_connection_t* c = connection.get();
        const xcb_screen_t& screen = connection.screen();
        xcb_generic_error_t* error = nullptr;
        xcb_get_image_reply_t* image = xcb_get_image_reply(
            c, xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, screen.root, 0, 0, 1, 1, ~0U), &error);
        const bool readable = image != nullptr && error == nullptr;
        std::free(image);
        std::free(error);
        if (!readable) {
            return {PermissionState::notAsked,
                    "The X display " + displayName(display()) + " doesn't let its screen be read."};
        }
        return {PermissionState::granted, "The X display " + displayName(display()) + " can be recorded."};
    }
};

class AccessibilityProbe : public X11Probe {
public:
    using X11Probe::X11Probe;

protected:
    PermissionReading readDisplay(const X11Connection& connection) override {
        const xcb_query_extension_reply_t* record = xcb_get_extension_data(connection.get(), &xcb_record_id);
        if (record == nullptr || record->present == 0) {
            return {PermissionState::notAsked,
                    "The X server offers no RECORD extension, so only pointer positions are read."};
        }
        return {PermissionState::granted, "The X server's RECORD extension reports clicks and keys."};
    }
};

// On Wayland no client reads the screen by itself: the desktop's screen-sharing portal shares it, after a
// dialog of its own at the first take. So the permission is there when the portal answers; whether the
// person agrees is the portal's to ask.
class PortalScreenRecordingProbe : public PermissionProbe {
public:
    explicit PortalScreenRecordingProbe(std::string busAddress)
        : m_busAddress(std::move(busAddress)) {}

    PermissionReading read() override {
        try {
            ScreenCastPortal portal({m_busAddress, 5});
            portal.offersCursorMetadata();
        } catch (const CaptureError& error) {
            std::string reason = error.what();
            if (!reason.empty()) {
                reason[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(reason[0])));
            }
            return {PermissionState::notAsked, reason + "."};
        }
        return {
            PermissionState::granted,
            "The desktop's screen-sharing portal answers; it asks which screen to share at the first take."};
    }

private:
    std::string m_busAddress;
};

// On Wayland the clicks and keys come from the kernel's input devices, which only their group may read.
class InputDevicesProbe : public PermissionProbe {
public:
    explicit InputDevicesProbe(std::filesystem::path directory)
        : m_directory(std::move(directory)) {}

    PermissionReading read() override {
        const std::size_t readable = EvdevInputMonitor::readableDevices(m_directory).size();
        if (readable == 0) {
            return {PermissionState::notAsked,
                    "No input device in " + m_directory.string() +
                        " can be read, so only pointer positions are recorded: join the input group "
                        "(sudo usermod -aG input $USER, then log in again) for clicks and keys."};
        }
        return {PermissionState::granted,
                readable == 1 ? "An input device can be read for clicks and keys."
                              : std::to_string(readable) + " input devices can be read for clicks and keys."};
    }

private:
    std::filesystem::path m_directory;
};

class MicrophoneProbe : public PermissionProbe {
public:
    explicit MicrophoneProbe(std::string server)
        : m_server(std::move(server)) {}

    PermissionReading read() override {
        const std::optional<SoundSource::SourceCount> sources = SoundSource::countSources(m_server);
        if (!sources) {
            return {PermissionState::notAsked, "No sound server answers."};
        }
        if (sources->microphones == 0) {
            return {PermissionState::denied, "The sound server has no microphone."};
        }
        return {PermissionState::granted,
                sources->microphones == 1
                    ? "The sound server has a microphone."
                    : "The sound server has " + std::to_string(sources->microphones) + " microphones."};
    }

    bool openSettings() override {
        // The desktop's own sound settings where it has them, else the sound server's mixer.
        const QString desktop = qEnvironmentVariable("XDG_CURRENT_DESKTOP");
        std::vector<QStringList> candidates;
        if (desktop.contains("GNOME", Qt::CaseInsensitive)) {
            candidates.push_back({"gnome-control-center", "sound"});
        }
        if (desktop.contains("KDE", Qt::CaseInsensitive)) {
            candidates.push_back({"systemsettings", "kcm_pulseaudio"});
        }
        candidates.push_back({"pavucontrol", "--tab=4"});
        for (const QStringList& command : candidates) {
            const QString program = QStandardPaths::findExecutable(command.front());
            if (!program.isEmpty() && QProcess::startDetached(program, command.mid(1))) {
                return true;
            }
        }
        return false;
    }

private:
    std::string m_server;
};

class SpeechProbe : public PermissionProbe {
public:
    explicit SpeechProbe(SpeechRoots roots)
        : m_roots(std::move(roots)) {}

    PermissionReading read() override {
        const std::vector<SpeechModel> models = findSpeechModels(m_roots);
        if (models.empty()) {
            return {PermissionState::notAsked,
                    "No speech model is installed: the package pocketsphinx-en-us installs the English one."};
        }
        std::string names;
        for (const SpeechModel& model : models) {
            names += (names.empty() ? "" : ", ") + model.locale.displayName();
        }
        return {PermissionState::granted, "Installed: " + names + "."};
    }

private:
    SpeechRoots m_roots;
};

} // namespace

PermissionProbes systemPermissionProbes(SystemPermissionOptions options) {
    PermissionProbes probes;
    if (options.backend.value_or(sessionCaptureBackend()) == CaptureBackend::wayland) {
        probes.screenRecording = std::make_unique<PortalScreenRecordingProbe>(options.busAddress);
        probes.accessibility = std::make_unique<InputDevicesProbe>(options.inputDevices);
    } else {
        probes.screenRecording = std::make_unique<ScreenRecordingProbe>(options.display);
        probes.accessibility = std::make_unique<AccessibilityProbe>(options.display);
    }
    probes.microphone = std::make_unique<MicrophoneProbe>(options.soundServer);
    probes.speech = std::make_unique<SpeechProbe>(std::move(options.speechRoots));
    return probes;
}

} // namespace marlowick
