#include "capture/InputMonitor.h"

#include "capture/CaptureError.h"
#include "capture/X11Connection.h"

#include <xcb/record.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <future>

namespace marlowick {

namespace {

// A connection to the display, or none when it can't be made.
std::unique_ptr<X11Connection> connectTo(const std::string& display) {
    try {
        return std::make_unique<X11Connection>(display);
    } catch (const CaptureError&) {
        return nullptr;
    }
}

bool hasRecord(xcb_connection_t* connection) {
    const xcb_query_extension_reply_t* extension = xcb_get_extension_data(connection, &xcb_record_id);
    return extension != nullptr && extension->present != 0;
}

// RECORD's categories of intercepted data.
constexpr std::uint8_t fromServer = 0;
constexpr std::uint8_t startOfData = 4;
constexpr std::uint8_t endOfData = 5;

constexpr auto pollingPeriod = std::chrono::nanoseconds(1'000'000'000 / 120);

} // namespace

struct InputMonitor::Tap {
    std::shared_ptr<X11Connection> control; // creates, disables and frees the context
    std::unique_ptr<X11Connection> data;    // receives the intercepted events, blocking
    xcb_record_context_t context = 0;
};

InputMonitor::InputMonitor(std::string display, bool allowTap)
    : m_display(std::move(display))
    , m_allowTap(allowTap) {}

InputMonitor::InputMonitor(std::shared_ptr<X11Connection> connection, bool allowTap)
    : m_display(connection->display())
    , m_connection(std::move(connection))
    , m_allowTap(allowTap) {}

InputMonitor::~InputMonitor() {
    if (m_mode != Mode::stopped) {
        stop();
    }
}

bool InputMonitor::isEventTapPermitted(const std::string& display) {
    const std::unique_ptr<X11Connection> connection = connectTo(display);
    return connection && hasRecord(connection->get());
}

void InputMonitor::start() {
    if (m_mode != Mode::stopped) {
        stop();
    }
    if (!m_connection) {
        m_connection = connectTo(m_display);
    }
    m_startedAt = std::chrono::steady_clock::now();
    {
        std::lock_guard lock(m_lock);
        m_events.clear();
    }
    if (m_allowTap) {
        startTap();
    } else {
        startPolling();
    }
}

void InputMonitor::startTap() {
    auto tap = std::make_unique<Tap>();
    tap->control = m_connection;
    if (!tap->control || !hasRecord(tap->control->get())) {
        startPolling();
        return;
    }
    xcb_connection_t* control = tap->control->get();
    tap->context = xcb_generate_id(control);
    xcb_record_range_t range{};
    range.device_events.first = XCB_KEY_PRESS;
    range.device_events.last = XCB_MOTION_NOTIFY;
    const xcb_record_client_spec_t everyone = XCB_RECORD_CS_ALL_CLIENTS;
    if (xcb_generic_error_t* error = xcb_request_check(
            control, xcb_record_create_context_checked(control, tap->context, 0, 1, 1, &everyone, &range))) {
        std::free(error);
        startPolling();
        return;
    }
    tap->data = connectTo(m_display);
    if (!tap->data) {
        xcb_record_free_context(control, tap->context);
        xcb_flush(control);
        startPolling();
        return;
    }
    xcb_connection_t* data = tap->data->get();
    const xcb_record_enable_context_cookie_t cookie = xcb_record_enable_context(data, tap->context);
    xcb_flush(data);

    std::promise<void> running;
    std::future<void> started = running.get_future();
    m_worker = std::jthread([this, data, cookie, running = std::move(running)]() mutable {
        bool announced = false;
        // The one request answers with a reply for each batch of events, until the context is disabled.
        for (;;) {
            xcb_generic_error_t* error = nullptr;
            xcb_record_enable_context_reply_t* reply = xcb_record_enable_context_reply(data, cookie, &error);
            if (reply == nullptr) {
                std::free(error);
                break;
            }
            if (reply->category == startOfData && !announced) {
                running.set_value();
                announced = true;
            }
            if (reply->category == fromServer) {
                const std::uint8_t* bytes = xcb_record_enable_context_data(reply);
                const int length = xcb_record_enable_context_data_length(reply);
                // Device events, 32 bytes each, laid out as the core protocol's key, button and motion
                // events.
                for (int offset = 0; offset + 32 <= length; offset += 32) {
                    xcb_key_press_event_t event;
                    std::memcpy(&event, bytes + offset, sizeof event);
                    record({static_cast<std::uint8_t>(event.response_type & 0x7f), event.detail, event.state,
                            event.time, event.root_x, event.root_y});
                }
            }
            const bool ended = reply->category == endOfData;
            std::free(reply);
            if (ended) {
                break;
            }
        }
        if (!announced) {
            running.set_value();
        }
    });
    m_tap = std::move(tap);
    m_mode = Mode::tapping;
    started.wait();
}

void InputMonitor::startPolling() {
    m_mode = Mode::polling;
    if (!m_connection) {
        return; // no display: nothing to record
    }
    xcb_connection_t* connection = m_connection->get();
    const xcb_window_t root = m_connection->screen().root;
    m_worker = std::jthread([this, connection, root](std::stop_token stop) {
        auto next = std::chrono::steady_clock::now();
        while (!stop.stop_requested()) {
            xcb_query_pointer_reply_t* pointer =
                xcb_query_pointer_reply(connection, xcb_query_pointer(connection, root), nullptr);
            if (pointer != nullptr) {
                const InputEvent event{
                    secondsSinceStart(std::nullopt),
                    InputEvent::Kind::move,
                    {static_cast<double>(pointer->root_x), static_cast<double>(pointer->root_y)}};
                std::free(pointer);
                std::lock_guard lock(m_lock);
                m_events.push_back(event);
            }
            next += pollingPeriod;
            std::this_thread::sleep_until(next);
        }
    });
}

std::vector<InputEvent> InputMonitor::stop() {
    if (m_tap) {
        xcb_connection_t* control = m_tap->control->get();
        xcb_record_disable_context(control, m_tap->context);
        xcb_flush(control);
    }
    m_worker.request_stop();
    if (m_worker.joinable()) {
        m_worker.join();
    }
    if (m_tap) {
        xcb_record_free_context(m_tap->control->get(), m_tap->context);
        xcb_flush(m_tap->control->get());
        m_tap.reset();
    }
    m_mode = Mode::stopped;
    std::lock_guard lock(m_lock);
    return m_events;
}

double InputMonitor::secondsSinceStart(std::optional<std::uint32_t> serverTime) const {
    const auto now = std::chrono::steady_clock::now();
    double seconds = std::chrono::duration<double>(now - m_startedAt).count();
    if (serverTime) {
        // The server stamps events in milliseconds of CLOCK_MONOTONIC, wrapping at 32 bits. When its stamp
        // lies within a second before our own clock, it is the same clock and more exact than the moment
        // the event reached us; otherwise (a remote server) the arrival time stands.
        const auto ours = static_cast<std::uint32_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count());
        const auto age = static_cast<std::int32_t>(ours - *serverTime);
        if (age >= 0 && age < 1000) {
            seconds -= age / 1000.0;
        }
    }
    return std::max(seconds, 0.0);
}

void InputMonitor::record(const RawEvent& event) {
    InputEvent::Kind kind;
    switch (event.type) {
    case XCB_KEY_PRESS:
        kind = InputEvent::Kind::keyPress;
        break;
    case XCB_BUTTON_PRESS:
        if (event.detail == 1) {
            kind = InputEvent::Kind::down;
        } else if (event.detail >= 4 && event.detail <= 7) {
            kind = InputEvent::Kind::scroll; // the wheel, as buttons 4 and 5 (6 and 7 sideways)
        } else {
            return;
        }
        break;
    case XCB_BUTTON_RELEASE:
        if (event.detail != 1) {
            return;
        }
        kind = InputEvent::Kind::up;
        break;
    case XCB_MOTION_NOTIFY:
        kind = (event.state & XCB_BUTTON_MASK_1) != 0 ? InputEvent::Kind::drag : InputEvent::Kind::move;
        break;
    default:
        return;
    }
    const InputEvent recorded{secondsSinceStart(event.serverTime),
                              kind,
                              {static_cast<double>(event.rootX), static_cast<double>(event.rootY)}};
    std::lock_guard lock(m_lock);
    m_events.push_back(recorded);
}

} // namespace marlowick
