#include "capture/CaptureBackend.h"

#include <cstdlib>

namespace marlowick {

CaptureBackend sessionCaptureBackend() {
    const char* display = std::getenv("WAYLAND_DISPLAY");
    const char* type = std::getenv("XDG_SESSION_TYPE");
    if ((display != nullptr && *display != '\0') ||
        (type != nullptr && std::string_view(type) == "wayland")) {
        return CaptureBackend::wayland;
    }
    return CaptureBackend::x11;
}

std::optional<CaptureBackend> captureBackendNamed(std::string_view name) {
    if (name == "x11") {
        return CaptureBackend::x11;
    }
    if (name == "wayland") {
        return CaptureBackend::wayland;
    }
    return std::nullopt;
}

} // namespace marlowick
