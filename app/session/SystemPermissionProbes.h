#pragma once

#include "captions/SpeechModels.h"
#include "session/PermissionProbe.h"

#include <string>

namespace marlowick {

// Where the system's probes look. Empty names take the defaults, as the capture does: $DISPLAY for the
// display and $PULSE_SERVER, else the user's own server, for sound.
struct SystemPermissionOptions {
    std::string display;
    std::string soundServer;
    SpeechRoots speechRoots = SpeechRoots::standard();
};

// The probes of this system:
// - screen recording is granted when the X display answers and a pixel of its root window can be read,
//   and otherwise not asked, saying why;
// - accessibility is granted when the X server offers the RECORD extension, which the capture's clicks
//   and keys come through; otherwise not asked, and the capture reads pointer positions only;
// - the microphone is granted when the sound server answers and has a source that isn't the monitor of
//   an output, denied when it answers with none, and not asked when no server answers. Its settings are
//   the desktop's sound settings (GNOME's or KDE's) or else pavucontrol, whichever is installed first;
// - speech recognition is granted when a speech model is installed for some language, and otherwise not
//   asked, naming the package that installs the English one.
PermissionProbes systemPermissionProbes(SystemPermissionOptions options = {});

} // namespace marlowick
