#pragma once

#include "capture/CaptureError.h"
#include "capture/X11Connection.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace marlowick::test {

// A private Xvfb on the first free display number, stopped at the end. It runs with -noreset: by default
// an X server resets when its last client leaves, and the connection after the readiness check would
// find it half way through, without its extensions. With `record` false the server runs without the
// RECORD extension. With an `audit` file the server writes a line there for each client that connects
// ("client N connected from local host").
class VirtualDisplay {
public:
    explicit VirtualDisplay(bool record = true, const std::filesystem::path& audit = {}) {
        for (int n = 90; n < 140; ++n) {
            if (std::filesystem::exists("/tmp/.X11-unix/X" + std::to_string(n)) ||
                std::filesystem::exists("/tmp/.X" + std::to_string(n) + "-lock")) {
                continue;
            }
            m_name = ":" + std::to_string(n);
            m_server = fork();
            if (m_server == 0) {
                std::freopen(audit.empty() ? "/dev/null" : audit.c_str(), "w", stderr);
                execlp("Xvfb", "Xvfb", m_name.c_str(), "-screen", "0", "1280x720x24", "-nolisten", "tcp",
                       "-noreset", record ? "+extension" : "-extension", "RECORD", "-audit",
                       audit.empty() ? "0" : "4", static_cast<char*>(nullptr));
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
                if (waitpid(m_server, nullptr, WNOHANG) == m_server) {
                    m_server = -1; // it ended: no Xvfb, or it can't run here
                    break;
                }
            }
            break;
        }
        m_name.clear();
    }
    ~VirtualDisplay() {
        if (m_server > 0) {
            kill(m_server, SIGTERM);
            waitpid(m_server, nullptr, 0);
        }
    }
    const std::string& name() const { return m_name; }

private:
    std::string m_name;
    pid_t m_server = -1;
};

} // namespace marlowick::test
