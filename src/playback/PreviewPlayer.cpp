#include "playback/PreviewPlayer.h"

#include "media/MediaError.h"
#include "playback/NullSoundOutput.h"
#include "playback/PulseSoundOutput.h"
#include "playback/SoundMixer.h"

#include <algorithm>

namespace marlowick {

PreviewPlayer::PreviewPlayer(std::string soundServer)
    : m_server(std::move(soundServer))
    , m_output(std::make_shared<NullSoundOutput>())
    , m_thread([this](std::stop_token stop) { run(std::move(stop)); }) {}

PreviewPlayer::~PreviewPlayer() {
    m_thread.request_stop();
    m_thread.join();
}

void PreviewPlayer::open(PlayerItem item, PlayerCallbacks callbacks) {
    m_video.load(item);
    {
        const std::scoped_lock lock(m_mutex);
        m_duration = item.duration();
        m_opening = Opening{std::move(item), std::move(callbacks), m_seeks};
        m_seeking.reset();
        m_playing = false;
        m_atEnd = false;
    }
    m_wake.notify_all();
}

void PreviewPlayer::play() {
    bool fromStart = false;
    {
        const std::scoped_lock lock(m_mutex);
        fromStart = m_atEnd && !m_seeking;
        m_playing = true;
    }
    if (fromStart) {
        seek(0);
    }
    m_wake.notify_all();
}

void PreviewPlayer::pause() {
    {
        const std::scoped_lock lock(m_mutex);
        m_playing = false;
    }
    m_wake.notify_all();
}

void PreviewPlayer::seek(double time) {
    {
        const std::scoped_lock lock(m_mutex);
        time = std::clamp(time, 0.0, m_duration);
        m_seeking = time;
        ++m_seeks;
        m_atEnd = false;
        // The pictures are dropped at once, so that none from before the seek is handed out after it.
        m_video.seek(time);
    }
    m_wake.notify_all();
}

double PreviewPlayer::currentTime() const {
    std::shared_ptr<SoundOutput> output;
    double duration = 0;
    {
        const std::scoped_lock lock(m_mutex);
        if (m_seeking) {
            return *m_seeking;
        }
        if (m_opening) {
            return 0;
        }
        if (m_atEnd) {
            return m_duration;
        }
        output = m_output;
        duration = m_duration;
    }
    return std::clamp(output->position(), 0.0, duration);
}

bool PreviewPlayer::soundCardClock() const {
    const std::scoped_lock lock(m_mutex);
    return m_soundCard;
}

void PreviewPlayer::run(std::stop_token stop) {
    using Clock = std::chrono::steady_clock;
    PlayerCallbacks callbacks;
    std::shared_ptr<SoundOutput> output = m_output;
    double duration = 0;
    bool playing = false; // as carried out on the output
    auto nextTick = Clock::now();
    // How many seeks the output has carried out: what each report's time reflects.
    std::uint64_t seeksDone = 0;
    auto report = [&](double time) {
        if (callbacks.time) {
            callbacks.time(time, seeksDone);
        }
    };
    while (!stop.stop_requested()) {
        std::optional<Opening> opening;
        std::optional<double> seeking;
        bool wantPlaying = false;
        {
            std::unique_lock lock(m_mutex);
            const auto wake = [&] { return m_opening || m_seeking || m_playing != playing; };
            if (playing) {
                m_wake.wait_until(lock, stop, nextTick, wake);
            } else {
                m_wake.wait(lock, stop, wake);
            }
            if (stop.stop_requested()) {
                return;
            }
            opening = std::move(m_opening);
            m_opening.reset();
            wantPlaying = m_playing;
        }

        if (opening) {
            // The sound is opened here, off the owner's thread: opening files and reaching the server
            // take a moment.
            callbacks = std::move(opening->callbacks);
            seeksDone = opening->seeks;
            duration = opening->item.duration();
            std::shared_ptr<SoundOutput> next;
            try {
                auto mixer = std::make_unique<SoundMixer>(opening->item.composition);
                if (!mixer->silent()) {
                    next = PulseSoundOutput::open(m_server, std::move(mixer));
                }
            } catch (const MediaError&) {
                // Sound that can't be read: the pictures play on a silent clock.
            }
            const bool soundCard = next != nullptr;
            if (!next) {
                next = std::make_shared<NullSoundOutput>();
            }
            output = next;
            playing = false;
            bool seekWaits = false;
            {
                const std::scoped_lock lock(m_mutex);
                m_output = next;
                m_soundCard = soundCard;
                wantPlaying = m_playing;
                seekWaits = m_seeking.has_value();
            }
            if (!seekWaits) {
                report(0);
            }
        }

        std::uint64_t seeksAsked = 0;
        {
            const std::scoped_lock lock(m_mutex);
            // Taken only now, once the output it applies to is in place.
            seeking = m_seeking;
            seeksAsked = m_seeks;
        }
        if (seeking) {
            output->seek(*seeking);
            seeksDone = seeksAsked;
            {
                const std::scoped_lock lock(m_mutex);
                // A newer seek that came meanwhile is carried out on the next round.
                if (m_seeking == seeking) {
                    m_seeking.reset();
                }
            }
            report(*seeking);
        }

        if (wantPlaying != playing) {
            playing = wantPlaying;
            if (playing) {
                output->play();
                nextTick = Clock::now();
            } else {
                output->pause();
                report(std::clamp(output->position(), 0.0, duration));
            }
        }

        if (playing && Clock::now() >= nextTick) {
            const double time = output->position();
            if (time >= duration) {
                output->pause();
                playing = false;
                bool atEnd = false;
                {
                    const std::scoped_lock lock(m_mutex);
                    atEnd = m_atEnd = !m_seeking;
                    if (m_atEnd) {
                        m_playing = false;
                    }
                }
                // A seek asked for meanwhile plays on from its time on the next round: that is no end.
                if (atEnd) {
                    report(duration);
                    if (callbacks.ended) {
                        callbacks.ended();
                    }
                }
                continue;
            }
            report(std::max(0.0, time));
            const auto interval = std::chrono::duration_cast<Clock::duration>(
                std::chrono::duration<double>(callbacks.interval > 0 ? callbacks.interval : 1.0 / 60));
            nextTick += interval;
            if (nextTick < Clock::now()) {
                nextTick = Clock::now() + interval;
            }
        }
    }
}

} // namespace marlowick
