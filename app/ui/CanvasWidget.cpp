#include "ui/CanvasWidget.h"

#include "ui/CanvasWindow.h"

#include <QResizeEvent>

#include <utility>

namespace marlowick {

CanvasWidget::CanvasWidget(QWidget* parent)
    : QWidget(parent)
    , m_window(new CanvasWindow) {
    m_container = QWidget::createWindowContainer(m_window, this);
    // The window takes no focus; the container neither, so that the focus stays with the preview.
    m_container->setFocusPolicy(Qt::NoFocus);
    m_container->setGeometry(rect());
    setAttribute(Qt::WA_OpaquePaintEvent);
    connect(m_window, &QOpenGLWindow::frameSwapped, this, &CanvasWidget::frameSwapped);
}

CanvasWidget::~CanvasWidget() = default;

void CanvasWidget::setTimeline(std::optional<OutputTimeline> timeline) {
    m_window->setTimeline(std::move(timeline));
}

const std::optional<OutputTimeline>& CanvasWidget::timeline() const {
    return m_window->timeline();
}

void CanvasWidget::setPlayback(PlaybackEngine* playback) {
    m_window->setPlayback(playback);
}

const std::optional<PlayerFrame>& CanvasWidget::shownFrame() const {
    return m_window->shownFrame();
}

QImage CanvasWidget::grabFramebuffer() {
    return m_window->grabFrame();
}

void CanvasWidget::resizeEvent(QResizeEvent* event) {
    m_container->setGeometry(QRect(QPoint(0, 0), event->size()));
    QWidget::resizeEvent(event);
}

} // namespace marlowick
