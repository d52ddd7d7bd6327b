#pragma once

#include "support/XServer.h"

#include <cstdio>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace marlowick::test {

// A private Xvfb on the first free display number, stopped at the end. It runs with -noreset: by default
// an X server resets when its last client leaves, and the connection after the readiness check would
// find it half way through, without its extensions. With `record` false the server runs without the
// RECORD extension. With an `audit` file the server writes a line there for each client that connects
// ("client N connected from local host").
class VirtualDisplay {
public:
    explicit VirtualDisplay(bool record = true, const std::filesystem::path& audit = {})
        : m_server(90, 140, [&](const std::string& name) {
            std::freopen(audit.empty() ? "/dev/null" : audit.c_str(), "w", stderr);
            execlp("Xvfb", "Xvfb", name.c_str(), "-screen", "0", "1280x720x24", "-nolisten", "tcp",
                   "-noreset", record ? "+extension" : "-extension", "RECORD", "-audit",
                   audit.empty() ? "0" : "4", static_cast<char*>(nullptr));
        }) {}

    // Empty when the server didn't start.
    const std::string& name() const { return m_server.name(); }

private:
    XServer m_server;
};

} // namespace marlowick::test
