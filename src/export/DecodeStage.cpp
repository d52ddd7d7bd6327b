#include "export/DecodeStage.h"

namespace marlowick {

DecodeStage::DecodeStage(ExportPipeline& pipeline, VideoDecoder& decoder, const OutputTimeline& timeline,
                         bool followsChanges)
    : m_pipeline(pipeline)
    , m_decoder(decoder)
    , m_timeline(timeline)
    , m_followsChanges(followsChanges)
    , m_thread([this] { run(); }) {}

DecodeStage::~DecodeStage() {
    m_pipeline.abandon();
    join();
}

void DecodeStage::join() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void DecodeStage::run() {
    const TimeMap& map = m_timeline.map;
    try {
        for (;;) {
            auto image = m_pipeline.emptyImages.pop();
            if (!image) {
                return;
            }
            PictureChange change;
            const auto time = m_decoder.next(
                *image, [&](double t) { return !map.isRemoved(t); }, m_followsChanges ? &change : nullptr);
            if (!time) {
                break;
            }
            if (!m_pipeline.decoded.push(
                    {m_timeline.outputTime(*time), std::move(*image), std::move(change)})) {
                return;
            }
        }
        m_pipeline.decoded.finish();
    } catch (...) {
        m_pipeline.fail(std::current_exception());
    }
}

} // namespace marlowick
