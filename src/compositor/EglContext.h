#pragma once

#include <memory>

namespace marlowick {

// A headless OpenGL 3.3 core context with no window: Mesa's surfaceless platform, or on NVIDIA's driver
// the first EGL device. For export and tests; the preview draws in the context its widget gives it.
// Current on the creating thread after construction; used from one thread at a time.
class EglContext {
public:
    // Throws CompositorError (noGpuContext) when no display or context can be had.
    EglContext();
    ~EglContext();
    EglContext(const EglContext&) = delete;
    EglContext& operator=(const EglContext&) = delete;

    // Makes the context current on the calling thread.
    void makeCurrent() const;
    // The GL renderer's name, as "llvmpipe (LLVM 15.0.6, 256 bits)".
    const char* renderer() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace marlowick
