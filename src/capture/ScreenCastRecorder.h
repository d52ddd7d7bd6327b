#pragma once

#include "capture/CaptureConfiguration.h"
#include "capture/CaptureError.h"
#include "capture/PipeWireStream.h"
#include "capture/RecordingSink.h"
#include "model/Recording.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace marlowick {

// Records a screen shared as a PipeWire stream: its pictures into a movie through a RecordingSink, on the
// times PipeWire gave them, and the pointer positions of the stream's cursor metadata as telemetry on the
// movie's clock. Where the producer stops, the take ends there: `interruption` says so and `stop` still
// yields what was recorded.
//
// The movie is made at the configuration's `size`, or at the stream's own where that is empty; the
// telemetry is scaled from the stream's pixels to the movie's.
//
// Thread: made, stopped and destroyed from one thread; `hasCursorMetadata`, `interruption`, `statistics`
// and `sink` from any, also while `stop` runs.
class ScreenCastRecorder {
public:
    struct Options {
        std::uint64_t minimumFreeBytes = 512ull << 20; // a take stops before the disk is full
        bool allowHardware = true;                     // the GPU's video encoder where one opens
        double formatTimeout = 10;                     // seconds the producer has to agree on a format
        // Called with the stream's own node once it is connected and before the format is awaited: where
        // no session manager links nodes, the caller links the two here.
        std::function<void(std::uint32_t node)> connected;
    };

    // Connects to `node` on `remote`, waits for the format and begins the movie. Throws CaptureError:
    // captureUnavailable when the stream can't be had, writerFailed when the movie can't be begun.
    ScreenCastRecorder(PipeWireStream::Remote remote, std::uint32_t node,
                       const CaptureConfiguration& configuration, const Options& options);
    ~ScreenCastRecorder();
    ScreenCastRecorder(const ScreenCastRecorder&) = delete;
    ScreenCastRecorder& operator=(const ScreenCastRecorder&) = delete;

    // Whether the stream carries the pointer's position.
    bool hasCursorMetadata() const;
    // The size of the stream's pictures.
    Size streamSize() const { return m_streamSize; }
    // The movie's size, the configuration's or the stream's.
    Size movieSize() const { return m_configuration.size; }
    // The monotonic time, in seconds, of the movie's first picture; none before it.
    std::optional<double> movieStart() const { return m_sink->sessionStart(); }
    // Where sound for the same movie goes.
    RecordingSink& sink() { return *m_sink; }

    // Ends the stream and the movie, and yields the recording with the pointer's moves; a position from
    // before the first picture is where the pointer was when the movie began, at time 0. Throws
    // CaptureError (writerFailed) when the movie can't be finished.
    Recording stop();

    // The producer stopping, or the sink's own interruption.
    std::optional<CaptureError> interruption() const;
    CaptureStatistics statistics() const { return m_sink->statistics(); }

private:
    struct Move {
        double time;
        Point position;
    };

    CaptureConfiguration m_configuration;
    Size m_streamSize;
    std::unique_ptr<RecordingSink> m_sink;
    bool m_finished = false; // `stop` has finished the movie

    mutable std::mutex m_lock;          // guards the fields below
    bool m_sinkReady = false;           // pictures go to the sink only once it exists
    std::vector<Move> m_moves;          // in stream pixels, in the order they came
    std::optional<std::string> m_ended; // why the producer's stream ended

    std::unique_ptr<PipeWireStream> m_stream; // last: it stops calling back before the rest goes
};

} // namespace marlowick
