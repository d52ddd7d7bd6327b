// marlowick-studio [PACKAGE]: the editor's window; with a package, it opens straight into the editor.

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
#include <QIcon>
#include <QSettings>
#include <QSurfaceFormat>

#include <memory>

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
        std::make_unique<marlowick::QtScreenInfo>());
    marlowick::MainWindow window(session);
    panelsInUse->setParent(&window);
    window.show();

    // The onboarding sheet shows at the first launch and, after that, whenever screen recording isn't
    // granted; "Permissions…" opens it at any time.
    marlowick::Permissions permissions(marlowick::systemPermissionProbes());
    QSettings settings;
    marlowick::OnboardingDialog onboarding(permissions, settings, &window);
    QObject::connect(&window, &marlowick::MainWindow::permissionsRequested, &onboarding,
                     &marlowick::OnboardingDialog::open);
    if (marlowick::OnboardingDialog::neededAtLaunch(permissions, settings)) {
        onboarding.open();
    }

    const QStringList arguments = QApplication::arguments();
    if (arguments.size() > 1) {
        panelsInUse->answerNextOpen(arguments.at(1).toStdString());
        session.open();
    }
    return QApplication::exec();
}
