#pragma once

#include "model/TimeMap.h"
#include "model/Url.h"
#include "playback/Player.h"
#include "session/ThreadRelay.h"

#include <QCoroTask>
#include <QObject>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace marlowick {

// The preview player of the session: plays the recording with its cuts and its processed sound, hands the
// canvas its pictures and keeps a playhead. It holds no edit logic: the session says what to load, and the
// engine chooses between the movie file as it is and a composition of it. A load keeps the playhead and
// the play state across it.
//
// Thread: everything here belongs to the thread the engine lives on (the main thread), and every call
// comes from it. The player reports its clock on threads of its own; those reports are posted to the
// engine's thread and dropped once the engine is gone or its player replaced.
// Ownership: the engine owns its player, made by the factory it was given, one for each load.
class PlaybackEngine : public QObject {
    Q_OBJECT
    // Whether the player has been told to play.
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY isPlayingChanged)
    // The playhead in seconds, on the loaded timeline.
    Q_PROPERTY(double currentTime READ currentTime NOTIFY currentTimeChanged)
    // The length of the loaded timeline in seconds.
    Q_PROPERTY(double duration READ duration NOTIFY durationChanged)

public:
    using PlayerFactory = std::function<std::unique_ptr<Player>()>;

    explicit PlaybackEngine(PlayerFactory makePlayer, QObject* parent = nullptr);
    ~PlaybackEngine() override;

    bool isPlaying() const { return m_isPlaying; }
    double currentTime() const { return m_currentTime; }
    double duration() const { return m_duration; }
    // The loaded player's pictures for the canvas; null while nothing is loaded. Valid until the next
    // load or the engine's end.
    VideoOutput* videoOutput() const { return m_videoOutput; }

    // Loads the movie at `url`, `duration` seconds long, with the cuts of `trim` and the processed mix
    // in place of the movie's sound, and goes on where the playhead was, playing if it was. Doesn't
    // fail: a movie whose tracks can't be read counts as soundless, and a composition that can't be built
    // leaves the movie file playing as it is. Suspends while the files are read off this thread; the
    // engine is empty meanwhile. A load begun while another is suspended supersedes it: the older one
    // ends without touching the engine. The engine may be deleted while a load is suspended.
    QCoro::Task<> load(Url url, double duration, std::optional<TimeMap> trim,
                       std::optional<Url> processedAudio);

    // Plays; from the start when the playhead is within 0.05 s of the end. Nothing without a player.
    void play();
    void pause();
    // Moves the playhead to `time` held inside the timeline, at once, and the player there exactly.
    // Nothing without a player.
    void seek(double time);

signals:
    void isPlayingChanged(bool isPlaying);
    void currentTimeChanged(double currentTime);
    void durationChanged(double duration);

private:
    struct PendingResume {
        double time = 0;
        bool playing = false;
    };

    void teardown();
    void setIsPlaying(bool value);
    void setCurrentTime(double value);
    void setDuration(double value);
    PlayerCallbacks callbacksFor(std::uint64_t generation);

    PlayerFactory m_makePlayer;
    std::unique_ptr<Player> m_player;
    VideoOutput* m_videoOutput = nullptr;
    // Where the playhead was and whether it played when the load under way began: set by the first of a
    // run of loads, kept by those that supersede it, and cleared when the newest one opens its player.
    std::optional<PendingResume> m_pendingResume;
    // Rises with every teardown, so that a report of a player already gone, still queued for this thread,
    // is dropped.
    std::uint64_t m_generation = 0;
    // The seeks asked of the present player: its reports of a time from before the newest are dropped.
    std::uint64_t m_seeksAsked = 0;
    // Shared with the callbacks of every player this engine made; cut off from the engine when it ends.
    std::shared_ptr<ThreadRelay<PlaybackEngine>> m_relay;
    bool m_isPlaying = false;
    double m_currentTime = 0;
    double m_duration = 0;
};

} // namespace marlowick
