// The editor window's speed, under an X server (make bench runs it inside xvfb-run, on Mesa's llvmpipe
// unless the machine has a GPU):
//
// 1. Frames drawn a second while a 1080p60 take plays in a 960x540 canvas, counted apart for the frames
//    where the camera moves and those where it holds still. The sample take gets a beat every 2 s, so
//    that about half its length has the camera ramping in or out. Then the same in the editor's window,
//    where the transport, the rail and the inspector stand around a canvas of about the same size.
// 2. Time from starting the window on a 10-minute take until its first composited frame is on screen,
//    with the project's sound processed (the default of a new recording) and with the recording's own
//    sound. Each start is a fresh process of this program, timed from its launch by the parent.
//
//   marlowick-studio-bench [seconds]          (the played take's length; 20 unless given)
//   marlowick-studio-bench --play PACKAGE          (only the frame rate, on a take of one's own)
//   marlowick-studio-bench --first-frame PACKAGE   (one start; prints a line at the first frame)

#include "capture/X11ScreenCapturer.h"
#include "compositor/CameraSolver.h"
#include "playback/PreviewPlayer.h"
#include "session/EditorSession.h"
#include "support/LongTake.h"
#include "support/OnePackage.h"
#include "ui/CanvasPreview.h"
#include "ui/CanvasWidget.h"
#include "ui/MainWindow.h"
#include "ui/QtScreenInfo.h"

#include <QApplication>
#include <QIcon>
#include <QSurfaceFormat>
#include <QTest>

#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

using namespace marlowick;
namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

// Processor seconds of this process, all its threads (the GL rasteriser's among them).
double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Processor seconds of each thread of this process now, with its name, by thread id.
struct ThreadTime {
    std::string name;
    double seconds = 0;
};
std::map<long, ThreadTime> threadTimes() {
    std::map<long, ThreadTime> times;
    const double tick = static_cast<double>(sysconf(_SC_CLK_TCK));
    std::error_code error;
    for (const fs::directory_entry& task : fs::directory_iterator("/proc/self/task", error)) {
        std::ifstream commFile(task.path() / "comm");
        std::ifstream statFile(task.path() / "stat");
        std::string name;
        std::string stat;
        std::getline(commFile, name);
        std::getline(statFile, stat);
        // The fields after the name, which ends at the last parenthesis: utime and stime are the 12th and
        // 13th of them.
        const std::size_t close = stat.rfind(')');
        if (close == std::string::npos) {
            continue;
        }
        std::istringstream fields(stat.substr(close + 2));
        std::string field;
        double user = 0;
        double system = 0;
        for (int i = 1; i <= 13 && fields >> field; ++i) {
            if (i == 12) {
                user = std::atof(field.c_str());
            } else if (i == 13) {
                system = std::atof(field.c_str());
            }
        }
        times[std::atol(task.path().filename().c_str())] = {name, (user + system) / tick};
    }
    return times;
}

// Where the processor time between two readings went, in ms a frame drawn: the main thread (Qt, the GL
// commands, taking the player's pictures), the GL rasteriser's threads (llvmpipe), and the others (the
// player's decoding and conversion, Qt's pools).
std::string threadSplit(const std::map<long, ThreadTime>& before, const std::map<long, ThreadTime>& after,
                        int frames) {
    double main = 0;
    double rasteriser = 0;
    double others = 0;
    for (const auto& [id, time] : after) {
        const auto earlier = before.find(id);
        const double spent = time.seconds - (earlier != before.end() ? earlier->second.seconds : 0);
        if (id == static_cast<long>(getpid())) {
            main += spent;
        } else if (time.name.rfind("llvmpipe", 0) == 0) {
            rasteriser += spent;
        } else {
            others += spent;
        }
    }
    const double perFrame = frames > 0 ? 1000.0 / frames : 0;
    char text[160];
    std::snprintf(text, sizeof text, "main thread %.1f, GL rasteriser %.1f, player and others %.1f",
                  main * perFrame, rasteriser * perFrame, others * perFrame);
    return text;
}

double since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::unique_ptr<EditorSession> makeSession(const fs::path& package) {
    return std::make_unique<EditorSession>(
        std::make_unique<bench::OnePackage>(package), [] { return std::make_unique<PreviewPlayer>(); },
        [] { return std::make_unique<X11ScreenCapturer>(); }, std::make_unique<QtScreenInfo>(true));
}

