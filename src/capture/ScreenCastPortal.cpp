#include "capture/ScreenCastPortal.h"

#include "capture/CaptureError.h"
#include "capture/MonotonicClock.h"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <optional>
#include <thread>
#include <unistd.h>

namespace marlowick {

namespace {

constexpr const char* portalName = "org.freedesktop.portal.Desktop";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
constexpr const char* screenCast = "org.freedesktop.portal.ScreenCast";

constexpr std::uint32_t sourceMonitor = 1;
constexpr std::uint32_t cursorHidden = 1;
constexpr std::uint32_t cursorMetadata = 4;
constexpr std::uint32_t persistUntilRevoked = 2;

CaptureError unavailable(const std::string& why) {
    return CaptureError(CaptureError::Kind::captureUnavailable, why);
}

// What a failed call says, as the reason of a CaptureError.
CaptureError callFailed(const sd_bus_error& error, int result, const std::string& call) {
    const std::string name = error.name != nullptr ? error.name : "";
    if (name == SD_BUS_ERROR_SERVICE_UNKNOWN || name == SD_BUS_ERROR_NAME_HAS_NO_OWNER) {
        return unavailable("no screen-sharing portal answers on the session bus; install xdg-desktop-portal "
                           "and the desktop's portal backend (xdg-desktop-portal-gnome, -kde or -wlr)");
    }
    // A portal without a screen-sharing backend answers a property read of its interface with InvalidArgs.
    if (name == SD_BUS_ERROR_UNKNOWN_METHOD || name == SD_BUS_ERROR_UNKNOWN_INTERFACE ||
        name == SD_BUS_ERROR_UNKNOWN_OBJECT || name == SD_BUS_ERROR_UNKNOWN_PROPERTY ||
        (name == SD_BUS_ERROR_INVALID_ARGS && call == "version")) {
        return unavailable("the desktop's portal offers no screen sharing; install its portal backend "
                           "(xdg-desktop-portal-gnome, -kde or -wlr)");
    }
    return unavailable("the screen-sharing portal's " + call + " failed (" +
                       (error.message != nullptr ? error.message : std::strerror(-result)) + ")");
}

struct BusError {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    ~BusError() { sd_bus_error_free(&error); }
};

struct Message {
    sd_bus_message* m = nullptr;
    ~Message() { sd_bus_message_unref(m); }
};

void check(int result, const char* what) {
    if (result < 0) {
        throw unavailable(std::string("the screen-sharing portal's message could not be ") + what + " (" +
                          std::strerror(-result) + ")");
    }
}

// The string in the variant `m` is at.
std::string readStringVariant(sd_bus_message* m) {
    const char* text = nullptr;
    check(sd_bus_message_enter_container(m, 'v', "s"), "read");
    check(sd_bus_message_read_basic(m, 's', &text), "read");
    check(sd_bus_message_exit_container(m), "read");
    return text;
}

// Options of a portal call, a{sv}.
class OptionsWriter {
public:
    explicit OptionsWriter(sd_bus_message* m)
        : m_m(m) {
        check(sd_bus_message_open_container(m_m, 'a', "{sv}"), "written");
    }
    void add(const char* key, const std::string& value) {
        open(key, "s");
        check(sd_bus_message_append_basic(m_m, 's', value.c_str()), "written");
        close();
    }
    void add(const char* key, std::uint32_t value) {
        open(key, "u");
        check(sd_bus_message_append_basic(m_m, 'u', &value), "written");
        close();
    }
    void add(const char* key, bool value) {
        open(key, "b");
        const int truth = value ? 1 : 0;
        check(sd_bus_message_append_basic(m_m, 'b', &truth), "written");
        close();
    }
    void end() { check(sd_bus_message_close_container(m_m), "written"); }

private:
    void open(const char* key, const char* type) {
        check(sd_bus_message_open_container(m_m, 'e', "sv"), "written");
        check(sd_bus_message_append_basic(m_m, 's', key), "written");
        check(sd_bus_message_open_container(m_m, 'v', type), "written");
    }
    void close() {
        check(sd_bus_message_close_container(m_m), "written");
        check(sd_bus_message_close_container(m_m), "written");
    }
    sd_bus_message* m_m;
};

// Walks the a{sv} at the message's position, handing each key to `read`, which reads the variant's value
// and returns true, or returns false to have it skipped.
void readOptions(sd_bus_message* m, const std::function<bool(const std::string& key)>& read) {
    check(sd_bus_message_enter_container(m, 'a', "{sv}"), "read");
    while (sd_bus_message_enter_container(m, 'e', "sv") > 0) {
        const char* key = nullptr;
        check(sd_bus_message_read_basic(m, 's', &key), "read");
        if (!read(key)) {
            check(sd_bus_message_skip(m, "v"), "read");
        }
        check(sd_bus_message_exit_container(m), "read");
    }
    check(sd_bus_message_exit_container(m), "read");
}

} // namespace

struct ScreenCastPortal::State {
    Options options;
    sd_bus* bus = nullptr;
    std::string sender;        // our unique name as request paths spell it, "1_42"
    std::string session;       // the open session's handle, empty when none
    int token = 0;             // numbers the requests' handle tokens
    bool requestEnded = false; // the last request was ended by the portal, neither answered nor cancelled

