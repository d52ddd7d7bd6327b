// The window's tests run on a QApplication on the xcb platform (GLX on Mesa), with the window's GL format.

#include "support/TempDir.h"

#include <QApplication>
#include <QIcon>
#include <QSettings>
#include <QStandardPaths>
#include <QSurfaceFormat>
#include <gtest/gtest.h>

#include <cstdlib>
#include <dlfcn.h>
#include <link.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

// Mesa's software driver holds a few small allocations, made while Qt composes a window, from its own
// globals, and is unloaded before the leak checker looks: with the globals gone, those allocations read as
// leaked, from a module without a name that no suppression can match. Kept loaded to the end, the driver
// still holds them, as any process does at its exit.
void keepGlDriverLoaded() {
    std::vector<std::string> drivers;
    dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* found) {
            const std::string_view name = info->dlpi_name != nullptr ? info->dlpi_name : "";
            if (name.ends_with("_dri.so")) {
                static_cast<std::vector<std::string>*>(found)->emplace_back(name);
            }
            return 0;
        },
        &drivers);
    for (const std::string& driver : drivers) {
        dlopen(driver.c_str(), RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    }
}

} // namespace

int main(int argc, char** argv) {
    // The offscreen platform has no QOpenGLWidget: these tests need a real X server.
    qputenv("QT_QPA_PLATFORM", "xcb");
    QSurfaceFormat format;
    format.setVersion(3, 3);
    format.setProfile(QSurfaceFormat::CoreProfile);
    QSurfaceFormat::setDefaultFormat(format);
    QApplication app(argc, argv);
    QIcon::setFallbackThemeName("Adwaita");
    // The window keeps settings (the record screen's ticks, the panels' folder): the tests keep theirs apart
    // from the person's.
    QStandardPaths::setTestModeEnabled(true);
    QApplication::setOrganizationName("MarlowickTests");
    QSettings().clear();
    // The takes the window records go to a folder of the run's own, never to the person's.
    const marlowick::test::TempDir data;
    setenv("XDG_DATA_HOME", data.path().c_str(), 1);
    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    keepGlDriverLoaded();
    return result;
}
