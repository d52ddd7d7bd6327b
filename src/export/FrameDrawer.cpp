#include "export/FrameDrawer.h"

namespace marlowick {

FrameDrawer::FrameDrawer(const OutputTimeline& timeline, int width, int height)
    : m_timeline(timeline)
    , m_canvas(width, height)
    , m_transfer(!PixelTransfer::isSoftwareRenderer(m_context.renderer())) {}

void FrameDrawer::setPicture(const BgraImage& image, const PictureChange& change) {
    if (change.whole) {
        m_transfer.upload(m_source, image.bytes.data(), image.width, image.height, image.stride);
    } else if (!change.areas.empty()) {
        m_transfer.uploadAreas(m_source, image.bytes.data(), image.stride, change.areas);
    }
}

void FrameDrawer::draw(double t) {
    m_canvas.bind();
    m_compositor.render(m_source, width(), height(), m_timeline.project, t, m_timeline.cursorAt(t), true);
}

std::vector<PixelRect> FrameDrawer::drawNext(double t, const PictureChange& change) {
    m_canvas.bind();
    return m_compositor.renderSequence(m_source, width(), height(), m_timeline.project, t,
                                       m_timeline.cursorAt(t), true, change);
}

BgraImage FrameDrawer::picture() const {
    return {width(), height(), width() * 4, m_canvas.readBgra()};
}

} // namespace marlowick