    ~State() { sd_bus_flush_close_unref(bus); }

    void connect() {
        if (bus != nullptr) {
            return;
        }
        int result = 0;
        if (options.busAddress.empty()) {
            result = sd_bus_open_user(&bus);
        } else {
            result = sd_bus_new(&bus);
            if (result >= 0) {
                result = sd_bus_set_address(bus, options.busAddress.c_str());
            }
            if (result >= 0) {
                result = sd_bus_set_bus_client(bus, 1);
            }
            if (result >= 0) {
                result = sd_bus_start(bus);
            }
        }
        const char* unique = nullptr;
        if (result >= 0) {
            result = sd_bus_get_unique_name(bus, &unique);
        }
        if (result < 0) {
            sd_bus_unref(bus);
            bus = nullptr;
            throw unavailable(std::string("no session bus answers (") + std::strerror(-result) +
                              "), so the desktop can't be asked for the screen; record inside the desktop's "
                              "session, where DBUS_SESSION_BUS_ADDRESS is set");
        }
        sender = unique[0] == ':' ? unique + 1 : unique;
        for (char& c : sender) {
            c = c == '.' ? '_' : c;
        }
    }

    std::uint32_t property(const char* name) {
        BusError error;
        std::uint32_t value = 0;
        const int result = sd_bus_get_property_trivial(bus, portalName, portalPath, screenCast, name,
                                                       &error.error, 'u', &value);
        if (result < 0) {
            throw callFailed(error.error, result, name);
        }
        return value;
    }

