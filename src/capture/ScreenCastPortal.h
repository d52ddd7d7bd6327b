#pragma once

#include "model/Geometry.h"

#include <cstdint>
#include <memory>
#include <string>

namespace marlowick {

// Asks the desktop for the screen through its screen-sharing portal on the session bus: a session, a
// monitor as the source with the pointer as metadata where the portal offers that (hidden otherwise),
// kept until revoked, so that the restore token of the last start brings the same screen back without
// the dialog; then the start, and a PipeWire connection that may see the shared stream's node.
//
// The calls are synchronous over sd-bus: each waits for the portal's answer, the start for as long as the
// person takes with the dialog (up to `dialogTimeout`).
//
// Thread: one thread at a time.
class ScreenCastPortal {
public:
    struct Options {
        std::string busAddress;     // as $DBUS_SESSION_BUS_ADDRESS says it; empty takes the session bus
        double dialogTimeout = 300; // seconds to wait for each answer of the portal
    };

    // The screen the desktop shares.
    struct Share {
        int fd = -1;                 // a connection to PipeWire, the caller's to close
        std::uint32_t node = 0;      // the stream's node on it
        Size size;                   // of the stream's pictures, as the portal tells it; may be empty
        bool cursorMetadata = false; // the pointer comes as metadata
        std::string restoreToken;    // the next start's, empty when the portal gave none; each is used once
    };

    explicit ScreenCastPortal(Options options);
    ScreenCastPortal()
        : ScreenCastPortal(Options{}) {}
    ~ScreenCastPortal();
    ScreenCastPortal(const ScreenCastPortal&) = delete;
    ScreenCastPortal& operator=(const ScreenCastPortal&) = delete;

    // Runs the flow with the token of the last start (empty for none). Throws CaptureError:
    // permissionDenied when the dialog is cancelled or sharing refused, captureUnavailable when there is no
    // session bus, no portal or no screen sharing on it, naming what is missing. A session the portal
    // ends unasked (a backend the bus is still starting) is asked for once more, a second later; a dialog's
    // request never is. The session stays open until `close`, and sharing with it.
    Share open(const std::string& restoreToken);
    // Whether the portal offers the pointer as metadata, asked without a dialog. Throws CaptureError
    // (captureUnavailable) as `open` does.
    bool offersCursorMetadata();
    // Ends the session, and with it the sharing; nothing when none is open.
    void close();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace marlowick
