// The window's tests run on a QApplication on the xcb platform (GLX on Mesa), with the window's GL format.

#include <QApplication>
#include <QIcon>
#include <QSurfaceFormat>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // The offscreen platform has no QOpenGLWidget: these tests need a real X server.
    qputenv("QT_QPA_PLATFORM", "xcb");
    QSurfaceFormat format;
    format.setVersion(3, 3);
    format.setProfile(QSurfaceFormat::CoreProfile);
    QSurfaceFormat::setDefaultFormat(format);
    QApplication app(argc, argv);
    QIcon::setFallbackThemeName("Adwaita");
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
