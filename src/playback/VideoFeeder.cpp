#include "playback/VideoFeeder.h"

#include "media/MediaError.h"
#include "media/VideoDecoder.h"
#include "playback/PicturePool.h"

#include <algorithm>
#include <limits>

namespace marlowick {

namespace {

// A frame that starts within this of a time counts as starting at it, as the decoder counts it.
constexpr double tolerance = 1e-6;
// Frames decoded ahead of the one showing: a few, as each is a whole picture.
constexpr std::size_t queueLength = 6;
// A segment starting at most this much later in the source than the one before it ends is reached by
// decoding on rather than by seeking: about a keyframe interval, which a seek would decode anyway.
constexpr double decodeAcross = 1.0;

void add(PictureChange& into, const PictureChange& change) {
    if (into.whole || change.whole) {
        into = PictureChange::everywhere();
        return;
    }
    into.areas.insert(into.areas.end(), change.areas.begin(), change.areas.end());
}

} // namespace

// The decoding of one generation, on the feeder's thread only.
class VideoFeeder::Job {
public:
    void load(const PlayerItem& item) {
        m_segments = item.composition.segments;
        m_duration = item.duration();
        m_decoder.reset();
        if (item.composition.videoTracks == 0) {
            return;
        }
        try {
            m_decoder = std::make_unique<VideoDecoder>(item.movie);
            m_frameDuration = 1 / m_decoder->frameRate();
        } catch (const MediaError&) {
            m_decoder.reset();
        }
    }

    void start(double time, std::uint64_t generation) {
        m_generation = generation;
        m_held.reset();
        m_carry = PictureChange::nowhere();
        m_done = !m_decoder || m_segments.empty() || m_duration <= 0;
        if (m_done) {
            return;
        }
        // A time at or past the end shows the last picture.
        m_target = std::clamp(time, 0.0, std::max(0.0, m_duration - tolerance * 10));
        auto segment = std::upper_bound(
            m_segments.begin(), m_segments.end(), m_target,
            [](double t, const PlaybackComposition::Segment& s) { return t < s.compositionStart; });
        m_segment =
            segment == m_segments.begin() ? 0 : static_cast<std::size_t>(segment - m_segments.begin() - 1);
        const PlaybackComposition::Segment& s = m_segments[m_segment];
        enter(s.sourceStart + std::max(0.0, m_target - s.compositionStart), true);
    }

    bool done() const { return m_done; }
    // Nothing more is decoded until the next start.
    void halt() { m_done = true; }
    std::uint64_t generation() const { return m_generation; }

    // Decodes one more frame; what is ready to hand out goes to `out`.
    void step(std::vector<PlayerFrame>& out) {
        if (m_done) {
            return;
        }
        const PlaybackComposition::Segment& s = m_segments[m_segment];
        const double sourceEnd = s.sourceStart + s.duration;
        double before = m_seen;
        PictureChange change;
        const std::optional<double> time = m_decoder->next(
            [&](double t) {
                before = m_seen;
                m_seen = t;
                return m_exact ? t >= *m_exact - tolerance : t + m_frameDuration > m_from + tolerance;
            },
            [this](const PictureChange& c) -> BgraImage& { return m_pictures.next(c); }, change);
        if (!time) {
            finishSegment(out);
            if (m_segment + 1 < m_segments.size()) {
                ++m_segment;
                enter(m_segments[m_segment].sourceStart, true);
            } else {
                m_done = true;
            }
            return;
        }
        add(m_carry, change);
        if (m_fresh && !m_exact && *time > m_from + tolerance &&
            before > -std::numeric_limits<double>::infinity() && before <= m_from + tolerance) {
            // A frame longer than the rate says: the one showing at `from` was passed over. It is sought
            // again, and taken by its time.
            m_exact = before;
            m_decoder->seek(m_from);
            m_seen = -std::numeric_limits<double>::infinity();
            m_carry = PictureChange::everywhere();
            return;
        }
        if (*time >= sourceEnd - tolerance) {
            finishSegment(out);
            if (m_segment + 1 >= m_segments.size()) {
                m_done = true;
                return;
            }
            const PlaybackComposition::Segment& n = m_segments[++m_segment];
            const bool onward =
                n.sourceStart >= *time - tolerance && n.sourceStart - sourceEnd <= decodeAcross;
            if (!onward) {
                enter(n.sourceStart, true);
                return;
            }
            if (*time + m_frameDuration > n.sourceStart + tolerance || *time >= n.sourceStart - tolerance) {
                // This very frame shows at the next segment's start.
                m_from = n.sourceStart;
                m_fresh = false;
                m_exact.reset();
                hold(n, *time, out);
                return;
            }
            // Decodes on through the cut, converting nothing until the next segment's first picture; the
            // picture converted here counts towards the changes of that one.
            m_from = n.sourceStart;
            m_fresh = true;
            m_exact.reset();
            return;
        }
        m_fresh = false;
        hold(s, *time, out);
    }

private:
    // Decodes from `from` in the present segment; `seek` moves the decoder there first.
    void enter(double from, bool seek) {
        m_from = from;
        m_fresh = true;
        m_exact.reset();
        if (seek) {
            m_decoder->seek(from);
            m_seen = -std::numeric_limits<double>::infinity();
            m_carry = PictureChange::everywhere();
        }
    }

