#pragma once

#include "playback/Player.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>

namespace marlowick {

// The pictures of a PlayerItem, decoded a few frames ahead on a thread of its own and handed out by time:
// a player's VideoOutput. The decoding follows the segments: it seeks to the keyframe before a segment's
// start and decodes forward, converting nothing before the picture showing there, and goes straight on
// into the next segment when that starts soon after in the source. Frames carry the item's time and the
// generation of the load or seek they were decoded for, so that a seek drops what is queued.
//
// `load` and `seek` from one thread (the player's owner), and return at once; `hasNewFrame` and `frameAt`
// from any thread. Of loads and seeks not yet begun only the newest is decoded.
class VideoFeeder : public VideoOutput {
public:
    VideoFeeder();
    ~VideoFeeder() override;
    VideoFeeder(const VideoFeeder&) = delete;
    VideoFeeder& operator=(const VideoFeeder&) = delete;

    // Replaces what was loaded, from 0. A movie that can't be read gives no pictures.
    void load(const PlayerItem& item);
    // Drops what is queued: the next frame handed out is the one whose span holds `time`.
    void seek(double time);

    bool hasNewFrame(double time) const override;
    std::optional<PlayerFrame> frameAt(double time) override;

private:
    class Job;
    void run(std::stop_token stop);
    // Starts a new generation; m_mutex held.
    void restartLocked();

    mutable std::mutex m_mutex;
    std::condition_variable_any m_wake;
    // Guarded by m_mutex:
    std::deque<PlayerFrame> m_queue;      // decoded, not handed out yet, in time order
    std::optional<PlayerFrame> m_current; // the frame handed out last in this generation
    std::uint64_t m_generation = 0;
    std::optional<PlayerItem> m_loading; // the newest load the thread hasn't begun
    std::optional<double> m_seeking;     // the newest seek the thread hasn't begun
    std::jthread m_thread;               // last: stopped before the fields it uses go
};

} // namespace marlowick
