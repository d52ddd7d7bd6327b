#include "export/CompositeStage.h"

#include "export/FrameDrawer.h"
#include "media/VideoEncoder.h"

#include <optional>
#include <unordered_map>

namespace marlowick {

CompositeStage::CompositeStage(ExportPipeline& pipeline, const OutputTimeline& timeline, int width,
                               int height, bool followsChanges)
    : m_pipeline(pipeline)
    , m_timeline(timeline)
    , m_width(width)
    , m_height(height)
    , m_followsChanges(followsChanges)
    , m_thread([this] { run(); }) {
    m_ready.get_future().get();
}

CompositeStage::~CompositeStage() {
    m_pipeline.abandon();
    join();
}

void CompositeStage::join() {
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void CompositeStage::run() {
    std::optional<FrameDrawer> drawer;
    try {
        drawer.emplace(m_timeline, m_width, m_height);
    } catch (...) {
        m_ready.set_exception(std::current_exception());
        return;
    }
    m_ready.set_value();

    try {
        // Frames whose pixels are on their way back from the GPU, by the tag of their read.
        std::unordered_map<std::uint64_t, FinishedFrame> reading;
        std::uint64_t nextTag = 0;
        auto handOver = [&](const std::vector<std::uint64_t>& tags) {
            for (const std::uint64_t tag : tags) {
                const auto found = reading.find(tag);
                m_pipeline.finished.push(std::move(found->second));
                reading.erase(found);
            }
        };
        const std::vector<PixelRect> whole{{0, 0, m_width, m_height}};
        while (auto frame = m_pipeline.decoded.pop()) {
            drawer->setPicture(frame->image, frame->change);
            const double t = frame->outputTime;
            m_pipeline.emptyImages.push(std::move(frame->image));
            auto pixels = m_pipeline.emptyOutputs.pop();
            if (!pixels) {
                return;
            }
            pixels->resize(static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height) * 4);
            std::vector<PixelRect> drawn;
            if (m_followsChanges) {
                drawn = drawer->drawNext(t, frame->change);
            } else {
                drawer->draw(t);
                drawn = whole;
            }
            std::vector<PixelRect> tiles = VideoEncoder::tilesMeeting(drawn, m_width, m_height);
            const std::uint64_t tag = nextTag++;
            std::uint8_t* destination = pixels->data();
            const auto placed = reading.emplace(tag, FinishedFrame{t, std::move(*pixels), std::move(tiles)});
            handOver(drawer->transfer().readAreas(m_width, m_height, placed.first->second.tiles, destination,
                                                  tag));
        }
        handOver(drawer->transfer().flush());
        m_pipeline.finished.finish();
    } catch (...) {
        m_pipeline.fail(std::current_exception());
    }
}

} // namespace marlowick