    // The latest picture, at source time `time` in segment `s`, becomes the one held until the next
    // one's time is known; the one held before is handed out.
    void hold(const PlaybackComposition::Segment& s, double time, std::vector<PlayerFrame>& out) {
        const double at = s.compositionStart + std::max(0.0, time - s.sourceStart);
        if (m_held) {
            m_held->endTime = at;
            handOut(out);
        }
        PlayerFrame frame;
        // A picture the same as the one before (a screen at rest) shares its image.
        frame.image = m_pictures.latest();
        frame.time = at;
        frame.change = std::move(m_carry);
        frame.generation = m_generation;
        m_held = std::move(frame);
        m_carry = PictureChange::nowhere();
    }

    void finishSegment(std::vector<PlayerFrame>& out) {
        if (m_held) {
            const PlaybackComposition::Segment& s = m_segments[m_segment];
            m_held->endTime = std::max(m_held->time, s.compositionStart + s.duration);
            handOut(out);
        }
    }

    void handOut(std::vector<PlayerFrame>& out) {
        if (m_held->endTime <= m_target + tolerance && m_held->endTime < m_duration) {
            // Ends before the time sought: passed over, its changes counted towards the next.
            PictureChange carried = std::move(m_held->change);
            add(carried, m_carry);
            m_carry = std::move(carried);
        } else {
            out.push_back(std::move(*m_held));
        }
        m_held.reset();
    }

    std::vector<PlaybackComposition::Segment> m_segments;
    double m_duration = 0;
    std::unique_ptr<VideoDecoder> m_decoder;
    double m_frameDuration = 1.0 / 30;
    PicturePool m_pictures; // the pictures converted, the latest one last

    std::uint64_t m_generation = 0;
    double m_target = 0; // the time sought: frames ending by then are not handed out
    std::size_t m_segment = 0;
    double m_from = 0;   // source time: the first picture wanted shows at it
    bool m_fresh = true; // no picture taken since `m_from` was set
    double m_seen = -std::numeric_limits<double>::infinity(); // the last frame decoded since a seek
    std::optional<double> m_exact;     // the source time of the picture showing at `m_from`, once known
    std::optional<PlayerFrame> m_held; // the latest picture, waiting for the next one's time as its end
    PictureChange m_carry = PictureChange::everywhere(); // changes of pictures converted but not handed out
    bool m_done = true;
};

VideoFeeder::VideoFeeder()
    : m_thread([this](std::stop_token stop) { run(std::move(stop)); }) {}

VideoFeeder::~VideoFeeder() {
    m_thread.request_stop();
    m_thread.join();
}

void VideoFeeder::restartLocked() {
    ++m_generation;
    m_queue.clear();
    m_current.reset();
}

void VideoFeeder::load(const PlayerItem& item) {
    {
        const std::scoped_lock lock(m_mutex);
        restartLocked();
        m_loading = item;
        m_seeking = 0.0;
    }
    m_wake.notify_all();
}

void VideoFeeder::seek(double time) {
    {
        const std::scoped_lock lock(m_mutex);
        restartLocked();
        m_seeking = time;
    }
    m_wake.notify_all();
}

bool VideoFeeder::hasNewFrame(double time) const {
    const std::scoped_lock lock(m_mutex);
    return !m_queue.empty() && (!m_current || m_queue.front().time <= time + tolerance);
}

std::optional<PlayerFrame> VideoFeeder::frameAt(double time) {
    std::optional<PlayerFrame> handed;
    {
        const std::scoped_lock lock(m_mutex);
        PictureChange change = PictureChange::nowhere();
        bool taken = false;
        // The first picture after a load or a seek shows even before its time: it is the one sought.
        while (!m_queue.empty() && (!m_current || m_queue.front().time <= time + tolerance)) {
            add(change, m_queue.front().change);
            m_current = std::move(m_queue.front());
            m_queue.pop_front();
            taken = true;
        }
        if (taken) {
            m_current->change = std::move(change);
        }
        handed = m_current;
    }
    m_wake.notify_all();
    return handed;
}

void VideoFeeder::run(std::stop_token stop) {
    Job job;
    std::vector<PlayerFrame> ready;
    while (!stop.stop_requested()) {
        std::optional<PlayerItem> loading;
        std::optional<double> seeking;
        std::uint64_t generation = 0;
        {
            std::unique_lock lock(m_mutex);
            if (!m_wake.wait(lock, stop, [&] {
                    return m_loading || m_seeking || (!job.done() && m_queue.size() < queueLength);
                })) {
                return;
            }
            loading = std::move(m_loading);
            m_loading.reset();
            seeking = m_seeking;
            m_seeking.reset();
            generation = m_generation;
        }
        try {
            if (loading) {
                job.load(*loading);
            }
            if (seeking) {
                job.start(*seeking, generation);
            }
            ready.clear();
            job.step(ready);
        } catch (const MediaError&) {
            // A damaged stretch of the movie: what was decoded stays, and nothing more comes until the next
            // seek.
            job.halt();
            ready.clear();
        }
        if (!ready.empty()) {
            const std::scoped_lock lock(m_mutex);
            if (job.generation() == m_generation) {
                for (PlayerFrame& frame : ready) {
                    m_queue.push_back(std::move(frame));
                }
            }
        }
    }
}

} // namespace marlowick
