#pragma once

#include "playback/SoundOutput.h"

#include <chrono>
#include <mutex>

namespace marlowick {

// A clock without sound, on the monotonic clock: for an item with no sound, and where no sound server can
// be reached, so that silent movies and machines without sound play the same way.
class NullSoundOutput : public SoundOutput {
public:
    void seek(double time) override;
    void play() override;
    void pause() override;
    double position() const override;

private:
    using Clock = std::chrono::steady_clock;
    double positionLocked() const;

    mutable std::mutex m_mutex;
    // Guarded by m_mutex:
    double m_base = 0;         // the position when the clock last started or stopped
    Clock::time_point m_since; // when it started, while playing
    bool m_playing = false;
};

} // namespace marlowick
