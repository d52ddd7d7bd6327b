#pragma once

#include "support/SoundServer.h"
#include "support/TwoMonitorDisplay.h"
#include "support/VirtualDisplay.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>
#include <string>

namespace marlowick::test {

// Something a test needs from the machine that the test's fixture could not start.
struct Prerequisite {
    bool present;
    std::string what;     // as a sentence names it
    std::string packages; // the Debian packages that bring it, as a sentence names them
};

inline Prerequisite xvfb(const VirtualDisplay& display) {
    return {!display.name().empty(), "Xvfb (a private X display)", "the Debian package xvfb"};
}

inline Prerequisite xorgDummy(const TwoMonitorDisplay& display) {
    return {!display.name().empty(), "Xorg with the dummy video driver (a private display of two monitors)",
            "the Debian packages xserver-xorg-core and xserver-xorg-video-dummy"};
}

inline Prerequisite pulseAudio(const SoundServer& sound) {
    return {sound.up(), "PulseAudio (a private sound server with pactl and parec)",
            "the Debian packages pulseaudio and pulseaudio-utils"};
}

// Where CI runs, the CI variable is set (`CI=true bash .ci/run`).
inline bool inContinuousIntegration() {
    const char* ci = std::getenv("CI");
    return ci != nullptr && *ci != '\0';
}

// What is missing of `needed`, as a sentence, or empty when everything is there.
inline std::string missing(std::initializer_list<Prerequisite> needed) {
    std::string text;
    for (const Prerequisite& p : needed) {
        if (!p.present) {
            text += (text.empty() ? "" : "; ") + p.what + " did not start: install " + p.packages;
        }
    }
    return text;
}

} // namespace marlowick::test

// Ends a test that can't run here: skipped on a developer's machine, failed where CI runs, so that CI
// never passes with the capture untested. Takes Prerequisites, as `MARLOWICK_REQUIRE(xvfb(display))`.
#define MARLOWICK_REQUIRE(...)                                                                               \
    do {                                                                                                     \
        const std::string missingPrerequisites = ::marlowick::test::missing({__VA_ARGS__});                  \
        if (!missingPrerequisites.empty()) {                                                                 \
            if (::marlowick::test::inContinuousIntegration()) {                                              \
                FAIL() << missingPrerequisites << " (CI is set, so this test must run)";                     \
            }                                                                                                \
            GTEST_SKIP() << missingPrerequisites;                                                            \
        }                                                                                                    \
    } while (false)
