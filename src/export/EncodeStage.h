#pragma once

#include "export/ExportPipeline.h"
#include "media/VideoEncoder.h"
#include "model/FileOps.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>

namespace marlowick {

// The last stage of an export, on the calling thread: writes the finished frames into the movie as they
// come, and completes it. The movie is written beside the target under a hidden name and takes the
// target's place only when `complete` returns; until then whatever the target held stays, and the
// unfinished movie is removed on every way out: a failure to write, a failure of another stage, a
// cancellation, an exception from a progress report.
class EncodeStage {
public:
    // Creates the movie. Throws ExportError (writerFailed) when it can't.
    EncodeStage(const std::filesystem::path& target, const VideoEncoder::Settings& settings);
    EncodeStage(const EncodeStage&) = delete;
    EncodeStage& operator=(const EncodeStage&) = delete;

    // Encodes the finished frames until the compositing stage is done or the pipeline abandoned, testing
    // `stop` before each; `onFrame` hears the frames written after each. Returns the frames written.
    // Throws ExportError: cancelled when stopped (the pipeline is then abandoned), writerFailed when the
    // movie can't be written.
    long long encode(ExportPipeline& pipeline, const std::stop_token& stop,
                     const std::function<void(long long)>& onFrame);

    // Drains the encoder, copies the rest of the sound and completes the movie, which is kept from then
    // on. Throws ExportError: cancelled when `stop` is requested before the end, writerFailed when the
    // movie can't be written.
    void complete(const std::stop_token& stop);

private:
    fileops::StagedOutput m_output; // before the encoder: the file is closed before it is removed
    std::unique_ptr<VideoEncoder> m_encoder;
    int m_stride;
};

} // namespace marlowick
