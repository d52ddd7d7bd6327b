#pragma once

#include "model/TypedError.h"

namespace marlowick {

// Why speech in a recording can't be turned into captions.
enum class TranscriptionErrorKind {
    onDeviceUnavailable,   // no speech models for the language on this machine; the text is its display name
    failed,                // the recogniser gave up half way; the text is its reason
    permissionDenied,      // the session's speech recognition permission is denied
    recognizerUnavailable, // the models are there, but no recogniser can be made from them (damaged files)
    noAudioTrack,          // the recording has no sound to listen to
};
using TranscriptionError = TypedError<TranscriptionErrorKind>;

} // namespace marlowick
