#pragma once

#include "playback/Player.h"
#include "playback/SoundOutput.h"
#include "playback/VideoFeeder.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

namespace marlowick {

// The player: the item's sound through PulseAudio as the master clock, the pictures decoded ahead on a
// thread of the VideoFeeder's own and handed out by the clock's time.
//
// Threads: the owner's commands (one thread at a time) return at once. The player's own thread carries
// them out on the sound output and calls both callbacks; the feeder's thread decodes pictures; the sound
// server's loop thread pulls sound from the mixer. Seeks not carried out yet are coalesced: only the
// newest is kept. Playing on from the end starts again at 0.
class PreviewPlayer : public Player {
public:
    // `soundServer` as $PULSE_SERVER takes it; empty: the default. Where no server can be reached, and for
    // an item without sound, the clock runs on the monotonic clock, silently.
    explicit PreviewPlayer(std::string soundServer = {});
    ~PreviewPlayer() override;
    PreviewPlayer(const PreviewPlayer&) = delete;
    PreviewPlayer& operator=(const PreviewPlayer&) = delete;

    void open(PlayerItem item, PlayerCallbacks callbacks) override;
    void play() override;
    void pause() override;
    void seek(double time) override;
    double currentTime() const override;
    VideoOutput& videoOutput() override { return m_video; }

    // Whether the sound card is the clock of what is open (false with no sound, or no server), once the
    // open has been carried out.
    bool soundCardClock() const;

private:
    struct Opening {
        PlayerItem item;
        PlayerCallbacks callbacks;
        // The seeks asked before it, which it drops: its times reflect them all.
        std::uint64_t seeks = 0;
    };
    void run(std::stop_token stop);

    std::string m_server;
    VideoFeeder m_video;

    mutable std::mutex m_mutex;
    std::condition_variable_any m_wake;
    // Guarded by m_mutex:
    std::optional<Opening> m_opening; // the newest open not carried out yet
    std::optional<double> m_seeking;  // the newest seek not carried out yet
    std::uint64_t m_seeks = 0;        // seeks asked for since the player was made
    bool m_playing = false;           // as the owner asked
    bool m_atEnd = false;             // paused at the end by the player itself
    double m_duration = 0;
    std::shared_ptr<SoundOutput> m_output; // replaced on the player's thread; used from any
    bool m_soundCard = false;

    std::jthread m_thread; // last: stopped before the fields it uses go
};

} // namespace marlowick
