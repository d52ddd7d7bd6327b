#pragma once

#include "model/TypedError.h"

namespace marlowick {

// A failure to set up or draw with the GPU. The text says what failed.
enum class CompositorErrorKind { shaderCompilationFailed, noGpuContext, noFramebuffer };
using CompositorError = TypedError<CompositorErrorKind>;

} // namespace marlowick
