#include "capture/CaptureSounds.h"

#include "capture/CaptureError.h"
#include "capture/RecordingSink.h"

namespace marlowick {

CaptureSounds::CaptureSounds(const CaptureConfiguration& configuration, const std::string& server, Sink sink,
                             SoundSource::Warn warn) {
    if (configuration.capturesMicrophone) {
        m_microphone = std::make_unique<SoundSource>(
            SoundSource::Kind::microphone, server,
            [sink](const float* samples, int frames, double time) {
                sink().appendAudio(RecordingSink::Output::microphone, samples, frames, time);
            },
            warn);
    }
    if (configuration.capturesAudio) {
        try {
            m_systemAudio = std::make_unique<SoundSource>(
                SoundSource::Kind::systemAudio, server,
                [sink](const float* samples, int frames, double time) {
                    sink().appendAudio(RecordingSink::Output::audio, samples, frames, time);
                },
                warn);
        } catch (const CaptureError& error) {
            warn(std::string(error.what()) + "; the take has no system sound.");
        }
    }
}

CaptureSounds::~CaptureSounds() {
    m_systemAudio.reset();
    m_microphone.reset();
}

void CaptureSounds::start() {
    if (m_systemAudio) {
        m_systemAudio->start();
    }
    if (m_microphone) {
        m_microphone->start();
    }
}

void CaptureSounds::stop() {
    if (m_systemAudio) {
        m_systemAudio->stop();
    }
    if (m_microphone) {
        m_microphone->stop();
    }
}

} // namespace marlowick
