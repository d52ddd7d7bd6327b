#pragma once

#include "session/ScreenInfo.h"

#include <QGuiApplication>
#include <QScreen>

namespace marlowick {

// The main screen as Qt reports it: the primary screen's geometry and device pixel ratio, or nothing when
// there is no screen. Called on the GUI thread.
class QtScreenInfo : public ScreenInfo {
public:
    std::optional<Size> primaryScreenSize() const override {
        if (const QScreen* screen = QGuiApplication::primaryScreen()) {
            return Size{static_cast<double>(screen->geometry().width()),
                        static_cast<double>(screen->geometry().height())};
        }
        return std::nullopt;
    }
    std::optional<double> primaryScreenScale() const override {
        if (const QScreen* screen = QGuiApplication::primaryScreen()) {
            return screen->devicePixelRatio();
        }
        return std::nullopt;
    }
};

} // namespace marlowick
