#include "Arguments.h"
#include "Commands.h"
#include "Errors.h"
#include "InterruptWatch.h"

#include "capture/CaptureBackend.h"
#include "capture/MonitorLayout.h"
#include "capture/WaylandScreenCapturer.h"
#include "capture/X11Connection.h"
#include "capture/X11ScreenCapturer.h"
#include "model/FileOps.h"
#include "model/MarlowickDocument.h"
#include "trajectory/NewRecording.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <thread>
#include <unistd.h>

namespace marlowick::cli {

namespace {

constexpr std::string_view help =
    R"(Usage: marlowick record [-o TAKE.marlowick] [--seconds N] [--system-audio | --no-system-audio]
                        [--mic] [--countdown N] [--monitor NAME] [--backend x11|wayland]

Records the screen with the system's sound (on unless --no-system-audio) and, with --mic,
the default microphone, each on a track of its own, and the pointer and keyboard telemetry beside it.
The cursor is left out of the picture: the editor draws it from the telemetry.

On Wayland (WAYLAND_DISPLAY set, or XDG_SESSION_TYPE=wayland) the desktop's screen-sharing dialog asks
which screen to share, once: the answer is kept in $XDG_STATE_HOME/marlowick/ (~/.local/state/marlowick/)
for the next takes. There the telemetry holds pointer positions where the desktop shares them, and
clicks, scrolls and keys where this user may read the input devices (membership of the input group). Elsewhere the X display of $DISPLAY is recorded. --backend chooses either.

On X11 one monitor is recorded at its own size: the primary one, or with --monitor NAME the one
'xrandr --listmonitors' names so (HDMI-1, DP-2...); an unknown name is refused with the names there
are. The telemetry is on that monitor's pixels; what happens on the other monitors is left out.

Recording runs until Ctrl-C or for N seconds, after a countdown (3 seconds unless told). The take then
becomes a new project, with zooms placed in the dynamic style, saved as a package (by default
"Take YYYY-MM-DD at HH.MM.SS.marlowick" here). While recording, the movie is written to the
temporary directory in pieces a second long, so that a crash loses only the last second or so; the
path is printed when the recording starts.

Examples:
  marlowick record --seconds 30 --mic -o tour.marlowick
  marlowick record --countdown 0 --no-system-audio
  marlowick record --monitor HDMI-1 --seconds 10
)";

std::string defaultPackageName() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char name[64];
    std::strftime(name, sizeof name, "Take %Y-%m-%d at %H.%M.%S.marlowick", &local);
    return name;
}

// Where the screen-sharing portal's restore token is kept between takes.
std::filesystem::path restoreTokenPath() {
    const char* state = std::getenv("XDG_STATE_HOME");
    const char* home = std::getenv("HOME");
    const std::filesystem::path base = state != nullptr && *state != '\0' ? std::filesystem::path(state)
                                       : home != nullptr ? std::filesystem::path(home) / ".local/state"
                                                         : std::filesystem::temp_directory_path();
    return base / "marlowick" / "screen-share-token";
}

std::string readRestoreToken() {
    std::ifstream in(restoreTokenPath());
    std::string token;
    std::getline(in, token);
    return token;
}

// Each token is good for one start, so each new one replaces the last; a token that can't be kept only
// means the dialog shows again next time.
void writeRestoreToken(const std::string& token) {
    std::error_code ignored;
    std::filesystem::create_directories(restoreTokenPath().parent_path(), ignored);
    std::ofstream(restoreTokenPath(), std::ios::trunc) << token << '\n';
}

void printWarnings(ScreenCapturer& capturer) {
    for (const std::string& warning : capturer.takeWarnings()) {
        std::cerr << "marlowick: " << warning << '\n';
    }
}

} // namespace

