#pragma once

#include <memory>
#include <string>

namespace marlowick {

// What the application needs from the system, in the order the onboarding sheet shows them.
enum class PermissionItem { screenRecording, accessibility, microphone, speech };

// `notAsked` is also where the system gives no answer at all (no display, no sound server): there is no
// refusal to tell apart from that, so only an item whose system answers "no" reads as `denied`.
enum class PermissionState { granted, denied, notAsked };

// One probe's answer: the state and, in a sentence, what the system said, such as which display answered
// or why it couldn't be asked. The detail is shown under the item; it may be empty.
struct PermissionReading {
    PermissionState state = PermissionState::notAsked;
    std::string detail;

    friend bool operator==(const PermissionReading&, const PermissionReading&) = default;
};

// Reads one permission from the system, and does what fixes it where something can. On X11 and
// PulseAudio nothing pops up to be granted: a permission is there when the service answers and offers
// what is needed, so asking for it again is reading it again. Called on the main thread; a read may wait
// for a server to answer (a display that is absent is tried a few times, briefly apart).
class PermissionProbe {
public:
    virtual ~PermissionProbe() = default;

    virtual PermissionReading read() = 0;
    // Starts the system's settings for this item, detached; false when there is nothing to start.
    virtual bool openSettings() { return false; }
};

// The four probes, one per item.
struct PermissionProbes {
    std::unique_ptr<PermissionProbe> screenRecording;
    std::unique_ptr<PermissionProbe> accessibility;
    std::unique_ptr<PermissionProbe> microphone;
    std::unique_ptr<PermissionProbe> speech;
};

} // namespace marlowick
