#pragma once

#include <optional>
#include <string_view>

namespace marlowick {

// Which capturer records the screen.
enum class CaptureBackend { x11, wayland };

// Wayland where the session is one ($WAYLAND_DISPLAY set, or $XDG_SESSION_TYPE "wayland"), X11 otherwise.
CaptureBackend sessionCaptureBackend();
// The backend named "x11" or "wayland"; none for another name.
std::optional<CaptureBackend> captureBackendNamed(std::string_view name);

} // namespace marlowick