int runRecord(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const auto parsed = parseArguments("record", args, {"--system-audio", "--no-system-audio", "--mic"},
                                       {"-o", "--seconds", "--countdown", "--monitor", "--backend"}, 0);
    if (!parsed) {
        return exitUsage;
    }
    const double seconds = parsed->number("--seconds", "seconds", 0, 86400).value_or(0); // 0: until Ctrl-C
    const double countdown = parsed->number("--countdown", "seconds", 0, 60).value_or(3);
    if (parsed->has("--system-audio") && parsed->has("--no-system-audio")) {
        report("record: --system-audio and --no-system-audio can't both be given");
        return exitUsage;
    }
    std::filesystem::path package = parsed->value("-o").value_or(defaultPackageName());
    if (package.extension() != ".marlowick") {
        package += ".marlowick";
    }
    if (std::filesystem::exists(package)) {
        report(package.string() + " already exists; a take goes into a new package");
        return exitFailure;
    }

    CaptureBackend backend = sessionCaptureBackend();
    if (const std::optional<std::string> named = parsed->value("--backend")) {
        const std::optional<CaptureBackend> chosen = captureBackendNamed(*named);
        if (!chosen) {
            report("record: --backend takes x11 or wayland, not " + *named);
            return exitUsage;
        }
        backend = *chosen;
    }
    const std::optional<std::string> monitor = parsed->value("--monitor");
    if (monitor && backend == CaptureBackend::wayland) {
        report("record: --monitor chooses among an X display's monitors; on Wayland the desktop's "
               "screen-sharing dialog asks which screen to share");
        return exitUsage;
    }

    const InterruptWatch interrupt;
    std::unique_ptr<ScreenCapturer> capturer;
    std::function<std::string()> encoderName;
    // The movie takes the recorded monitor's own size, or the shared stream's.
    CaptureConfiguration configuration;
    std::string recorded = "the shared screen";
    if (backend == CaptureBackend::wayland) {
        WaylandScreenCapturer::Options options;
        options.restoreToken = readRestoreToken();
        options.restoreTokenChanged = writeRestoreToken;
        auto wayland = std::make_unique<WaylandScreenCapturer>(options);
        encoderName = [w = wayland.get()] { return w->encoderName(); };
        capturer = std::move(wayland);
    } else {
        // The connection that finds the monitor is the one the take records through; an unknown monitor is
        // refused before the countdown.
        std::shared_ptr<X11Connection> display;
        try {
            display = std::make_shared<X11Connection>();
            const ScreenMonitor chosen = MonitorLayout::read(*display).choose(monitor.value_or(""));
            configuration.monitor = chosen.name;
            recorded =
                chosen.name + " (" + std::to_string(chosen.width) + "×" + std::to_string(chosen.height) + ")";
        } catch (const CaptureError& error) {
            report(describe(error));
            return error.kind() == CaptureErrorKind::unknownMonitor ? exitUsage : exitFailure;
        }
        auto x11 = std::make_unique<X11ScreenCapturer>(X11ScreenCapturer::Options{}, display);
        encoderName = [x = x11.get()] { return x->encoderName(); };
        capturer = std::move(x11);
    }
    configuration.outputURL =
        std::filesystem::temp_directory_path() / ("take-" + Uuid::random().toString() + ".mov");
    configuration.frameRate = 60;
    configuration.capturesAudio = !parsed->has("--no-system-audio");
    configuration.capturesMicrophone = parsed->has("--mic");

    for (int left = static_cast<int>(countdown); left > 0 && !interrupt.token().stop_requested(); --left) {
        std::cerr << left << "… " << std::flush;
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    if (interrupt.token().stop_requested()) {
        std::cerr << "\nNothing recorded.\n";
        return exitInterrupted;
    }
    try {
        capturer->start(configuration);
    } catch (const CaptureError& error) {
        report(describe(error));
        return exitFailure;
    }
    const bool terminal = ::isatty(STDERR_FILENO) != 0;
    std::cerr << (countdown >= 1 ? "\n" : "") << "Recording " << recorded << " at 60 fps into "
              << configuration.outputURL.string() << " (" << encoderName() << "); "
              << (seconds > 0
                      ? "it stops after " + std::to_string(static_cast<int>(seconds)) + " s or at Ctrl-C"
                      : "Ctrl-C stops it")
              << ".\n";
    const TelemetryAvailability telemetry = capturer->telemetryAvailability();
    if (backend == CaptureBackend::wayland && telemetry == TelemetryAvailability::none) {
        std::cerr
            << "marlowick: the desktop doesn't share the pointer's position: no pointer, clicks or keys "
               "are recorded, so zooms aren't placed.\n";
    } else if (backend == CaptureBackend::wayland && telemetry == TelemetryAvailability::positionOnly) {
        std::cerr
            << "marlowick: only pointer positions are recorded: clicks, scrolls and keys are read from "
               "the input devices in /dev/input, which this user can't read, so zooms follow the pointer "
               "alone. Membership of the input group grants it (sudo usermod -aG input $USER, then log "
               "in again).\n";
    } else if (backend == CaptureBackend::x11 && telemetry != TelemetryAvailability::full) {
        std::cerr << "marlowick: the X server has no RECORD extension: only pointer positions are recorded, "
                     "no clicks or keys.\n";
    }

    const auto began = std::chrono::steady_clock::now();
    std::optional<CaptureError> interruption;
    auto shown = began;
    while (!interrupt.token().stop_requested()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        const auto now = std::chrono::steady_clock::now();
        const double elapsed = std::chrono::duration<double>(now - began).count();
        if (seconds > 0 && elapsed >= seconds) {
            break;
        }
        if ((interruption = capturer->interruption())) {
            break;
        }
        printWarnings(*capturer);
        if (terminal && now - shown >= std::chrono::milliseconds(250)) {
            shown = now;
            const CaptureStatistics statistics = capturer->statistics();
            char line[120];
            std::snprintf(line, sizeof line, "\r● %d:%02d  %lld frames, %lld dropped   ",
                          static_cast<int>(elapsed) / 60, static_cast<int>(elapsed) % 60,
                          static_cast<long long>(statistics.framesWritten),
                          static_cast<long long>(statistics.framesDropped));
            std::cerr << line << std::flush;
        }
    }
    if (terminal) {
        std::cerr << '\n';
    }
    if (interruption) {
        report(describe(*interruption));
    }

    std::cerr << "Finishing the movie…\n";
    Recording recording;
    try {
        recording = capturer->stop();
    } catch (const CaptureError& error) {
        report(describe(error) + " The partial movie stays at " + configuration.outputURL.string());
        return exitFailure;
    }
    printWarnings(*capturer);
    const CaptureStatistics statistics = capturer->statistics();

    std::size_t clicks = 0;
    std::size_t keys = 0;
    for (const InputEvent& event : recording.inputEvents) {
        clicks += event.kind == InputEvent::Kind::down;
        keys += event.kind == InputEvent::Kind::keyPress;
    }
    try {
        const MarlowickDocument document = documentForNewRecording(recording, package.stem().string());
        document.write(package);
        // The package holds the movie now (by a link or a copy of its own).
        std::error_code ignored;
        std::filesystem::remove(configuration.outputURL, ignored);
        char line[320];
        std::snprintf(
            line, sizeof line,
            "Recorded %.1f s: %s, %lld dropped (%lld after the first second); %s (%s, %s), %s\nSaved %s\n",
            recording.duration, counted(static_cast<std::size_t>(statistics.framesWritten), "frame").c_str(),
            static_cast<long long>(statistics.framesDropped),
            static_cast<long long>(statistics.framesDroppedAfterFirstSecond),
            counted(recording.inputEvents.size(), "event").c_str(), counted(clicks, "click").c_str(),
            counted(keys, "key press", "key presses").c_str(),
            counted(document.project.camera.beats.size(), "zoom").c_str(), package.c_str());
        std::cout << line;
    } catch (const std::exception& error) {
        report(package.string() + ": " + describe(error, PackageAccess::saving) + "; the movie stays at " +
               configuration.outputURL.string());
        return exitFailure;
    }
    return interruption ? exitFailure : 0;
}

} // namespace marlowick::cli
