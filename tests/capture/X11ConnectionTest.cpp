// Connecting to an X display through a stand-in for a server that closes new connections right after the
// client's setup, as Xvfb now and then does: the stand-in closes the first few and passes the next one on
// to a real Xvfb.

#include "capture/X11Connection.h"
#include "capture/CaptureError.h"
#include "support/Prerequisites.h"
#include "support/Thrown.h"
#include "support/VirtualDisplay.h"

#include <gtest/gtest.h>

#include <xcb/xcb.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

using namespace marlowick;
using namespace marlowick::test;

namespace {

sockaddr_un socketAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

// Listens as display `name()`: closes the first `refused` connections once their setup has arrived, and
// joins each later one to the real display `target`.
class FlakyServer {
public:
    FlakyServer(const std::string& target, int refused)
        : m_refused(refused) {
        m_target = "/tmp/.X11-unix/X" + target.substr(1);
        for (int n = 150; n < 200 && m_path.empty(); ++n) {
            const std::string path = "/tmp/.X11-unix/X" + std::to_string(n);
            if (std::filesystem::exists(path) ||
                std::filesystem::exists("/tmp/.X" + std::to_string(n) + "-lock")) {
                continue;
            }
            m_listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            const sockaddr_un address = socketAddress(path);
            if (bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                listen(m_listener, 8) == 0) {
                m_path = path;
                m_name = ":" + std::to_string(n);
            } else {
                close(m_listener);
                m_listener = -1;
            }
        }
        m_thread = std::jthread([this](std::stop_token stop) { serve(stop); });
    }
    ~FlakyServer() {
        m_thread.request_stop();
        m_thread = {};
        if (m_listener >= 0) {
            close(m_listener);
            std::filesystem::remove(m_path);
        }
    }

    const std::string& name() const { return m_name; }
    int accepted() const { return m_accepted; }

private:
    void serve(std::stop_token stop) {
        while (!stop.stop_requested() && m_listener >= 0) {
            pollfd waiting{m_listener, POLLIN, 0};
            if (poll(&waiting, 1, 20) <= 0) {
                continue;
            }
            const int client = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0) {
                continue;
            }
            if (++m_accepted <= m_refused) {
                // The setup arrives; the server hangs up without a word.
                pollfd setup{client, POLLIN, 0};
                poll(&setup, 1, 1000);
                close(client);
                continue;
            }
            relay(client, stop);
        }
    }

    // Passes bytes both ways between the client and the real display until either side hangs up.
    void relay(int client, std::stop_token stop) const {
        const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un address = socketAddress(m_target);
        if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            pollfd ends[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
            char buffer[65536];
            bool open = true;
            while (open && !stop.stop_requested()) {
                if (poll(ends, 2, 20) <= 0) {
                    continue;
                }
                for (int i = 0; i < 2 && open; ++i) {
                    if ((ends[i].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
                        const ssize_t n = read(ends[i].fd, buffer, sizeof buffer);
                        open = n > 0 && write(ends[1 - i].fd, buffer, static_cast<std::size_t>(n)) == n;
                    }
                }
            }
        }
        close(server);
        close(client);
    }

    std::string m_target; // the real display's socket
    int m_refused;
    int m_listener = -1;
    std::string m_path;
    std::string m_name;
    std::atomic<int> m_accepted = 0;
    std::jthread m_thread; // last: it ends before the rest goes
};

} // namespace

TEST(X11Connection, AConnectionClosedAtSetupIsTriedAgainAndOneThatNeverHoldsSaysSo) {
    const VirtualDisplay display;
    MARLOWICK_REQUIRE(xvfb(display));
    {
        const FlakyServer server(display.name(), 2);
        ASSERT_FALSE(server.name().empty());
        const X11Connection connection(server.name());
        EXPECT_EQ(connection.tries(), 3);
        // A working connection to the real display: it answers a request.
        xcb_connection_t* c = connection.get();
        xcb_get_input_focus_reply_t* focus = xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr);
        EXPECT_NE(focus, nullptr);
        std::free(focus);
        EXPECT_EQ(connection.screen().width_in_pixels, 1280);
    }
    {
        const FlakyServer server(display.name(), 1000);
        const auto refused = thrown<CaptureError>([&] { const X11Connection connection(server.name()); });
        ASSERT_TRUE(refused);
        EXPECT_EQ(refused->kind(), CaptureError::Kind::noDisplayAvailable);
        EXPECT_NE(std::string(refused->what()).find(server.name()), std::string::npos) << refused->what();
        EXPECT_EQ(server.accepted(), X11Connection::attempts);
    }
}
