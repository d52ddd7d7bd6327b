#pragma once

#include "capture/MonotonicClock.h"
#include "capture/SoundSource.h"
#include "playback/Player.h"
#include "support/TempDir.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// Measures a player's A/V sync end to end on a private sound server: a movie with a white picture and a
// beep at the start of every second is played into a null sink; the beeps are found in the sink's monitor,
// the flashes in the pictures the player hands out by its clock. Both sides are timed so that a test
// thread that runs late, on a machine busy with other work, measures the same: the sound by each sample's
// place in the monitor's stream, the pictures by the player's clock.

namespace marlowick::test {

// Black at 30 pictures a second, its picture at the start of every second white, with a 30 ms beep at the
// same instants; `seconds` long.
inline std::filesystem::path makeFlashMovie(const TempDir& dir, int seconds) {
    const auto movie = dir / "flashes.mp4";
    const std::string length = std::to_string(seconds);
    const std::string command =
        "ffmpeg -v error -y -f lavfi -i \"color=c=black:s=64x48:r=30:d=" + length +
        ",drawbox=x=0:y=0:w=iw:h=ih:color=white:t=fill:enable='lt(mod(t,1),0.02)'\" "
        "-f lavfi -i \"aevalsrc='if(lt(mod(t,1),0.03),0.8*sin(2*PI*1000*t),0)':s=48000:d=" +
        length + "\" -c:v libx264 -g 30 -pix_fmt yuv420p -c:a aac -b:a 192k '" + movie.string() + "'";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("ffmpeg could not make the test movie");
    }
    return movie;
}

// The beeps heard on the default sink, from its monitor. Each piece of the monitor comes stamped with the
// time it arrived, which is late by however long the reading thread or the server was kept waiting; the
// stream itself is paced by the sink's clock, so a sample's time is its place in the stream plus an offset
// that only ever rises (where the server misses some sound). That offset is the least any later piece
// shows: the piece that arrived with the least delay.
//
// Starts recording when made; `stop` from the same thread. The piece callback runs on the source's thread.
class HeardBeeps {
public:
    explicit HeardBeeps(const std::string& server)
        : m_source(
              SoundSource::Kind::systemAudio, server,
              [this](const float* samples, int frames, double time) { take(samples, frames, time); },
              [](const std::string&) {}) {
        m_source.start();
    }

    void stop() { m_source.stop(); }

    // When each beep started to be heard, on the monotonic clock; after `stop`.
    std::vector<double> onsets() const {
        const std::scoped_lock lock(m_mutex);
        std::vector<double> times;
        double offset = std::numeric_limits<double>::infinity();
        std::size_t piece = m_pieces.size();
        for (auto beep = m_beeps.rbegin(); beep != m_beeps.rend(); ++beep) {
            while (piece > 0 && m_pieces[piece - 1].first + m_pieces[piece - 1].frames > *beep) {
                --piece;
                offset = std::min(offset, m_pieces[piece].time - seconds(m_pieces[piece].first));
            }
            times.push_back(offset + seconds(*beep));
        }
        std::reverse(times.begin(), times.end());
        return times;
    }

    // How late the latest piece arrived beyond the least delay seen, in seconds: what a stamp taken on
    // arrival would have been off by. After `stop`.
    double worstArrival() const {
        const std::scoped_lock lock(m_mutex);
        double least = std::numeric_limits<double>::infinity();
        double worst = 0;
        for (auto piece = m_pieces.rbegin(); piece != m_pieces.rend(); ++piece) {
            const double offset = piece->time - seconds(piece->first);
            least = std::min(least, offset);
            worst = std::max(worst, offset - least);
        }
        return worst;
    }

private:
    static constexpr int rate = 48000;
    static double seconds(std::int64_t sample) { return static_cast<double>(sample) / rate; }

    void take(const float* samples, int frames, double time) {
        const std::scoped_lock lock(m_mutex);
        m_pieces.push_back({m_samples, frames, time});
        for (int i = 0; i < frames; ++i, ++m_samples) {
            const float level = std::max(std::abs(samples[2 * i]), std::abs(samples[2 * i + 1]));
            if (level > 0.1f) {
                // A beep begins after 0.3 s of quiet, so that one beep is never counted twice.
                if (m_quietSince >= 0 && m_samples - m_quietSince > rate * 3 / 10) {
                    m_beeps.push_back(m_samples);
                }
                m_quietSince = -1;
            } else if (m_quietSince < 0) {
                m_quietSince = m_samples;
            }
        }
    }

    struct Piece {
        std::int64_t first; // the place of its first sample in the stream
        int frames;
        double time; // as stamped on arrival
    };
    mutable std::mutex m_mutex;
    // Guarded by m_mutex:
    std::vector<Piece> m_pieces;
    std::vector<std::int64_t> m_beeps; // the place in the stream where each beep starts
    std::int64_t m_samples = 0;
    std::int64_t m_quietSince = 0;
    SoundSource m_source; // last: stopped before the fields it fills go
};

