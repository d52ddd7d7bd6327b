#pragma once

#include "capture/CaptureConfiguration.h"
#include "capture/SoundSource.h"

#include <functional>
#include <memory>
#include <string>

namespace marlowick {

class RecordingSink;

// The system's sound and the microphone of one take, as every capturer records them beside its picture:
// through PulseAudio, into the sink's audio and microphone tracks.
//
// The streams the configuration asks for open when this is made, so that their first pieces come in
// time, and are read from then on (see SoundSource); they deliver only once started, each piece stamped
// when it was captured, and the sink refuses what was captured before its first picture. A microphone that
// can't open fails the take; a system sound that can't is a warning, and its track is still made, silent: the
// system's sound is a nicety, the picture is the take.
//
// Thread: made, started, stopped and destroyed on the thread that starts and stops the capture. `sink`
// and `warn` are called on the streams' own threads, `sink` only once started.
class CaptureSounds {
public:
    using Sink = std::function<RecordingSink&()>;

    // `server` as $PULSE_SERVER says it; empty takes the default. Throws CaptureError (microphoneDenied).
    CaptureSounds(const CaptureConfiguration& configuration, const std::string& server, Sink sink,
                  SoundSource::Warn warn);
    // Closes the streams, the system's sound first.
    ~CaptureSounds();
    CaptureSounds(const CaptureSounds&) = delete;
    CaptureSounds& operator=(const CaptureSounds&) = delete;

    void start();
    void stop();

private:
    std::unique_ptr<SoundSource> m_systemAudio;
    std::unique_ptr<SoundSource> m_microphone;
};

} // namespace marlowick
