#include "export/EncodeStage.h"

#include "export/MediaFailures.h"

namespace marlowick {

EncodeStage::EncodeStage(const std::filesystem::path& target, const VideoEncoder::Settings& settings)
    : m_output(target)
    , m_encoder(reportingMediaFailures(
          [&] { return std::make_unique<VideoEncoder>(m_output.staging(), settings); }, &m_output))
    , m_stride(settings.width * 4) {}

long long EncodeStage::encode(ExportPipeline& pipeline, const std::stop_token& stop,
                              const std::function<void(long long)>& onFrame) {
    long long written = 0;
    for (;;) {
        if (stop.stop_requested()) {
            pipeline.abandon();
            throw ExportError(ExportError::Kind::cancelled, "cancelled");
        }
        auto frame = pipeline.finished.pop();
        if (!frame) {
            return written;
        }
        reportingMediaFailures(
            [&] {
                m_encoder->encodeChanged(frame->pixels.data(), m_stride, frame->outputTime, frame->tiles);
            },
            &m_output);
        pipeline.emptyOutputs.push(std::move(frame->pixels));
        ++written;
        if (onFrame) {
            onFrame(written);
        }
    }
}

void EncodeStage::complete(const std::stop_token& stop) {
    if (!reportingMediaFailures([&] { return m_encoder->finish(stop); }, &m_output)) {
        throw ExportError(ExportError::Kind::cancelled, "cancelled");
    }
    m_encoder.reset();
    try {
        m_output.commit();
    } catch (const std::filesystem::filesystem_error& e) {
        throw ExportError(ExportError::Kind::writerFailed,
                          m_output.target().string() + ": " + e.code().message());
    }
}

} // namespace marlowick
