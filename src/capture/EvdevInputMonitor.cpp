#include "capture/EvdevInputMonitor.h"

#include <libevdev/libevdev.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

namespace marlowick {

namespace {

double clockSeconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

struct EvdevDeleter {
    void operator()(libevdev* device) const { libevdev_free(device); }
};

// An event device opened for reading, if this user may read it and it has what a take records. The access
// check comes first so that a device the user can't read isn't even tried.
struct Opened {
    int fd = -1;
    std::unique_ptr<libevdev, EvdevDeleter> device;
};

std::optional<Opened> openDevice(const std::filesystem::path& path) {
    if (path.filename().string().rfind("event", 0) != 0 || ::access(path.c_str(), R_OK) != 0) {
        return std::nullopt;
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    libevdev* device = nullptr;
    if (libevdev_new_from_fd(fd, &device) != 0) {
        ::close(fd); // not an input device
        return std::nullopt;
    }
    Opened opened{fd, std::unique_ptr<libevdev, EvdevDeleter>(device)};
    const bool useful = libevdev_has_event_code(device, EV_KEY, BTN_LEFT) ||
                        libevdev_has_event_code(device, EV_REL, REL_WHEEL) ||
                        libevdev_has_event_code(device, EV_REL, REL_HWHEEL) ||
                        libevdev_has_event_code(device, EV_KEY, KEY_A) ||
                        libevdev_has_event_code(device, EV_KEY, KEY_SPACE);
    if (!useful) {
        opened.device.reset();
        ::close(fd); // a lid switch, a power button: nothing a take records
        return std::nullopt;
    }
    return opened;
}

std::vector<std::filesystem::path> eventDevices(const std::filesystem::path& directory) {
    std::vector<std::filesystem::path> paths;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        if (entry.path().filename().string().rfind("event", 0) == 0) {
            paths.push_back(entry.path());
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

} // namespace

struct EvdevInputMonitor::Device {
    int fd = -1;
    std::unique_ptr<libevdev, EvdevDeleter> device;
    // How far the real-time clock is ahead of the monotonic one, for a device still stamping with it.
    std::optional<double> realtimeAhead;
    bool gone = false; // unplugged or failed: no longer polled (the worker's only)

    ~Device() {
        device.reset();
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

EvdevInputMonitor::EvdevInputMonitor(std::filesystem::path directory)
    : m_directory(std::move(directory)) {}

EvdevInputMonitor::~EvdevInputMonitor() {
    stop();
}

std::vector<std::filesystem::path>
EvdevInputMonitor::readableDevices(const std::filesystem::path& directory) {
    std::vector<std::filesystem::path> readable;
    for (const std::filesystem::path& path : eventDevices(directory)) {
        if (std::optional<Opened> opened = openDevice(path)) {
            readable.push_back(path);
            opened->device.reset();
            ::close(opened->fd);
        }
    }
    return readable;
}

bool EvdevInputMonitor::start() {
    stop();
    {
        std::lock_guard lock(m_lock);
        m_events.clear();
    }
    for (const std::filesystem::path& path : eventDevices(m_directory)) {
        std::optional<Opened> opened = openDevice(path);
        if (!opened) {
            continue;
        }
        auto device = std::make_unique<Device>();
        device->fd = opened->fd;
        device->device = std::move(opened->device);
        if (libevdev_set_clock_id(device->device.get(), CLOCK_MONOTONIC) != 0) {
            device->realtimeAhead = clockSeconds(CLOCK_REALTIME) - clockSeconds(CLOCK_MONOTONIC);
        }
        m_devices.push_back(std::move(device));
    }
    if (m_devices.empty()) {
        return false;
    }
    if (::pipe2(m_wake, O_CLOEXEC) != 0) {
        m_devices.clear();
        return false;
    }
    m_worker = std::jthread([this] { read(); });
    return true;
}

std::vector<EvdevInputMonitor::DeviceEvent> EvdevInputMonitor::stop() {
    if (m_worker.joinable()) {
        const char byte = 0;
        [[maybe_unused]] const ssize_t written = ::write(m_wake[1], &byte, 1);
        m_worker.join();
    }
    for (int& fd : m_wake) {
        if (fd >= 0) {
            ::close(fd);
            fd = -1;
        }
    }
    m_devices.clear();
    std::lock_guard lock(m_lock);
    std::vector<DeviceEvent> events = std::exchange(m_events, {});
    // Each device's events come in order, but the devices interleave.
    std::stable_sort(events.begin(), events.end(),
                     [](const DeviceEvent& a, const DeviceEvent& b) { return a.time < b.time; });
    return events;
}

std::size_t EvdevInputMonitor::deviceCount() const {
    return m_devices.size();
}

void EvdevInputMonitor::read() {
    std::vector<pollfd> polled;
    for (;;) {
        polled.clear();
        polled.push_back({m_wake[0], POLLIN, 0});
        std::vector<Device*> devices;
        for (const std::unique_ptr<Device>& device : m_devices) {
            if (!device->gone) {
                polled.push_back({device->fd, POLLIN, 0});
                devices.push_back(device.get());
            }
        }
        if (::poll(polled.data(), polled.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (polled[0].revents != 0) {
            return;
        }
        std::vector<DeviceEvent> found;
        for (std::size_t i = 0; i < devices.size(); ++i) {
            if (polled[i + 1].revents == 0) {
                continue;
            }
            Device& device = *devices[i];
            unsigned flags = LIBEVDEV_READ_FLAG_NORMAL;
            for (;;) {
                input_event event{};
                const int status = libevdev_next_event(device.device.get(), flags, &event);
                if (status == LIBEVDEV_READ_STATUS_SYNC) {
                    // Events were dropped: the device's state is caught up in sync mode, which still tells
                    // a button that went down or up meanwhile.
                    flags = LIBEVDEV_READ_FLAG_SYNC;
                } else if (status == -EAGAIN) {
                    if (flags == LIBEVDEV_READ_FLAG_SYNC) {
                        flags = LIBEVDEV_READ_FLAG_NORMAL;
                        continue;
                    }
                    break;
                } else if (status != LIBEVDEV_READ_STATUS_SUCCESS) {
                    device.gone = true; // unplugged: the others go on
                    break;
                }
                const double time = monotonicSeconds(event, device.realtimeAhead);
                for (const InputEvent::Kind kind : translate(event)) {
                    found.push_back({time, kind});
                }
            }
        }
        if (!found.empty()) {
            std::lock_guard lock(m_lock);
            m_events.insert(m_events.end(), found.begin(), found.end());
        }
    }
}

std::vector<InputEvent::Kind> EvdevInputMonitor::translate(const input_event& event) {
    if (event.type == EV_KEY) {
        if (event.code == BTN_LEFT) {
            if (event.value == 1) {
                return {InputEvent::Kind::down};
            }
            if (event.value == 0) {
                return {InputEvent::Kind::up};
            }
            return {};
        }
        // Keys lie below the buttons' range and above it up to the pads' buttons; a held key's repeats
        // (value 2) and releases aren't presses.
        const bool key = (event.code > KEY_RESERVED && event.code < BTN_MISC) ||
                         (event.code >= KEY_OK && event.code < BTN_DPAD_UP);
        if (key && event.value == 1) {
            return {InputEvent::Kind::keyPress};
        }
        return {};
    }
    if (event.type == EV_REL && (event.code == REL_WHEEL || event.code == REL_HWHEEL)) {
        // One scroll per notch, as X11 reports one button press per notch; a runaway value is capped.
        const int notches = std::min(std::abs(event.value), 32);
        return std::vector<InputEvent::Kind>(static_cast<std::size_t>(notches), InputEvent::Kind::scroll);
    }
    return {};
}

double EvdevInputMonitor::monotonicSeconds(const input_event& event, std::optional<double> realtimeAhead) {
    const double stamped =
        static_cast<double>(event.input_event_sec) + static_cast<double>(event.input_event_usec) / 1e6;
    return realtimeAhead ? stamped - *realtimeAhead : stamped;
}

std::vector<InputEvent> EvdevInputMonitor::placed(const std::vector<InputEvent>& moves,
                                                  const std::vector<DeviceEvent>& events, double movieStart,
                                                  double duration) {
    std::vector<InputEvent> result;
    if (moves.empty()) {
        // Nowhere to put a click: with no position known it would only mislead the zooms.
        return result;
    }
    result.reserve(moves.size() + events.size());
    bool held = false; // the left button, from every event, also those before the movie
    std::size_t m = 0;
    for (const DeviceEvent& event : events) {
        const double time = event.time - movieStart;
        while (m < moves.size() && moves[m].time <= time) {
            InputEvent move = moves[m++];
            move.kind = held ? InputEvent::Kind::drag : InputEvent::Kind::move;
            result.push_back(move);
        }
        if (event.kind == InputEvent::Kind::down) {
            held = true;
        } else if (event.kind == InputEvent::Kind::up) {
            held = false;
        }
        if (time < 0 || time > duration) {
            continue;
        }
        // Where the pointer had last moved to; before its first move, where it first showed.
        const Point location = m > 0 ? moves[m - 1].location : moves.front().location;
        result.push_back({time, event.kind, location});
    }
    for (; m < moves.size(); ++m) {
        InputEvent move = moves[m];
        move.kind = held ? InputEvent::Kind::drag : InputEvent::Kind::move;
        result.push_back(move);
    }
    return result;
}

} // namespace marlowick
