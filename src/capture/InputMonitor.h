#pragma once

#include "model/InputEvent.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace marlowick {

class X11Connection;

// What the user does during a capture, as telemetry for the director and the cursor path. On X11 the
// tap is the RECORD extension: device events of all clients with exact root positions, button state and
// server time, seen without taking them from anyone (left button down and up, motion, dragging with the
// left button held, scroll buttons 4 to 7, key presses). Where the server has no RECORD it polls the
// pointer 120 times a second instead, which gives positions only.
//
// Locations are in screen pixels from the top left of the root window; times in seconds from `start`,
// on the steady clock (CLOCK_MONOTONIC, which is also the X server's clock on Linux). A key press records
// where the pointer was, never which key.
//
// One monitor per capture. `start` and `stop` from one thread; the events are gathered on a thread of
// the monitor's own.
class InputMonitor {
public:
    enum class Mode { stopped, tapping, polling };

    // `display` names the X display, as "$DISPLAY" does; empty takes $DISPLAY. With `allowTap` false
    // the monitor always polls.
    explicit InputMonitor(std::string display = {}, bool allowTap = true);
    // On a connection shared with others, for everything but the tap's stream of events, which takes a
    // connection of its own to the same display.
    explicit InputMonitor(std::shared_ptr<X11Connection> connection, bool allowTap = true);
    ~InputMonitor();
    InputMonitor(const InputMonitor&) = delete;
    InputMonitor& operator=(const InputMonitor&) = delete;

    // Whether the display offers the RECORD extension, so that telemetry will be full.
    static bool isEventTapPermitted(const std::string& display = {});

    // Begins with an empty list; returns once the tap or the poller runs. With no display to connect
    // to at all, nothing is recorded.
    void start();
    // Ends monitoring and gives the events in the order they came.
    std::vector<InputEvent> stop();

    Mode mode() const { return m_mode.load(); }
    // The instant the events' times count from, set by `start`.
    std::chrono::steady_clock::time_point startedAt() const { return m_startedAt; }

private:
    // A device event as the tap delivers it.
    struct RawEvent {
        std::uint8_t type;   // X core event code
        std::uint8_t detail; // button or key code
        std::uint16_t state; // modifier and button mask before the event
        std::uint32_t serverTime;
        std::int16_t rootX;
        std::int16_t rootY;
    };

    void startTap();
    void startPolling();
    void record(const RawEvent& event);
    double secondsSinceStart(std::optional<std::uint32_t> serverTime) const;

    struct Tap;
    std::string m_display;
    std::shared_ptr<X11Connection> m_connection; // as given, or opened by the first `start`
    bool m_allowTap;
    std::atomic<Mode> m_mode = Mode::stopped; // read from other threads while a stop writes it
    std::chrono::steady_clock::time_point m_startedAt;
    std::unique_ptr<Tap> m_tap; // the RECORD connections, while tapping
    std::jthread m_worker;      // reads the tap, or polls

    std::mutex m_lock;                // guards m_events
    std::vector<InputEvent> m_events; // guarded by m_lock
};

} // namespace marlowick
