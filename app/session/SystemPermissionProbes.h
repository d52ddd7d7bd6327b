#pragma once

#include "captions/SpeechModels.h"
#include "capture/CaptureBackend.h"
#include "session/PermissionProbe.h"

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

namespace marlowick {

// Where the system's probes look. Empty names take the defaults, as the capture does: $DISPLAY for the
// display, $PULSE_SERVER, else the user's own server, for sound, and the session bus for the desktop's
// screen-sharing portal. The screen and the clicks are read as the capture will record them: on Wayland
// when the session is one (as the capture chooses), on X11 otherwise, unless `backend` says.
struct SystemPermissionOptions {
    SystemPermissionOptions(std::string displayName = {}, std::string soundServerName = {},
                            SpeechRoots roots = SpeechRoots::standard(),
                            std::optional<CaptureBackend> chosenBackend = std::nullopt)
        : display(std::move(displayName))
        , soundServer(std::move(soundServerName))
        , speechRoots(std::move(roots))
        , backend(chosenBackend) {}

    std::string display;
    std::string soundServer;
    SpeechRoots speechRoots;
    std::optional<CaptureBackend> backend;
    std::string busAddress;                            // as $DBUS_SESSION_BUS_ADDRESS says it
    std::filesystem::path inputDevices = "/dev/input"; // where the kernel's input devices are
};

// The probes of this system:
// - screen recording is granted when the X display answers and a pixel of its root window can be read,
//   and otherwise not asked, saying why;
// - accessibility is granted when the X server offers the RECORD extension, which the capture's clicks
//   and keys come through; otherwise not asked, and the capture reads pointer positions only;
// - on Wayland, screen recording is granted when the desktop's screen-sharing portal answers on the
//   session bus (the portal shows its own dialog at the first take), and otherwise not asked, saying
//   what is missing; accessibility is granted when some input device can be read, which is where the
//   clicks and keys come from there, and otherwise not asked, saying to join the input group;
// - the microphone is granted when the sound server answers and has a source that isn't the monitor of
//   an output, denied when it answers with none, and not asked when no server answers. Its settings are
//   the desktop's sound settings (GNOME's or KDE's) or else pavucontrol, whichever is installed first;
// - speech recognition is granted when a speech model is installed for some language, and otherwise not
//   asked, naming the package that installs the English one.
PermissionProbes systemPermissionProbes(SystemPermissionOptions options = {});

} // namespace marlowick
