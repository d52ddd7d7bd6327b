#pragma once

#include "playback/PlayerFrame.h"
#include "playback/PlayerItem.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace marlowick {

// Where a player reports its clock. Both are called on a thread of the player's own (never the owner's),
// so an owner with a thread of its own posts them there. Neither may call back into the player.
struct PlayerCallbacks {
    // The time on the item's timeline, about every `interval` seconds while playing, and once after each
    // seek and pause. `seeks` counts the seeks asked of this player that the time already reflects: a
    // report read before the newest seek was carried out counts fewer than the owner asked for, and an
    // owner that moved its playhead at once drops it.
    std::function<void(double time, std::uint64_t seeks)> time;
    double interval = 1.0 / 60;
    // Play reached the item's end; the player has paused itself there.
    std::function<void()> ended;
};

// The pictures of the present moment, as the canvas asks for them on each paint. Both calls are cheap
// and safe from any thread.
class VideoOutput {
public:
    virtual ~VideoOutput() = default;
    // Whether the frame for `time` differs from the last one `frameAt` handed out.
    virtual bool hasNewFrame(double time) const = 0;
    // The latest decoded frame whose span holds `time`, else the latest one before it; none before the
    // first frame after an open or a seek is decoded.
    virtual std::optional<PlayerFrame> frameAt(double time) = 0;
};

// A preview player: plays a PlayerItem with the sound card as its master clock, hands out pictures through
// its VideoOutput, and seeks exactly. Commands return at once; the work is done on threads of its own.
// Commands come from one thread at a time (the owner's). Pauses at the item's end.
class Player {
public:
    virtual ~Player() = default;

    // Replaces whatever was loaded, paused at 0. `callbacks` hold from now until the next open or the
    // player's end.
    virtual void open(PlayerItem item, PlayerCallbacks callbacks) = 0;
    virtual void play() = 0;
    virtual void pause() = 0;
    // Exact: the first frame handed out after it is the one whose span holds `time`, and the sound
    // resumes at `time`. While one seek is being decoded, only the newest request is kept.
    virtual void seek(double time) = 0;
    // The clock's time on the item's timeline: the sound card's position while playing.
    virtual double currentTime() const = 0;
    virtual VideoOutput& videoOutput() = 0;
};

} // namespace marlowick
