#pragma once

#include "support/Prerequisites.h"
#include "support/TempDir.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace marlowick::test {

// A private session bus (its own dbus-daemon), and on it, when started, the fake screen-sharing portal of
// tests/capture/fake-screencast-portal.py; both stopped at the end.
class PortalBus {
public:
    PortalBus() {
        // The bus of its own starts no service installed on the machine: an installed desktop portal
        // would otherwise answer in place of the fake one once it stops.
        const std::filesystem::path config = m_directory / "bus.conf";
        std::ofstream(config)
            << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
               " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
               "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen>"
               "<auth>EXTERNAL</auth><policy context=\"default\"><allow send_destination=\"*\" "
               "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/></policy>"
               "</busconfig>\n";
        const std::string configOption = "--config-file=" + config.string();
        int out[2];
        if (pipe(out) != 0) {
            return;
        }
        m_daemon = fork();
        if (m_daemon == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            dup2(out[1], STDOUT_FILENO);
            ::close(out[0]);
            std::freopen("/dev/null", "w", stderr); // it can't raise its descriptor limit here, and says so
            execlp("dbus-daemon", "dbus-daemon", configOption.c_str(), "--nofork", "--print-address=1",
                   static_cast<char*>(nullptr));
            _exit(127);
        }
        ::close(out[1]);
        std::string address;
        char c = 0;
        while (read(out[0], &c, 1) == 1 && c != '\n') {
            address += c;
        }
        ::close(out[0]);
        m_address = address;
    }
    ~PortalBus() {
        stopPortal();
        stop(m_daemon);
    }
    PortalBus(const PortalBus&) = delete;
    PortalBus& operator=(const PortalBus&) = delete;

    bool up() const { return !m_address.empty(); }
    const std::string& address() const { return m_address; }
    std::filesystem::path log() const { return m_directory / "calls.log"; }

    // Starts the fake portal with its options (see the script); false when it didn't come up.
    bool startPortal(const std::vector<std::string>& options = {}) {
        stopPortal();
        std::filesystem::remove(log());
        m_portal = fork();
        if (m_portal == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            setenv("DBUS_SESSION_BUS_ADDRESS", m_address.c_str(), 1);
            std::vector<std::string> words{"/usr/bin/python3", MARLOWICK_FAKE_PORTAL, log().string()};
            words.insert(words.end(), options.begin(), options.end());
            std::vector<char*> argv;
            for (std::string& word : words) {
                argv.push_back(word.data());
            }
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        for (int i = 0; i < 500; ++i) {
            if (calls().size() == 1) {
                std::filesystem::remove(log()); // "Ready"
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    void stopPortal() {
        stop(m_portal);
        m_portal = -1;
    }

    // The portal's calls so far, one line of JSON each.
    std::vector<std::string> calls() const {
        std::ifstream in(log());
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) {
            lines.push_back(line);
        }
        return lines;
    }

private:
    static void stop(pid_t pid) {
        if (pid > 0) {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
        }
    }

    TempDir m_directory;
    std::string m_address;
    pid_t m_daemon = -1;
    pid_t m_portal = -1;
};

inline Prerequisite sessionBus(const PortalBus& bus) {
    return {bus.up(), "a private session bus (dbus-daemon)", "the Debian package dbus-daemon"};
}

// `started` as PortalBus::startPortal answered.
inline Prerequisite fakePortal(bool started) {
    return {started, "the fake screen-sharing portal (Python with D-Bus and GLib)",
            "the Debian packages python3-dbus and python3-gi"};
}

} // namespace marlowick::test
