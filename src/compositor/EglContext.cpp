#include "compositor/EglContext.h"

#include "compositor/CompositorError.h"
#include "compositor/GlName.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <string>

namespace marlowick {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw CompositorError(
        CompositorError::Kind::noGpuContext, what + " (EGL error 0x" + [] {
            char text[16];
            std::snprintf(text, sizeof text, "%04X", static_cast<unsigned>(eglGetError()));
            return std::string(text);
        }() + ")");
}

// Surfaceless Mesa first, then the first device for drivers without that platform.
EGLDisplay openDisplay() {
    const auto getPlatformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (getPlatformDisplay == nullptr) {
        return eglGetDisplay(EGL_DEFAULT_DISPLAY);
    }
    EGLDisplay display = getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (display != EGL_NO_DISPLAY && eglInitialize(display, nullptr, nullptr)) {
        return display;
    }
    const auto queryDevices =
        reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(eglGetProcAddress("eglQueryDevicesEXT"));
    EGLDeviceEXT device = nullptr;
    EGLint count = 0;
    if (queryDevices != nullptr && queryDevices(1, &device, &count) && count > 0) {
        display = getPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, device, nullptr);
        if (display != EGL_NO_DISPLAY && eglInitialize(display, nullptr, nullptr)) {
            return display;
        }
    }
    return EGL_NO_DISPLAY;
}

} // namespace

struct EglContext::State {
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
};

EglContext::EglContext()
    : m_state(std::make_unique<State>()) {
    m_state->display = openDisplay();
    if (m_state->display == EGL_NO_DISPLAY) {
        fail("no EGL display for headless drawing");
    }
    if (!eglBindAPI(EGL_OPENGL_API)) {
        fail("EGL has no desktop OpenGL");
    }
    const EGLint attributes[] = {EGL_CONTEXT_MAJOR_VERSION,
                                 3,
                                 EGL_CONTEXT_MINOR_VERSION,
                                 3,
                                 EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                 EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                 EGL_NONE};
    // No config: the context only ever draws into framebuffer objects.
    m_state->context = eglCreateContext(m_state->display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attributes);
    if (m_state->context == EGL_NO_CONTEXT) {
        fail("no OpenGL 3.3 core context");
    }
    makeCurrent();
}

EglContext::~EglContext() {
    // The display stays initialised: other contexts of this process may share it.
    eglMakeCurrent(m_state->display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(m_state->display, m_state->context);
}

void EglContext::makeCurrent() const {
    if (!eglMakeCurrent(m_state->display, EGL_NO_SURFACE, EGL_NO_SURFACE, m_state->context)) {
        fail("the OpenGL context can't be made current");
    }
}

const char* EglContext::renderer() const {
    return reinterpret_cast<const char*>(glGetString(GL_RENDERER));
}

} // namespace marlowick