void setUpApplication() {
    // As the application does: the canvas needs a 3.3 core context.
    QSurfaceFormat format;
    format.setVersion(3, 3);
    format.setProfile(QSurfaceFormat::CoreProfile);
    QSurfaceFormat::setDefaultFormat(format);
}

// One start of the window on `package`, as `marlowick-studio PACKAGE` starts: prints "first frame" once
// the canvas has put the recording's first picture on screen, then quits.
int firstFrame(int argc, char** argv) {
    setUpApplication();
    QApplication app(argc, argv);
    QIcon::setFallbackThemeName("Adwaita");
    const std::unique_ptr<EditorSession> session = makeSession(argv[2]);
    MainWindow window(*session);
    window.resize(1280, 800);
    window.show();
    session->open();
    if (session->phase() != SessionPhase::editing()) {
        std::fprintf(stderr, "the package did not open: %s\n", session->lastError().value_or("").c_str());
        return 1;
    }
    CanvasWidget* canvas = window.editor()->canvas();
    QObject::connect(canvas, &CanvasWidget::frameSwapped, &app, [canvas] {
        if (canvas->shownFrame()) {
            std::printf("first frame\n");
            std::fflush(stdout);
            QApplication::quit();
        }
    });
    return QApplication::exec();
}

// Seconds from launching a start of the window on `package` until it reports its first frame; -1 when it
// fails.
double timeToFirstFrame(const std::string& self, const fs::path& package) {
    const Clock::time_point start = Clock::now();
    FILE* child = popen(("'" + self + "' --first-frame '" + package.string() + "'").c_str(), "r");
    if (child == nullptr) {
        return -1;
    }
    char line[64] = {};
    const bool reported = std::fgets(line, sizeof line, child) != nullptr;
    const double seconds = since(start);
    return pclose(child) == 0 && reported ? seconds : -1;
}