    // Calls `method` with the arguments `append` writes, then the options `addOptions` writes with a
    // handle token of our own, and waits for the request's Response. Yields its results' message,
    // positioned on the a{sv}. Throws CaptureError when the call fails or the answer is not a success.
    Message request(const char* method, const std::function<void(sd_bus_message*)>& append,
                    const std::function<void(OptionsWriter&)>& addOptions) {
        const std::string handleToken = "marlowick" + std::to_string(++token);
        const std::string path = std::string(portalPath) + "/request/" + sender + "/" + handleToken;
        struct Answer {
            sd_bus_message* message = nullptr;
        } answer;
        sd_bus_slot* slot = nullptr;
        check(sd_bus_match_signal(
                  bus, &slot, nullptr, path.c_str(), "org.freedesktop.portal.Request", "Response",
                  [](sd_bus_message* m, void* data, sd_bus_error*) {
                      auto* a = static_cast<Answer*>(data);
                      if (a->message == nullptr) {
                          a->message = sd_bus_message_ref(m);
                      }
                      return 0;
                  },
                  &answer),
              "awaited");
        const auto release = [&] {
            sd_bus_slot_unref(slot);
            slot = nullptr;
        };

        Message call;
        check(sd_bus_message_new_method_call(bus, &call.m, portalName, portalPath, screenCast, method),
              "made");
        append(call.m);
        OptionsWriter writer(call.m);
        writer.add("handle_token", handleToken);
        if (addOptions) {
            addOptions(writer);
        }
        writer.end();
        BusError error;
        Message reply;
        const int called = sd_bus_call(bus, call.m, 0, &error.error, &reply.m);
        if (called < 0) {
            release();
            throw callFailed(error.error, called, method);
        }

        const double deadline = monotonicSeconds() + options.dialogTimeout;
        while (answer.message == nullptr) {
            const int processed = sd_bus_process(bus, nullptr);
            if (processed < 0) {
                release();
                throw unavailable(
                    std::string("the session bus closed while the screen-sharing portal was asked (") +
                    std::strerror(-processed) + ")");
            }
            if (processed > 0) {
                continue;
            }
            const double left = deadline - monotonicSeconds();
            if (left <= 0) {
                release();
                throw unavailable(std::string("the screen-sharing portal gave no answer to ") + method);
            }
            sd_bus_wait(bus, static_cast<std::uint64_t>(std::ceil(left * 1e6)));
        }
        release();
        Message response;
        response.m = answer.message;
        std::uint32_t code = 0;
        check(sd_bus_message_read_basic(response.m, 'u', &code), "read");
        if (code == 1) {
            throw CaptureError(CaptureError::Kind::permissionDenied);
        }
        requestEnded = code != 0;
        if (code != 0) {
            throw unavailable(std::string("the desktop's screen sharing could not ") +
                              (std::strcmp(method, "Start") == 0 ? "start" : "set up") +
                              " (its portal ended the request)");
        }
        return response;
    }
};

ScreenCastPortal::ScreenCastPortal(Options options)
    : m_state(std::make_unique<State>()) {
    m_state->options = std::move(options);
}

ScreenCastPortal::~ScreenCastPortal() {
    close();
}

ScreenCastPortal::Share ScreenCastPortal::open(const std::string& restoreToken) {
    State& s = *m_state;
    close();
    s.connect();
    const std::uint32_t version = s.property("version");
    const std::uint32_t sources = s.property("AvailableSourceTypes");
    if ((sources & sourceMonitor) == 0) {
        throw unavailable("the desktop's portal can't share a whole screen");
    }
    const std::uint32_t cursorModes = s.property("AvailableCursorModes");
    Share share;
    share.cursorMetadata = (cursorModes & cursorMetadata) != 0;

    // A portal backend that the bus starts for this very call may not offer screen sharing yet, and the
    // portal then ends the request: asked again a moment later, it is ready.
    for (int attempt = 0; s.session.empty(); ++attempt) {
        s.requestEnded = false;
        try {
            Message created = s.request(
                "CreateSession", [](sd_bus_message*) {},
                [](OptionsWriter& options) {
                    options.add("session_handle_token", std::string("marlowick"));
                });
            readOptions(created.m, [&](const std::string& key) {
                if (key != "session_handle") {
                    return false;
                }
                s.session = readStringVariant(created.m);
                return true;
            });
            if (s.session.empty()) {
                throw unavailable("the screen-sharing portal made no session");
            }
        } catch (const CaptureError&) {
            if (attempt > 0 || !s.requestEnded) {
                throw;
            }
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
    }
    try {
        const auto onSession = [&](sd_bus_message* m) {
            check(sd_bus_message_append_basic(m, 'o', s.session.c_str()), "written");
        };
        s.request("SelectSources", onSession, [&](OptionsWriter& options) {
            options.add("types", sourceMonitor);
            options.add("multiple", false);
            options.add("cursor_mode", share.cursorMetadata ? cursorMetadata : cursorHidden);
            if (version >= 4) {
                options.add("persist_mode", persistUntilRevoked);
                if (!restoreToken.empty()) {
                    options.add("restore_token", restoreToken);
                }
            }
        });

        Message started =
            s.request("Start",
                      [&](sd_bus_message* m) {
                          onSession(m);
                          check(sd_bus_message_append_basic(m, 's', ""), "written"); // no parent window
                      },
                      {});
        bool hasStream = false;
        readOptions(started.m, [&](const std::string& key) {
            if (key == "restore_token") {
                share.restoreToken = readStringVariant(started.m);
                return true;
            }
            if (key != "streams") {
                return false;
            }
            check(sd_bus_message_enter_container(started.m, 'v', "a(ua{sv})"), "read");
            check(sd_bus_message_enter_container(started.m, 'a', "(ua{sv})"), "read");
            // The first stream is the screen: only one was asked for.
            while (sd_bus_message_enter_container(started.m, 'r', "ua{sv}") > 0) {
                std::uint32_t node = 0;
                check(sd_bus_message_read_basic(started.m, 'u', &node), "read");
                Size size;
                readOptions(started.m, [&](const std::string& property) {
                    if (property != "size") {
                        return false;
                    }
                    std::int32_t width = 0;
                    std::int32_t height = 0;
                    check(sd_bus_message_read(started.m, "v", "(ii)", &width, &height), "read");
                    size = {static_cast<double>(width), static_cast<double>(height)};
                    return true;
                });
                check(sd_bus_message_exit_container(started.m), "read");
                if (!hasStream) {
                    hasStream = true;
                    share.node = node;
                    share.size = size;
                }
            }
            check(sd_bus_message_exit_container(started.m), "read");
            check(sd_bus_message_exit_container(started.m), "read");
            return true;
        });
        if (!hasStream) {
            throw unavailable("the screen-sharing portal started no stream");
        }

        BusError error;
        Message reply;
        Message call;
        check(sd_bus_message_new_method_call(s.bus, &call.m, portalName, portalPath, screenCast,
                                             "OpenPipeWireRemote"),
              "made");
        onSession(call.m);
        OptionsWriter(call.m).end();
        const int called = sd_bus_call(s.bus, call.m, 0, &error.error, &reply.m);
        if (called < 0) {
            throw callFailed(error.error, called, "OpenPipeWireRemote");
        }
        int fd = -1;
        check(sd_bus_message_read_basic(reply.m, 'h', &fd), "read");
        // The message owns its descriptor: ours is a copy.
        share.fd = fcntl(fd, F_DUPFD_CLOEXEC, 3);
        if (share.fd < 0) {
            throw unavailable(std::string("the PipeWire connection could not be kept (") +
                              std::strerror(errno) + ")");
        }
    } catch (...) {
        close();
        throw;
    }
    return share;
}

bool ScreenCastPortal::offersCursorMetadata() {
    m_state->connect();
    return (m_state->property("AvailableCursorModes") & cursorMetadata) != 0;
}

void ScreenCastPortal::close() {
    State& s = *m_state;
    if (s.session.empty() || s.bus == nullptr) {
        return;
    }
    BusError error;
    sd_bus_call_method(s.bus, portalName, s.session.c_str(), "org.freedesktop.portal.Session", "Close",
                       &error.error, nullptr, "");
    s.session.clear();
}

} // namespace marlowick
