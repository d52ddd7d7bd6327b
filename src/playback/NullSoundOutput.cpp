#include "playback/NullSoundOutput.h"

namespace marlowick {

void NullSoundOutput::seek(double time) {
    const std::scoped_lock lock(m_mutex);
    m_base = time;
    m_since = Clock::now();
}

void NullSoundOutput::play() {
    const std::scoped_lock lock(m_mutex);
    if (!m_playing) {
        m_since = Clock::now();
        m_playing = true;
    }
}

void NullSoundOutput::pause() {
    const std::scoped_lock lock(m_mutex);
    m_base = positionLocked();
    m_playing = false;
}

double NullSoundOutput::position() const {
    const std::scoped_lock lock(m_mutex);
    return positionLocked();
}

double NullSoundOutput::positionLocked() const {
    if (!m_playing) {
        return m_base;
    }
    return m_base + std::chrono::duration<double>(Clock::now() - m_since).count();
}

} // namespace marlowick