// Plays the whole of `package` in a 960x540 canvas, or in the editor's window, and prints the frames drawn
// a second.
bool measureFrameRate(const fs::path& package, bool inWindow) {
    const std::unique_ptr<EditorSession> session = makeSession(package);
    session->open();
    if (!session->document()) {
        std::fprintf(stderr, "the sample did not open: %s\n", session->lastError().value_or("").c_str());
        return false;
    }
    // A beat every 2 s, 1.4 s long with ramps of 0.5 s: the camera moves for about half of each 2 s.
    session->editProject([](Project& project) {
        project.camera.beats.clear();
        for (double t = 0.2; t + 1.4 < project.source.duration; t += 2) {
            const Point center{0.3 + 0.4 * std::fmod(t, 4) / 4, 0.35 + 0.1 * std::fmod(t, 6) / 6};
            project.camera.beats.emplace_back(Uuid::random(), t, t + 1.4, center, 2.0, 0.5, 0.5,
                                              Easing::easeInOut, false);
        }
    });
    const MarlowickDocument& document = *session->document();
    // The canvas on its own, or in the editor's window with the transport, the rail and the inspector.
    std::unique_ptr<CanvasWidget> bare;
    std::unique_ptr<MainWindow> window;
    if (inWindow) {
        window = std::make_unique<MainWindow>(*session);
        window->resize(1362, 794);
        window->show();
    } else {
        bare = std::make_unique<CanvasWidget>();
        bare->setFixedSize(960, 540);
        bare->setPlayback(session->playback());
        bare->setTimeline(OutputTimeline(document.project, document.telemetry()));
        bare->show();
    }
    CanvasWidget& canvas = window ? *window->editor()->canvas() : *bare;
    const CameraSolver camera{document.project.camera};
    PlaybackEngine* playback = session->playback();
    // The take plays with its processed sound once that is rendered: the player is loaded again then.
    const bool processed = !document.project.audio.isPassthrough();
    if (!QTest::qWaitFor([&] { return !processed || session->audioPreviewUrl(); }, 600000)) {
        std::fprintf(stderr, "the preview mix never came\n");
        return false;
    }
    QTest::qWait(1000);
    if (!QTest::qWaitFor([&] { return playback->duration() > 0 && canvas.shownFrame(); }, 120000)) {
        std::fprintf(stderr, "the player never showed a frame\n");
        return false;
    }

    int moving = 0;
    int still = 0;
    double movingTime = 0;
    double stillTime = 0;
    std::optional<Clock::time_point> last;
    QObject::connect(&canvas, &CanvasWidget::frameSwapped, &canvas, [&] {
        const Clock::time_point now = Clock::now();
        const double t = playback->currentTime();
        const bool moves = !(camera.transformAt(t) == camera.transformAt(t - 1.0 / 60));
        if (last) {
            const double interval = std::chrono::duration<double>(now - *last).count();
            (moves ? movingTime : stillTime) += interval;
            ++(moves ? moving : still);
        }
        last = now;
    });
    const double processorBefore = processorSeconds();
    const std::map<long, ThreadTime> threadsBefore = threadTimes();
    playback->play();
    const double length = playback->duration();
    if (!QTest::qWaitFor([&] { return playback->isPlaying(); }, 10000)) {
        std::fprintf(stderr, "the take never started playing\n");
        return false;
    }
    const bool ended =
        QTest::qWaitFor([&] { return !playback->isPlaying() || playback->currentTime() >= length - 0.05; },
                        static_cast<int>((length + 30) * 1000));
    if (!ended) {
        std::fprintf(stderr, "the take never played to its end\n");
        return false;
    }
    const double processor = processorSeconds() - processorBefore;
    const std::string split = threadSplit(threadsBefore, threadTimes(), moving + still);
    std::printf("Frames drawn a second at %dx%d %s while playing: camera moving %.1f (%d frames), holding "
                "still %.1f (%d frames); processor time %.1f ms a frame drawn, decoding included\n",
                canvas.width(), canvas.height(), inWindow ? "in the editor's window" : "on its own",
                movingTime > 0 ? moving / movingTime : 0.0, moving, stillTime > 0 ? still / stillTime : 0.0,
                still, moving + still > 0 ? processor * 1000 / (moving + still) : 0.0);
    std::printf("  of which, in ms a frame drawn: %s\n", split.c_str());
    std::fflush(stdout);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 2 && std::string(argv[1]) == "--first-frame") {
        return firstFrame(argc, argv);
    }
    if (argc > 2 && std::string(argv[1]) == "--play") {
        setUpApplication();
        QApplication app(argc, argv);
        return measureFrameRate(argv[2], false) && measureFrameRate(argv[2], true) ? 0 : 1;
    }
    const double seconds = argc > 1 ? std::atof(argv[1]) : 20;
    const fs::path dir = fs::temp_directory_path() / ("marlowick-studio-bench-" + Uuid::random().toString());
    fs::create_directories(dir);
    int status = 0;
    {
        setUpApplication();
        QApplication app(argc, argv);
        std::printf("Making a %.0f s sample take at 1920x1080, 60 fps…\n", seconds);
        std::fflush(stdout);
        const fs::path sample = dir / "Sample.marlowick";
        const std::string make = std::string("'") + MARLOWICK_CLI + "' sample '" + sample.string() +
                                 "' --size 1920x1080 --rate 60 --seconds " + std::to_string(seconds) +
                                 " >/dev/null 2>&1";
        if (std::system(make.c_str()) != 0 || !measureFrameRate(sample, false) ||
            !measureFrameRate(sample, true)) {
            status = 1;
        }
    }

    std::printf("Making a 10-minute take at 1920x1080, 60 fps…\n");
    std::fflush(stdout);
    const fs::path processed = dir / "Ten.marlowick";
    const fs::path plain = dir / "Plain.marlowick";
    try {
        bench::makeLongTake(processed, "Ten", 10, 60);
        MarlowickDocument document = MarlowickDocument::read(processed);
        document.project.audio = AudioSettings{};
        document.project.audio.enhanceVoice = false;
        document.project.audio.ducking = 0;
        document.project.audio.normalize = false;
        document.write(plain);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        fs::remove_all(dir);
        return 1;
    }
    const std::string self = fs::canonical("/proc/self/exe").string();
    for (const auto& [package, what] : {std::pair{processed, "the sound processed (default)"},
                                        std::pair{plain, "the recording's own sound"}}) {
        // The first start warms the disk cache and the shader cache; the second is reported.
        timeToFirstFrame(self, package);
        const double taken = timeToFirstFrame(self, package);
        std::printf("Start to first composited frame, 10-minute take, %s: %.2f s\n", what, taken);
        std::fflush(stdout);
        if (taken < 0) {
            status = 1;
        }
    }
    std::error_code ignored;
    fs::remove_all(dir, ignored);
    return status;
}
