#pragma once

#include "session/ScreenInfo.h"

#include <QGuiApplication>
#include <QScreen>

#include <cmath>

namespace marlowick {

// The monitors as Qt lists its screens, in device pixels: on X11 Qt's screens are RandR's monitors (or its
// outputs where the server has no monitors) under the same names, which the capture takes. With
// `offersMonitors` false (a capture through the desktop's screen-sharing dialog) there are none to offer.
// Called on the GUI thread.
class QtScreenInfo : public ScreenInfo {
public:
    explicit QtScreenInfo(bool offersMonitors)
        : m_offersMonitors(offersMonitors) {}

    std::vector<ScreenMonitor> monitors() const override {
        std::vector<ScreenMonitor> monitors;
        if (!m_offersMonitors) {
            return monitors;
        }
        const QScreen* primary = QGuiApplication::primaryScreen();
        for (const QScreen* screen : QGuiApplication::screens()) {
            const double scale = screen->devicePixelRatio();
            const QRect points = screen->geometry();
            const auto pixels = [scale](int value) { return static_cast<int>(std::lround(value * scale)); };
            monitors.push_back({screen->name().toStdString(), pixels(points.x()), pixels(points.y()),
                                pixels(points.width()), pixels(points.height()), screen == primary});
        }
        return monitors;
    }

private:
    bool m_offersMonitors;
};

} // namespace marlowick
