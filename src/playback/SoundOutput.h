#pragma once

namespace marlowick {

// Where a player's sound goes, and the clock the player runs on: the time on the item's timeline of the
// sound being heard now. Opened paused at 0. `seek`, `play` and `pause` come from one thread (the
// player's); `position` is safe from any thread.
class SoundOutput {
public:
    virtual ~SoundOutput() = default;
    // Drops what was queued; the sound goes on from `time`, paused or playing as it was.
    virtual void seek(double time) = 0;
    virtual void play() = 0;
    virtual void pause() = 0;
    virtual double position() const = 0;
};

} // namespace marlowick
