#pragma once

#include "model/FileOps.h"

#include <csignal>
#include <filesystem>
#include <pthread.h>
#include <stop_token>
#include <thread>
#include <unistd.h>

namespace marlowick::cli {

constexpr int exitInterrupted = 130; // what shells report for a command stopped by Ctrl-C

// Turns Ctrl-C and a termination request into a stop request. The signals are blocked in this thread and
// in every thread started after it, and taken by a thread of its own with sigwait, so that nothing
// async-signal-unsafe happens in a handler. A second Ctrl-C ends the process at once; so does the first
// when the work can't stop (`stoppable` false). Ending at once skips the unwinding that would remove an
// unfinished output, so the hidden staging files of `output` are removed first.
class InterruptWatch {
public:
    explicit InterruptWatch(std::filesystem::path output = {}, bool stoppable = true)
        : m_output(std::move(output))
        , m_stoppable(stoppable) {
        sigemptyset(&m_signals);
        sigaddset(&m_signals, SIGINT);
        sigaddset(&m_signals, SIGTERM);
        sigaddset(&m_signals, SIGUSR1); // our own wake-up at the end
        pthread_sigmask(SIG_BLOCK, &m_signals, &m_previous);
        m_thread = std::thread([this] {
            for (;;) {
                int signal = 0;
                sigwait(&m_signals, &signal);
                if (signal == SIGUSR1) {
                    return;
                }
                if (m_stop.stop_requested() || !m_stoppable) {
                    if (!m_output.empty()) {
                        fileops::removeStagedOutputs(m_output);
                    }
                    _exit(exitInterrupted);
                }
                m_stop.request_stop();
            }
        });
    }
    ~InterruptWatch() {
        pthread_kill(m_thread.native_handle(), SIGUSR1);
        m_thread.join();
        pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
    }
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    std::stop_token token() const { return m_stop.get_token(); }

private:
    std::filesystem::path m_output;
    bool m_stoppable;
    sigset_t m_signals{};
    sigset_t m_previous{};
    std::stop_source m_stop;
    std::thread m_thread;
};

} // namespace marlowick::cli
