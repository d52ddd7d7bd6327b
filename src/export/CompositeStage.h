#pragma once

#include "export/ExportPipeline.h"
#include "export/OutputTimeline.h"

#include <future>
#include <thread>

namespace marlowick {

// The middle stage of an export: a thread with a GL context of its own that draws each decoded picture on
// the canvas at its output time (only where it or the overlays changed, when it follows changes), reads
// back the tiles that meet what was drawn, and hands the frames to the encoding stage. Its failure is the
// pipeline's.
//
// At a constant rate it draws a frame at every n/rate seconds of output, up to the movie's end, each over
// the recording's picture shown at that instant: the latest picture whose time is at or before it.
//
// `timeline` must outlive it; it is made and destroyed on one thread.
class CompositeStage {
public:
    // Starts the thread and waits until its GL context and compositor are ready: their failure
    // (CompositorError) is thrown here, before anything else of the export is done.
    // `constantRate` 0 keeps the pictures' own times.
    CompositeStage(ExportPipeline& pipeline, const OutputTimeline& timeline, int width, int height,
                   bool followsChanges, int constantRate = 0);
    // Abandons the pipeline, so that a stage left part way ends, and waits for the thread.
    ~CompositeStage();
    CompositeStage(const CompositeStage&) = delete;
    CompositeStage& operator=(const CompositeStage&) = delete;

    // Waits for the thread to end, once the finished frames are all handed over or the pipeline abandoned.
    void join();

private:
    void run();

    ExportPipeline& m_pipeline;
    const OutputTimeline& m_timeline;
    int m_width;
    int m_height;
    bool m_followsChanges;
    int m_constantRate;
    std::promise<void> m_ready; // set by the thread once it can draw, or with why it can't
    std::jthread m_thread;      // last: it starts once the fields above are set
};

} // namespace marlowick
