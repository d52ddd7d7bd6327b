#pragma once

#include "export/ExportPipeline.h"
#include "export/OutputTimeline.h"
#include "media/VideoDecoder.h"

#include <thread>

namespace marlowick {

// The first stage of an export: a thread that decodes the recording, skips the frames the cuts remove
// without converting them, converts the rest (only where the picture changed, when it follows changes),
// and hands them to the compositing stage at their output time. Its failure is the pipeline's.
//
// `decoder` and `timeline` must outlive it; it is made and destroyed on one thread.
class DecodeStage {
public:
    // Starts the thread.
    DecodeStage(ExportPipeline& pipeline, VideoDecoder& decoder, const OutputTimeline& timeline,
                bool followsChanges);
    // Abandons the pipeline, so that a stage left part way ends, and waits for the thread.
    ~DecodeStage();
    DecodeStage(const DecodeStage&) = delete;
    DecodeStage& operator=(const DecodeStage&) = delete;

    // Waits for the thread to end, once the decoded frames are all handed over or the pipeline abandoned.
    void join();

private:
    void run();

    ExportPipeline& m_pipeline;
    VideoDecoder& m_decoder;
    const OutputTimeline& m_timeline;
    bool m_followsChanges;
    std::jthread m_thread; // last: it starts once the fields above are set
};

} // namespace marlowick
