#pragma once

#include "model/Geometry.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace marlowick {

// A video stream taken from a PipeWire node: the screen as a desktop's screen-sharing service offers it.
// The stream asks for 32-bit pixels (B, G, R, X or A, or R, G, B, X or A, in memory) in shared memory
// first, then in DMA-BUFs of the linear layout, and hands each picture on as B, G, R, X, row 0 at the top,
// with the time PipeWire gave it: the producer's presentation stamp where the buffer carries one, else the
// start of the graph's cycle, both on the monotonic clock in nanoseconds. Shared memory comes first because
// the pictures are read by the processor: a linear DMA-BUF in a discrete GPU's memory reads many times
// slower than memory the producer filled. A producer that has only DMA-BUFs to give gets the second. Where
// the buffers carry cursor metadata, each new pointer position is handed on too, in pixels of the stream's
// pictures.
//
// A DMA-BUF is mapped for reading once, when PipeWire adds the buffer, and each picture is read between
// the buffer's cache synchronisation calls. Only the linear layout is offered: a tiled one needs the GPU to
// import it (EGL's DMA-BUF import with modifiers), and the software renderer this is built and tested on
// has no such import. A producer that gives its pictures only in layouts this can't read ends the stream
// at once (captureUnavailable), the text saying what the stream reads.
//
// The stream is linked to its node by the desktop's session manager (it asks for the node as its target);
// on a daemon with no manager, something else must link the two (see `nodeId`).
//
// Thread: the handler's functions are called on the stream's own thread, one at a time, never after
// `stop` or the destructor has returned. `hasCursorMetadata` may be called from any thread, also while or
// after `stop` runs; everything else from one thread at a time. The stream's state is guarded by its
// loop's lock, which `stop` destroys: only what needs no lock (an atomic flag) is read from other threads.
class PipeWireStream {
public:
    // Where the daemon is: a connected socket (from a screen-sharing portal, which grants the connection
    // the one node it shares), taken over and closed by the stream; or a daemon by its socket's name,
    // "pipewire-0" when empty.
    struct Remote {
        int fd = -1;
        std::string name;
    };

    struct Handler {
        // A picture of 32-bit B, G, R, X pixels at `time`, in seconds on the monotonic clock.
        std::function<void(const std::uint8_t* pixels, int stride, int width, int height, double time)>
            picture;
        // The pointer moved to `position` (pixels of the pictures) at `time`.
        std::function<void(double time, Point position)> cursor;
        // Pictures lost before `time`: the producer's sequence skipped them (it found no free buffer), or a
        // newer one came before they could be taken.
        std::function<void(std::int64_t pictures, double time)> missed;
        // The stream ended by itself (the producer went away, the daemon closed the connection), with why.
        // Nothing more comes after it.
        std::function<void(const std::string& why)> ended;
    };

    // Connects to the daemon and asks for the node `targetNode`. Throws CaptureError (captureUnavailable)
    // when no daemon answers or the stream can't be made.
    PipeWireStream(Remote remote, std::uint32_t targetNode, Handler handler);
    ~PipeWireStream();
    PipeWireStream(const PipeWireStream&) = delete;
    PipeWireStream& operator=(const PipeWireStream&) = delete;

    // The stream's own node in the daemon's graph, for linking it by hand.
    std::uint32_t nodeId() const;

    // Waits up to `seconds` until the producer and the stream agree on a format and its buffers, and gives
    // the pictures' size. Throws CaptureError (captureUnavailable) when the time passes or the stream ends
    // first.
    Size waitForFormat(double seconds);
    // Whether the agreed buffers carry the pointer's position; known once the format is. Never waits for
    // the stream's loop.
    bool hasCursorMetadata() const;

    // Disconnects; no handler function runs once this returns.
    void stop();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace marlowick
