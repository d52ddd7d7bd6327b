// How long a long take takes to open in the editor: a package with an hour of telemetry (the pointer at
// 120 Hz, a click every 5 s) and a 1920x1080 movie with two sound tracks, opened by the EditorSession until
// it is editing with its cursor sampler, the player loaded with the preview mix (a player that only
// notes what it is given) and the waveform in. Beside it, the command-line tool's `info` and `mix` on the
// same package, which read it and render the same sound. The picture runs at 1 frame a second, since
// nothing timed here decodes it; the recording says 60, as a capture's does, for the cursor's sake.
//
//   marlowick-session-bench [minutes]   (60 unless given)

#include "session/EditorSession.h"
#include "support/LongTake.h"
#include "support/OnePackage.h"

#include <QCoreApplication>
#include <QTest>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

using namespace marlowick;
namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class NoFrames : public VideoOutput {
public:
    bool hasNewFrame(double) const override { return false; }
    std::optional<PlayerFrame> frameAt(double) override { return std::nullopt; }
};

// Notes that it was given an item; plays nothing.
class NotingPlayer : public Player {
public:
    explicit NotingPlayer(bool* opened)
        : m_opened(opened) {}
    void open(PlayerItem, PlayerCallbacks) override { *m_opened = true; }
    void play() override {}
    void pause() override {}
    void seek(double) override {}
    double currentTime() const override { return 0; }
    VideoOutput& videoOutput() override { return m_output; }

private:
    bool* m_opened;
    NoFrames m_output;
};

class NoCapture : public ScreenCapturer {
public:
    TelemetryAvailability telemetryAvailability() const override { return TelemetryAvailability::none; }
    void start(const CaptureConfiguration&) override { throw CaptureError(CaptureError::Kind::notRecording); }
    Recording stop() override { throw CaptureError(CaptureError::Kind::notRecording); }
    std::optional<CaptureError> interruption() const override { return std::nullopt; }
    std::vector<std::string> takeWarnings() override { return {}; }
    CaptureStatistics statistics() const override { return {}; }
};

bool run(const std::string& command) {
    return std::system(command.c_str()) == 0;
}

// Seconds `command` ran, or -1 when it failed.
double timed(const std::string& command) {
    const Clock::time_point start = Clock::now();
    return run(command) ? since(start) : -1;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const double minutes = argc > 1 ? std::atof(argv[1]) : 60;
    const fs::path dir = fs::temp_directory_path() / ("marlowick-session-bench-" + Uuid::random().toString());
    fs::create_directories(dir);
    const fs::path package = dir / "Long.marlowick";

    std::printf("Making a %.0f-minute take at 1920x1080…\n", minutes);
    std::fflush(stdout);
    try {
        bench::makeLongTake(package, "Long", minutes, 1);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }

    bool opened = false;
    EditorSession session(
        std::make_unique<bench::OnePackage>(package),
        [&opened] { return std::make_unique<NotingPlayer>(&opened); },
        [] { return std::make_unique<NoCapture>(); }, nullptr);
    const Clock::time_point start = Clock::now();
    session.open();
    const double editing = since(start);
    if (session.phase() != SessionPhase::editing() || !session.cursorSampler()) {
        std::fprintf(stderr, "the session did not open the package: %s\n",
                     session.lastError().value_or("no message").c_str());
        return 1;
    }
    double playerLoaded = -1;
    double waveformIn = -1;
    const bool arrived = QTest::qWaitFor(
        [&] {
            if (playerLoaded < 0 && opened) {
                playerLoaded = since(start);
            }
            if (waveformIn < 0 && !session.waveform().empty()) {
                waveformIn = since(start);
            }
            return playerLoaded >= 0 && waveformIn >= 0;
        },
        4 * 3600 * 1000);
    if (!arrived) {
        std::fprintf(stderr, "the player or the waveform never arrived\n");
        return 1;
    }
    std::printf(
        "EditorSession: editing with the cursor sampler %.2f s, waveform in %.2f s, player loaded with "
        "the preview mix %.2f s\n",
        editing, waveformIn, playerLoaded);
    std::fflush(stdout);

    const std::string cli = MARLOWICK_CLI;
    const double info = timed(cli + " info '" + package.string() + "' >/dev/null 2>&1");
    const double mix = timed(cli + " mix '" + package.string() + "' -o '" + (dir / "mix.m4a").string() +
                             "' >/dev/null 2>&1");
    std::printf("marlowick info %.2f s, marlowick mix %.2f s, together %.2f s\n", info, mix, info + mix);
    std::error_code ignored;
    fs::remove_all(dir, ignored);
    return 0;
}
