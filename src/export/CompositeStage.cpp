#include "export/CompositeStage.h"

#include "export/FrameDrawer.h"
#include "media/VideoEncoder.h"

#include <cmath>
#include <optional>
#include <unordered_map>

namespace marlowick {

CompositeStage::CompositeStage(ExportPipeline& pipeline, const OutputTimeline& timeline, int width,
                               int height, bool followsChanges, int constantRate)
    : m_pipeline(pipeline)
    , m_timeline(timeline)
    , m_width(width)
    , m_height(height)
    , m_followsChanges(followsChanges && constantRate == 0)
    , m_constantRate(constantRate)
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
        // Draws the frame at output time `t` over the picture in place and sends it on; false once the
        // pipeline is abandoned.
        const auto drawFrame = [&](double t, const PictureChange& change) {
            auto pixels = m_pipeline.emptyOutputs.pop();
            if (!pixels) {
                return false;
            }
            pixels->resize(static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height) * 4);
            std::vector<PixelRect> drawn;
            if (m_followsChanges) {
                drawn = drawer->drawNext(t, change);
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
            return true;
        };
        // At a constant rate: the next frame's number, and the frames the movie has.
        long long next = 0;
        const long long frames =
            m_constantRate > 0 ? std::llround(m_timeline.map.outputDuration() * m_constantRate) : 0;
        const auto frameTime = [&](long long n) { return static_cast<double>(n) / m_constantRate; };
        bool pictureInPlace = false;
        while (auto frame = m_pipeline.decoded.pop()) {
            const double t = frame->outputTime;
            if (m_constantRate > 0) {
                // The frames before this picture's time show the picture before it; before the first
                // picture, the first.
                for (; pictureInPlace && next < frames && frameTime(next) < t; ++next) {
                    if (!drawFrame(frameTime(next), {})) {
                        return;
                    }
                }
                drawer->setPicture(frame->image, frame->change);
                pictureInPlace = true;
                m_pipeline.emptyImages.push(std::move(frame->image));
                continue;
            }
            drawer->setPicture(frame->image, frame->change);
            m_pipeline.emptyImages.push(std::move(frame->image));
            if (!drawFrame(t, frame->change)) {
                return;
            }
        }
        for (; pictureInPlace && next < frames; ++next) {
            if (!drawFrame(frameTime(next), {})) {
                return;
            }
        }
        handOver(drawer->transfer().flush());
        m_pipeline.finished.finish();
    } catch (...) {
        m_pipeline.fail(std::current_exception());
    }
}

} // namespace marlowick
