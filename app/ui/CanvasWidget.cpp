#include "ui/CanvasWidget.h"

#include "session/PlaybackEngine.h"
#include "ui/CanvasFinish.h"

#include <QOpenGLContext>
#include <QSurfaceFormat>

#include <cmath>
#include <utility>

namespace marlowick {

namespace {

// In points: the canvas's corners and the tiles of the checkerboard behind a transparent background.
constexpr double cornerRadius = 8;
constexpr double checkerSquare = 10;

} // namespace

CanvasWidget::CanvasWidget(QWidget* parent)
    : QOpenGLWidget(parent) {
    // The compositor's program is GLSL 3.30 for a core profile.
    QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    format.setVersion(3, 3);
    format.setProfile(QSurfaceFormat::CoreProfile);
    setFormat(format);
    setAttribute(Qt::WA_OpaquePaintEvent);
    // The framebuffer keeps the last frame, so that a frame draws only where it differs from it.
    setUpdateBehavior(QOpenGLWidget::PartialUpdate);

    m_refresh.setTimerType(Qt::PreciseTimer);
    m_refresh.setInterval(1000 / 60);
    connect(&m_refresh, &QTimer::timeout, this, qOverload<>(&QWidget::update));
    m_refresh.start();
}

CanvasWidget::~CanvasWidget() {
    releaseGl();
    // The base class destroys the context after this one is gone: its last signal must not reach us.
    if (context() != nullptr) {
        disconnect(context(), nullptr, this, nullptr);
    }
}

void CanvasWidget::setTimeline(std::optional<OutputTimeline> timeline) {
    m_timeline = std::move(timeline);
    update();
}

void CanvasWidget::setPlayback(PlaybackEngine* playback) {
    m_playback = playback;
    m_frame.reset();
    m_frameOutput = nullptr;
    m_unpainted = PictureChange::everywhere();
    m_kept = Kept::nothing;
    update();
}

void CanvasWidget::initializeGL() {
    // A context that goes (the widget moved to another window) takes its objects with it.
    connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, &CanvasWidget::releaseGl,
            Qt::UniqueConnection);
    try {
        m_compositor = std::make_unique<FrameCompositor>();
        m_source = std::make_unique<BgraTexture>();
    } catch (const std::exception&) {
        // Without its program the canvas stays black; the rest of the window works on.
        m_compositor.reset();
        m_source.reset();
    }
    try {
        m_finish = std::make_unique<CanvasFinish>();
    } catch (const std::exception&) {
        // The frame is then drawn straight into the widget, without the rounded corners.
        m_finish.reset();
    }
    m_frame.reset();
    m_frameOutput = nullptr;
    m_unpainted = PictureChange::everywhere();
    m_kept = Kept::nothing;
}

void CanvasWidget::releaseGl() {
    if (!m_compositor && !m_source && !m_finish) {
        return;
    }
    makeCurrent();
    m_compositor.reset();
    m_source.reset();
    m_finish.reset();
    doneCurrent();
    m_frame.reset();
    m_frameOutput = nullptr;
    m_unpainted = PictureChange::everywhere();
    m_kept = Kept::nothing;
}

void CanvasWidget::takeFrame(double time) {
    VideoOutput* output = m_playback ? m_playback->videoOutput() : nullptr;
    if (output == nullptr) {
        return;
    }
    const bool sameOutput = output == m_frameOutput;
    if (sameOutput && m_frame && !output->hasNewFrame(time)) {
        return;
    }
    std::optional<PlayerFrame> frame = output->frameAt(time);
    if (!frame || !frame->image) {
        return;
    }
    const BgraImage& image = *frame->image;
    const bool whole = !sameOutput || !m_frame || frame->change.whole || m_source->width() != image.width ||
                       m_source->height() != image.height;
    if (whole) {
        m_source->upload(image.bytes.data(), image.width, image.height, image.stride);
        m_unpainted = PictureChange::everywhere();
    } else {
        for (const PixelRect& area : frame->change.areas) {
            m_source->update(image.bytes.data(), image.stride, area);
        }
        if (!m_unpainted.whole) {
            m_unpainted.areas.insert(m_unpainted.areas.end(), frame->change.areas.begin(),
                                     frame->change.areas.end());
        }
    }
    m_frame = std::move(frame);
    m_frameOutput = output;
}

void CanvasWidget::resizeGL(int, int) {
    // A new size is a new framebuffer and a new picture: nothing of the last frame is kept.
    m_kept = Kept::nothing;
}

void CanvasWidget::paintGL() {
    const qreal ratio = devicePixelRatioF();
    const int pixelWidth = static_cast<int>(std::lround(width() * ratio));
    const int pixelHeight = static_cast<int>(std::lround(height() * ratio));
    glViewport(0, 0, pixelWidth, pixelHeight);
    const auto black = [this] {
        glClearColor(0, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        m_kept = Kept::nothing;
    };
    if (!m_compositor || !m_timeline || !m_playback) {
        black();
        return;
    }
    const double t = m_playback->currentTime();
    takeFrame(t);
    if (!m_frame) {
        black();
        return;
    }
    const Project& project = m_timeline->project;
    const std::optional<CursorFrame> cursor = m_timeline->cursorAt(t);
    const PictureChange change = std::exchange(m_unpainted, PictureChange::nowhere());
    try {
        // An opaque canvas is drawn straight into the widget's framebuffer, which keeps the last frame, and
        // its corners darkened after: on a software renderer every pass over the whole canvas is a few
        // milliseconds. A transparent one needs the picture, to put the checkerboard behind it.
        const bool straight = !m_finish || !project.canvas.background.isTransparent();
        if (straight) {
            const double radius = cornerRadius * ratio;
            const unsigned framebuffer = defaultFramebufferObject();
            if (m_kept == Kept::framebuffer) {
                m_finish->restoreCorners(framebuffer, pixelWidth, pixelHeight, radius);
                m_compositor->renderSequence(*m_source, pixelWidth, pixelHeight, project, t, cursor, false,
                                             change);
            } else {
                m_compositor->render(*m_source, pixelWidth, pixelHeight, project, t, cursor, false);
            }
            if (m_finish) {
                m_finish->keepCorners(framebuffer, pixelWidth, pixelHeight, radius);
                m_finish->maskCorners(pixelWidth, pixelHeight, radius);
                m_kept = Kept::framebuffer;
            }
            return;
        }
        const bool fresh = m_finish->bindPicture(pixelWidth, pixelHeight);
        if (!fresh && m_kept == Kept::picture) {
            m_compositor->renderSequence(*m_source, pixelWidth, pixelHeight, project, t, cursor, false,
                                         change);
        } else {
            m_compositor->render(*m_source, pixelWidth, pixelHeight, project, t, cursor, false);
        }
        m_kept = Kept::picture;
        m_finish->finish(defaultFramebufferObject(), cornerRadius * ratio, checkerSquare * ratio);
    } catch (const std::exception&) {
        // This refresh shows black; the next one tries again, drawing the whole frame.
        glBindFramebuffer(GL_FRAMEBUFFER, defaultFramebufferObject());
        black();
    }
}

} // namespace marlowick
