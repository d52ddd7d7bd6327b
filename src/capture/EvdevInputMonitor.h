#pragma once

#include "model/InputEvent.h"

#include <filesystem>
#include <linux/input.h>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace marlowick {

// Clicks, scrolls and key presses on a desktop where no client may watch another's input (Wayland): read
// from the kernel's input devices (/dev/input/event*) that this user may already read, which membership of
// the `input` group gives. A device the user can't read is left alone; nothing asks for more rights.
//
// The devices' events are stamped by the kernel; each device is set to the monotonic clock, the clock
// PipeWire stamps the screen's pictures with, so that a click lines up with the picture it happened in.
// The devices know no pointer position: `placed` puts the events where the pointer was, from the positions
// the screen's stream carried.
//
// What is kept, as the X11 monitor reports it: the left button down and up, each notch of a wheel (either
// way), and key presses (not a held key's repeats); never which key.
//
// One monitor per capture. `start` and `stop` from one thread; the devices are read on a thread of the
// monitor's own.
class EvdevInputMonitor {
public:
    // What a device reported, at `time` in seconds on the monotonic clock. Only down, up, scroll and
    // keyPress occur.
    struct DeviceEvent {
        double time;
        InputEvent::Kind kind;

        friend bool operator==(const DeviceEvent&, const DeviceEvent&) = default;
    };

    // Watches the event devices in `directory` ("/dev/input" on a real system).
    explicit EvdevInputMonitor(std::filesystem::path directory = "/dev/input");
    ~EvdevInputMonitor();
    EvdevInputMonitor(const EvdevInputMonitor&) = delete;
    EvdevInputMonitor& operator=(const EvdevInputMonitor&) = delete;

    // The event devices in `directory` that this user can read and that have buttons, keys or a wheel.
    static std::vector<std::filesystem::path>
    readableDevices(const std::filesystem::path& directory = "/dev/input");

    // Opens the readable devices and begins reading them with an empty list; false when there is none
    // (nothing is recorded then). Returns once the devices are being read.
    bool start();
    // Ends reading and gives the events in the order of their times.
    std::vector<DeviceEvent> stop();
    // The devices being read, while started; from the thread that starts.
    std::size_t deviceCount() const;

    // What one kernel event means, as many times as it happened (a wheel's event may carry several
    // notches); nothing for the events that aren't kept.
    static std::vector<InputEvent::Kind> translate(const input_event& event);
    // The event's time in seconds on the monotonic clock. A device that wouldn't switch its clock stamps
    // with the real-time clock: `realtimeAhead`, how far that is ahead of the monotonic one, takes it back.
    static double monotonicSeconds(const input_event& event, std::optional<double> realtimeAhead);

    // The device events of a take among the pointer's `moves` (kind move, on the movie's clock, in order),
    // each at the position the pointer had last moved to: `movieStart` is the monotonic time of the movie's
    // first picture, events outside [0, `duration`] of the movie are left out. While the left button is
    // held, moves become drags, as on X11. All in the order of their times, a move before a device event
    // at the same time.
    static std::vector<InputEvent> placed(const std::vector<InputEvent>& moves,
                                          const std::vector<DeviceEvent>& events, double movieStart,
                                          double duration);

private:
    struct Device;
    void read();

    std::filesystem::path m_directory;
    std::vector<std::unique_ptr<Device>> m_devices; // opened by `start`, read by the worker until `stop`
    int m_wake[2] = {-1, -1};                       // a pipe: a byte written to it ends the worker
    std::jthread m_worker;

    mutable std::mutex m_lock;         // guards m_events
    std::vector<DeviceEvent> m_events; // guarded by m_lock
};

} // namespace marlowick
