#pragma once

#include "capture/CaptureError.h"
#include "capture/X11Connection.h"

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace marlowick::test {

// An X server of a test's own on the first free display number from `first` to before `last`, stopped at
// the end: `exec` replaces the forked child with the server, given the display's name (":N").
class XServer {
public:
    XServer(int first, int last, const std::function<void(const std::string& name)>& exec) {
        for (int n = first; n < last; ++n) {
            if (std::filesystem::exists("/tmp/.X11-unix/X" + std::to_string(n)) ||
                std::filesystem::exists("/tmp/.X" + std::to_string(n) + "-lock")) {
                continue;
            }
            m_name = ":" + std::to_string(n);
            m_pid = fork();
            if (m_pid == 0) {
                exec(m_name);
                _exit(127);
            }
            // Up to about five seconds for the server to answer; each failed connection has already been
            // tried again a few times, briefly apart.
            for (int i = 0; i < 30; ++i) {
                try {
                    const X11Connection probe(m_name);
                    return;
                } catch (const CaptureError&) {
                }
                if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
                    m_pid = -1; // it ended: the server isn't installed, or can't run here
                    break;
                }
            }
            break;
        }
        m_name.clear();
    }
    ~XServer() {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            waitpid(m_pid, nullptr, 0);
        }
    }
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    // Empty when the server didn't start.
    const std::string& name() const { return m_name; }

private:
    std::string m_name;
    pid_t m_pid = -1;
};

} // namespace marlowick::test
