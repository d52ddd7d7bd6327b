// marlowick-studio [--screenshot PATH [--play-seconds N]] [PACKAGE]: the editor's window; with a package, it
// opens straight into the editor. With --screenshot it plays the package for N seconds (none by default),
// pauses, saves a picture of the window at PATH and quits: the demo's look at the editor.

#include "capture/CaptureBackend.h"
#include "capture/WaylandScreenCapturer.h"
#include "capture/X11ScreenCapturer.h"
#include "playback/PreviewPlayer.h"
#include "session/EditorSession.h"
#include "session/Permissions.h"
#include "session/SystemPermissionProbes.h"
#include "ui/MainWindow.h"
#include "ui/OnboardingDialog.h"
#include "ui/QtFilePanels.h"
#include "ui/QtScreenInfo.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QIcon>
#include <QScreen>
#include <QSettings>
#include <QSurfaceFormat>
#include <QTimer>

#include <cstdio>
#include <memory>

namespace {

// How long the window waits for the package's player before it gives up on the picture.
constexpr int loadTimeoutMs = 60000;
// The canvas redraws at 60 Hz: a few of its refreshes after the pause, the picture shows the paused frame.
constexpr int settleMs = 250;

// Plays the open package for `seconds`, pauses, saves the window as `path` and quits with 0, or with 1
// where the package doesn't open or the picture can't be written.
void screenshotAfterPlaying(marlowick::EditorSession& session, marlowick::MainWindow& window,
                            const QString& path, double seconds) {
    auto* poll = new QTimer(&window);
    const auto waited = std::make_shared<QElapsedTimer>();
    waited->start();
    QObject::connect(poll, &QTimer::timeout, &window, [&session, &window, path, seconds, poll, waited] {
        marlowick::PlaybackEngine* playback = session.playback();
        if (session.lastError() || waited->elapsed() > loadTimeoutMs) {
            std::fprintf(stderr, "marlowick-studio: %s\n",
                         session.lastError() ? session.lastError()->c_str()
                                             : "the package did not load in time");
            poll->stop();
            QCoreApplication::exit(1);
            return;
        }
        // A new project first plays with the recording's own sound while its processed mix renders, and
        // the player is loaded again with the mix: the picture is taken of that one.
        const auto& document = session.document();
        const bool mixReady =
            document && (document->project.audio.isPassthrough() || session.audioPreviewUrl());
        if (playback->videoOutput() == nullptr || !mixReady || session.isRenderingAudioPreview()) {
            return;
        }
        poll->stop();
        playback->play();
        QTimer::singleShot(static_cast<int>(seconds * 1000), &window, [&window, playback, path] {
            playback->pause();
            QTimer::singleShot(settleMs, &window, [&window, path] {
                // Read from the display: the canvas draws in a GL window of its own, which a widget's
                // grab leaves out.
                const bool saved = window.screen()->grabWindow(window.winId()).save(path);
                if (!saved) {
                    std::fprintf(stderr, "marlowick-studio: could not write %s\n", qPrintable(path));
                }
                QCoreApplication::exit(saved ? 0 : 1);
            });
        });
    });
    poll->start(50);
}

} // namespace

int main(int argc, char** argv) {
    // The canvas shares its context with the window's: both must be 3.3 core for the compositor's program.
    QSurfaceFormat format;
    format.setVersion(3, 3);
    format.setProfile(QSurfaceFormat::CoreProfile);
    QSurfaceFormat::setDefaultFormat(format);
    QApplication app(argc, argv);
    QApplication::setApplicationName("Marlowick");
    // The settings live in ~/.config/Marlowick/Marlowick.conf.
    QApplication::setOrganizationName("Marlowick");
    // A bare X session without a desktop has no theme of its own; Adwaita has every icon the window names.
    QIcon::setFallbackThemeName("Adwaita");

    QCommandLineParser parser;
    parser.setApplicationDescription("The Marlowick editor.");
    parser.addHelpOption();
    const QCommandLineOption screenshot("screenshot", "Play, save a picture of the window to PATH, and quit.",
                                        "PATH");
    const QCommandLineOption playSeconds("play-seconds", "With --screenshot: seconds to play first.", "N",
                                         "0");
    parser.addOption(screenshot);
    parser.addOption(playSeconds);
    parser.addPositionalArgument("package", "A project package to open.", "[PACKAGE]");
    parser.process(app);
    bool secondsValid = false;
    const double seconds = parser.value(playSeconds).toDouble(&secondsValid);
    if (!secondsValid || seconds < 0) {
        std::fprintf(stderr, "marlowick-studio: --play-seconds takes a number of seconds, 0 or more\n");
        return 2;
    }
    const QStringList packages = parser.positionalArguments();
    if (parser.isSet(screenshot) && packages.size() != 1) {
        std::fprintf(stderr, "marlowick-studio: --screenshot needs a package to open\n");
        return 2;
    }

    auto panels = std::make_unique<marlowick::QtFilePanels>();
    marlowick::QtFilePanels* panelsInUse = panels.get();
    marlowick::EditorSession session(
        std::move(panels), [] { return std::make_unique<marlowick::PreviewPlayer>(); },
        []() -> std::unique_ptr<marlowick::ScreenCapturer> {
            if (marlowick::sessionCaptureBackend() == marlowick::CaptureBackend::wayland) {
                // The screen-sharing portal's restore token, so that its dialog shows once; each new one
                // replaces the last (a QSettings of its own, since it is written on the capture's thread).
                marlowick::WaylandScreenCapturer::Options options;
                options.restoreToken = QSettings().value("screenShareRestoreToken").toString().toStdString();
                options.restoreTokenChanged = [](const std::string& token) {
                    QSettings().setValue("screenShareRestoreToken", QString::fromStdString(token));
                };
                return std::make_unique<marlowick::WaylandScreenCapturer>(options);
            }
            return std::make_unique<marlowick::X11ScreenCapturer>();
        },
        std::make_unique<marlowick::QtScreenInfo>(marlowick::sessionCaptureBackend() ==
                                                  marlowick::CaptureBackend::x11));
    marlowick::MainWindow window(session);
    panelsInUse->setParent(&window);
    window.show();

    // The onboarding sheet shows at the first launch and, after that, whenever screen recording isn't
    // granted; "Permissions…" opens it at any time. A picture for the demo asks nothing of anyone.
    marlowick::Permissions permissions(marlowick::systemPermissionProbes());
    QSettings settings;
    marlowick::OnboardingDialog onboarding(permissions, settings, &window);
    QObject::connect(&window, &marlowick::MainWindow::permissionsRequested, &onboarding,
                     &marlowick::OnboardingDialog::open);
    if (!parser.isSet(screenshot) && marlowick::OnboardingDialog::neededAtLaunch(permissions, settings)) {
        onboarding.open();
    }

    if (!packages.isEmpty()) {
        panelsInUse->answerNextOpen(packages.first().toStdString());
        session.open();
    } else if (!parser.isSet(screenshot)) {
        // Takes a window left unsaved (a crash, a kill) are offered once the window shows.
        QTimer::singleShot(0, &session, [&session] { session.recoverAbandonedTakes(); });
    }
    if (parser.isSet(screenshot)) {
        screenshotAfterPlaying(session, window, parser.value(screenshot), seconds);
    }
    return QApplication::exec();
}
