// A save killed at any instant leaves a package that opens, as the previous version or the new one, and
// never a mix of the two.

#include "model/MarlowickDocument.h"
#include "support/Samples.h"

#include <chrono>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

TEST(DocumentCrash, KillingASaveAtAnyMomentLeavesAPackageThatOpens) {
    TempDir dir;
    const fs::path movie = writeMovie(dir / "take-7.mov", std::string(1 << 20, 'm'));
    const fs::path target = dir / "Crash.marlowick";
    // Each version has its own count of events, so a package mixing two saves would show.
    const MarlowickDocument first(sampleProject(movie, "first"), sampleEvents(20000));
    const MarlowickDocument second(sampleProject(movie, "second"), sampleEvents(12000));
    auto eventsOf = [](const std::string& name) { return name == "first" ? 20000u : 12000u; };

    first.write(target);
    const auto started = Clock::now();
    second.write(target);
    const auto saveTime = Clock::now() - started;

    constexpr int kills = 60;
    int killedMidRun = 0;
    // A kill inside a save leaves its scratch directory behind; some must have, or the test saw no save.
    auto scratchDirectories = [&] {
        int count = 0;
        for (const auto& entry : fs::directory_iterator(dir.path())) {
            count += entry.path().filename().string().starts_with(".marlowick-save-") ? 1 : 0;
        }
        return count;
    };
    for (int i = 0; i < kills; ++i) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            // Saves the two versions in turn until killed.
            try {
                for (;;) {
                    first.write(target);
                    second.write(target);
                }
            } catch (...) {
                ::_exit(3);
            }
        }
        // Spread the kills over about three saves, so that they land in every step of one.
        std::this_thread::sleep_for(saveTime * (3.0 * i / kills));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the saving child stopped by itself, status " << status;
        ++killedMidRun;

        const MarlowickDocument read = MarlowickDocument::read(target);
        ASSERT_TRUE(read.project.name == "first" || read.project.name == "second") << read.project.name;
        ASSERT_EQ(read.telemetry().size(), eventsOf(read.project.name)) << "kill " << i;
    }
    EXPECT_EQ(killedMidRun, kills);
    EXPECT_GT(scratchDirectories(), 0);
}