// Watches a player as a canvas would, from a thread of its own: asks for the picture at the player's clock
// about every millisecond and notes the clock against the monotonic clock. A flash is handed out when the
// clock, running, passes its picture's time; that instant is read off the clock's notes around it, not
// taken from when this thread happened to look, so that a watcher kept waiting measures the same.
class FlashWatch {
public:
    // `duration`: the item's, at whose end the clock stops with no flash there.
    FlashWatch(Player& player, double duration)
        : m_player(player)
        , m_duration(duration)
        , m_thread([this](std::stop_token stop) { run(stop); }) {}

    void stop() {
        m_thread.request_stop();
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    struct Flash {
        double time = 0; // on the item's timeline
        // When the clock passed it, on the monotonic clock: no sooner and no later than these. As the clock
        // runs no faster than the monotonic one but for the steps it takes forward, they are as far apart as
        // the clock fell behind, or stepped ahead, between the two looks around the pass: well under a
        // millisecond while it plays along, more where the sound was held up meanwhile.
        double earliest = 0;
        double latest = 0;
        bool seen = false;  // whether the watcher looked while the flash's picture was due
        bool white = false; // and, if so, whether that picture was white
    };

    // Each time the clock, playing on, passed the start of a second (a flash), in order; after `stop`. A
    // pass where the clock jumped (a seek) is not one.
    std::vector<Flash> flashes() const {
        std::vector<Flash> found;
        for (std::size_t i = 1; i < m_notes.size(); ++i) {
            const Note& a = m_notes[i - 1];
            const Note& b = m_notes[i];
            const double second = std::ceil(a.clock);
            // How far the clock ran ahead of the monotonic clock between the two looks.
            const double ahead = std::max(0.0, (b.clock - a.clock) - (b.monotonic - a.monotonic));
            if (!(a.clock < second && second <= b.clock) || second >= m_duration || ahead > stepSlack) {
                continue;
            }
            Flash flash;
            flash.time = second;
            flash.earliest = a.monotonic + std::max(0.0, second - a.clock - ahead);
            flash.latest = std::max(flash.earliest, b.monotonic - std::max(0.0, b.clock - second - ahead));
            // The first look while its picture was due, with that picture decoded.
            for (std::size_t j = i;
                 j < m_notes.size() && m_notes[j].clock >= second && m_notes[j].clock < second + frameSpan;
                 ++j) {
                if (m_notes[j].due) {
                    flash.seen = true;
                    flash.white = m_notes[j].white;
                    break;
                }
            }
            found.push_back(flash);
        }
        return found;
    }

private:
    // How far the clock may step ahead of the monotonic clock between two looks without counting as a seek:
    // the sound card's timing may correct it forward a little.
    static constexpr double stepSlack = 0.1;
    static constexpr double frameSpan = 1.0 / 30;

    struct Note {
        double monotonic;
        double clock;
        bool due;   // the picture handed out was the one whose span holds `clock`
        bool white; // its middle is white
    };

    void run(std::stop_token stop) {
        while (!stop.stop_requested()) {
            const double before = monotonicSeconds();
            const double clock = m_player.currentTime();
            const double after = monotonicSeconds();
            const auto frame = m_player.videoOutput().frameAt(clock);
            // A note whose readings a wait came between is no good for timing.
            if (after - before < 0.002 && frame) {
                const BgraImage& image = *frame->image;
                const bool white = image.row(image.height / 2)[4 * (image.width / 2)] > 200;
                m_notes.push_back({(before + after) / 2, clock, frame->endTime > clock, white});
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    Player& m_player;
    double m_duration;
    std::vector<Note> m_notes; // the watcher's alone until `stop`
    std::jthread m_thread;     // last: stopped before the fields it uses go
};

// For each flash, how long after the nearest beep it was handed out at the least (negative: before it; 0
// where the beep falls between its earliest and latest); none where no beep was heard within `window`.
inline std::vector<std::optional<double>> flashLeads(const std::vector<FlashWatch::Flash>& flashes,
                                                     const std::vector<double>& beeps, double window) {
    std::vector<std::optional<double>> leads;
    for (const auto& flash : flashes) {
        std::optional<double> nearest;
        for (const double beep : beeps) {
            const double lead = beep < flash.earliest ? flash.earliest - beep
                                : beep > flash.latest ? flash.latest - beep
                                                      : 0.0;
            if (std::abs(lead) <= window && (!nearest || std::abs(lead) < std::abs(*nearest))) {
                nearest = lead;
            }
        }
        leads.push_back(nearest);
    }
    return leads;
}

} // namespace marlowick::test
