#pragma once

#include "model/TypedError.h"

namespace marlowick {

// Why a capture can't start or go on.
enum class CaptureErrorKind {
    captureUnavailable, // the display can't be read; the text says why
    permissionDenied,   // the desktop refused to share the screen, or the person cancelled its dialog
    writerFailed,       // the movie can't be set up or finished; the text says why
    microphoneDenied,   // no microphone can be recorded
    noSoundServer,      // no PulseAudio (or PipeWire's PulseAudio service) answers, so no microphone either
    noDisplayAvailable, // no X display answers
    unknownMonitor,     // no monitor has the name asked for; the text names it, then the monitors there are
    alreadyRecording,
    notRecording,
};
using CaptureError = TypedError<CaptureErrorKind>;

} // namespace marlowick
