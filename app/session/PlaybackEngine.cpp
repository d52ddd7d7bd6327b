#include "session/PlaybackEngine.h"

#include "audio/PlaybackComposition.h"
#include "media/MediaError.h"
#include "media/MediaInfo.h"

#include <QCoroFuture>
#include <QMetaObject>
#include <QPointer>
#include <QThread>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <exception>
#include <mutex>

namespace marlowick {

namespace {

// A resume time at or below this is where a fresh player starts anyway: no seek is sent.
constexpr double smallestSeekedResume = 0.05;
// Play within this of the end starts again from the beginning.
constexpr double endMargin = 0.05;

// Tracks that can't be read count as none, without a message: the player shows what it can.
MediaInfo readInfo(const std::filesystem::path& movie) {
    try {
        return MediaInfo::of(movie);
    } catch (const MediaError&) {
        return MediaInfo{};
    }
}

// A composition that can't be built leaves the movie file playing: a load never fails.
std::optional<PlaybackComposition> makeComposition(const std::filesystem::path& movie,
                                                   const std::optional<TimeMap>& trim,
                                                   const std::optional<std::filesystem::path>& mix) {
    try {
        return PlaybackComposition::make(movie, trim, mix);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace

PlaybackEngine::PlaybackEngine(PlayerFactory makePlayer, QObject* parent)
    : QObject(parent)
    , m_makePlayer(std::move(makePlayer))
    , m_relay(std::make_shared<ThreadRelay<PlaybackEngine>>(this)) {}

PlaybackEngine::~PlaybackEngine() {
    m_relay->detach();
    m_videoOutput = nullptr;
    m_player.reset();
}

QCoro::Task<> PlaybackEngine::load(Url url, double duration, std::optional<TimeMap> trim,
                                   std::optional<Url> processedAudio) {
    // GCC 12 miscompiles class-type temporaries in a coroutine's conditional and co_await expressions (a
    // trim lost now and then, a path freed twice): this function names each value before using it.

    // Where to go on from is read before the teardown clears it, by the first of a run of loads: a load that
    // supersedes one still suspended finds the playhead already cleared, and keeps what that one noted.
    if (!m_pendingResume) {
        m_pendingResume = PendingResume{m_currentTime, m_isPlaying};
    }
    const PendingResume noted = *m_pendingResume;
    teardown();

    const std::filesystem::path movie = url.path();
    std::optional<TimeMap> effectiveTrim;
    if (trim && !trim->isIdentity()) {
        effectiveTrim = std::move(trim);
    }
    std::optional<std::filesystem::path> mix;
    if (processedAudio) {
        mix = processedAudio->path();
    }

    // The engine may be deleted while the files are read, or a newer load may have begun: after each
    // suspension this load touches nothing then, so the newest load is the one that stays.
    const QPointer<PlaybackEngine> self(this);
    const std::uint64_t generation = m_generation;
    const auto superseded = [&self, generation] { return !self || self->m_generation != generation; };

    QFuture<MediaInfo> reading = QtConcurrent::run(readInfo, movie);
    const MediaInfo info = co_await reading;
    if (superseded()) {
        co_return;
    }

    // The movie plays as it is only when nothing is cut, its own sound is kept and there's at most one
    // track of it: two tracks need a composition to be heard together.
    std::optional<PlayerItem> item;
    if (effectiveTrim || mix || info.audioTracks >= 2) {
        QFuture<std::optional<PlaybackComposition>> making =
            QtConcurrent::run(makeComposition, movie, effectiveTrim, mix);
        std::optional<PlaybackComposition> composition = co_await making;
        if (superseded()) {
            co_return;
        }
        if (composition) {
            item = PlayerItem{movie, std::move(*composition)};
            setDuration(effectiveTrim ? effectiveTrim->outputDuration() : duration);
        }
    }
    if (!item) {
        item = PlayerItem::ofMovie(movie, duration, info.audioTracks);
        item->composition.videoTracks = info.videoTracks;
        setDuration(duration);
    }

    m_pendingResume.reset();
    std::unique_ptr<Player> player = m_makePlayer();
    if (!player) {
        // No player on this machine: the engine stays empty, showing no frames and no time.
        co_return;
    }
    m_seeksAsked = 0;
    player->open(std::move(*item), callbacksFor(m_generation));
    m_player = std::move(player);
    m_videoOutput = &m_player->videoOutput();

    const double resumeTime = std::min(noted.time, m_duration);
    if (resumeTime > smallestSeekedResume) {
        seek(resumeTime);
    }
    if (noted.playing) {
        play();
    }
}

void PlaybackEngine::play() {
    if (!m_player) {
        return;
    }
    if (m_duration > 0 && m_currentTime >= m_duration - endMargin) {
        seek(0);
    }
    m_player->play();
    setIsPlaying(true);
}

void PlaybackEngine::pause() {
    if (m_player) {
        m_player->pause();
    }
    setIsPlaying(false);
}

void PlaybackEngine::seek(double time) {
    if (!m_player) {
        return;
    }
    const double clamped = std::min(std::max(time, 0.0), std::max(m_duration, 0.0));
    // The playhead moves under the user's hand before the player gets there.
    setCurrentTime(clamped);
    ++m_seeksAsked;
    m_player->seek(clamped);
}

void PlaybackEngine::teardown() {
    // Reports of the old player still queued for this thread are dropped by their generation.
    ++m_generation;
    m_videoOutput = nullptr;
    if (m_player) {
        m_player->pause();
        m_player.reset();
    }
    setIsPlaying(false);
    setCurrentTime(0);
}

PlayerCallbacks PlaybackEngine::callbacksFor(std::uint64_t generation) {
    PlayerCallbacks callbacks;
    callbacks.interval = 1.0 / 60;
    callbacks.time = [relay = m_relay, generation](double time, std::uint64_t seeks) {
        relay->post([generation, time, seeks](PlaybackEngine& engine) {
            Q_ASSERT(QThread::currentThread() == engine.thread());
            // A time read before the newest seek would pull the playhead back from where the user put it.
            if (engine.m_generation == generation && seeks >= engine.m_seeksAsked) {
                engine.setCurrentTime(time);
            }
        });
    };
    // The player has paused itself at the end; the playhead stays there.
    callbacks.ended = [relay = m_relay, generation] {
        relay->post([generation](PlaybackEngine& engine) {
            Q_ASSERT(QThread::currentThread() == engine.thread());
            if (engine.m_generation == generation) {
                engine.setIsPlaying(false);
            }
        });
    };
    return callbacks;
}

void PlaybackEngine::setIsPlaying(bool value) {
    if (m_isPlaying != value) {
        m_isPlaying = value;
        emit isPlayingChanged(value);
    }
}

void PlaybackEngine::setCurrentTime(double value) {
    if (m_currentTime != value) {
        m_currentTime = value;
        emit currentTimeChanged(value);
    }
}

void PlaybackEngine::setDuration(double value) {
    if (m_duration != value) {
        m_duration = value;
        emit durationChanged(value);
    }
}

} // namespace marlowick
