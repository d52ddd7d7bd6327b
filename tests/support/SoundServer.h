#pragma once

#include "support/TempDir.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace marlowick::test {

// A private PulseAudio daemon, stopped at the end: a null sink "sysaudio" as the default sink (what the
// system plays), and a virtual microphone "virtmic" as the default source, fed by whatever is played into
// the null sink "micsink". A low-latency reader stays attached to the monitor of each null sink: without
// one a null sink renders in large blocks, delivering its first sound late and its monitor's sound ahead
// of the latency it reports.
class SoundServer {
public:
    SoundServer() {
        const std::filesystem::path runtime = m_directory.path();
        std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
        m_server = "unix:" + (runtime / "pulse" / "native").string();
        const std::string env = "XDG_RUNTIME_DIR=" + runtime.string() + " HOME=" + runtime.string();
        const std::string start =
            env + " pulseaudio --daemonize=yes --exit-idle-time=-1 -n --log-target=file:" +
            (runtime / "pa.log").string() +
            " --load=module-native-protocol-unix"
            " --load='module-null-sink sink_name=sysaudio rate=48000 channels=2'"
            " --load='module-null-sink sink_name=micsink rate=48000 channels=1'"
            " --load='module-remap-source master=micsink.monitor source_name=virtmic' 2>/dev/null";
        if (std::system(start.c_str()) != 0) {
            return;
        }
        if (!run("pactl set-default-sink sysaudio") || !run("pactl set-default-source virtmic")) {
            return;
        }
        for (int i = 0; i < 2; ++i) {
            m_readers[i] = fork();
            if (m_readers[i] == 0) {
                std::freopen("/dev/null", "w", stdout);
                std::freopen("/dev/null", "w", stderr);
                execlp("parec", "parec", "-s", m_server.c_str(), "-d",
                       i == 0 ? "sysaudio.monitor" : "micsink.monitor", "--latency-msec=20",
                       static_cast<char*>(nullptr));
                _exit(127);
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        m_up = true;
    }
    ~SoundServer() {
        for (const pid_t reader : m_readers) {
            if (reader > 0) {
                kill(reader, SIGTERM);
                waitpid(reader, nullptr, 0);
            }
        }
        std::ifstream pidFile(m_directory.path() / "pulse" / "pid");
        pid_t daemon = 0;
        if (pidFile >> daemon && daemon > 0) {
            kill(daemon, SIGTERM);
            for (int i = 0; i < 100 && kill(daemon, 0) == 0; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        }
    }
    SoundServer(const SoundServer&) = delete;
    SoundServer& operator=(const SoundServer&) = delete;

    bool up() const { return m_up; }
    // As $PULSE_SERVER takes it.
    const std::string& server() const { return m_server; }

    // Runs a PulseAudio client command (pactl, paplay…) against this server; true when it succeeded.
    bool run(const std::string& command) const {
        const std::string line = "PULSE_SERVER=" + m_server + " " + command + " >/dev/null 2>&1";
        return std::system(line.c_str()) == 0;
    }

private:
    TempDir m_directory;
    std::string m_server;
    pid_t m_readers[2] = {-1, -1};
    bool m_up = false;
};

} // namespace marlowick::test
