#pragma once

#include "support/Prerequisites.h"
#include "support/TempDir.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace marlowick::test {

// A private PipeWire daemon in a runtime directory of its own, stopped at the end. It runs no session
// manager, so nothing links streams by itself: a test links them (SyntheticScreen::link).
class PipeWireDaemon {
public:
    PipeWireDaemon() {
        const std::filesystem::path runtime = m_directory.path();
        std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
        m_socket = runtime / "pipewire-0";
        m_pid = fork();
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM); // a test that crashes takes its daemon with it
            setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
            setenv("PIPEWIRE_RUNTIME_DIR", runtime.c_str(), 1);
            // No session bus: the daemon's optional portal module gives up quietly without one.
            setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);
            std::freopen((runtime / "pipewire.log").c_str(), "w", stdout);
            std::freopen((runtime / "pipewire.log").c_str(), "a", stderr);
            execlp("pipewire", "pipewire", static_cast<char*>(nullptr));
            _exit(127);
        }
        for (int i = 0; i < 250 && m_pid > 0; ++i) {
            if (std::filesystem::exists(m_socket)) {
                const int fd = connect();
                if (fd >= 0) {
                    ::close(fd);
                    m_up = true;
                    return;
                }
            }
            if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
                m_pid = -1; // not installed, or it failed
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    ~PipeWireDaemon() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
    }
    PipeWireDaemon(const PipeWireDaemon&) = delete;
    PipeWireDaemon& operator=(const PipeWireDaemon&) = delete;

    bool up() const { return m_up; }
    const std::filesystem::path& socket() const { return m_socket; }

    // A new connection to the daemon, as a screen-sharing portal hands one out; -1 when it can't be made.
    int connect() const {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", m_socket.c_str());
        if (fd >= 0 && ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            return fd;
        }
        if (fd >= 0) {
            ::close(fd);
        }
        return -1;
    }

private:
    TempDir m_directory;
    std::filesystem::path m_socket;
    pid_t m_pid = -1;
    bool m_up = false;
};

inline Prerequisite pipeWire(const PipeWireDaemon& daemon) {
    return {daemon.up(), "PipeWire (a private daemon)", "the Debian package pipewire"};
}

} // namespace marlowick::test
