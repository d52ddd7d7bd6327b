#pragma once

#include <stdexcept>
#include <string>

namespace marlowick {

// Why a capture can't start or go on. What the user reads is worded by the session.
class CaptureError : public std::runtime_error {
public:
    enum class Kind {
        captureUnavailable, // the display can't be read; the text says why
        writerFailed,       // the movie can't be set up or finished
        permissionDenied,
        microphoneDenied,
        noDisplayAvailable,
        alreadyRecording,
        notRecording,
    };
    CaptureError(Kind kind, const std::string& text = {})
        : std::runtime_error(text)
        , m_kind(kind) {}
    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

} // namespace marlowick
