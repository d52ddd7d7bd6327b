#include "ui/CanvasWindow.h"

#include "session/PlaybackEngine.h"
#include "ui/CanvasFinish.h"

#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QSurfaceFormat>

#include <cmath>
#include <string>
#include <utility>

namespace marlowick {

namespace {

// In points: the canvas's corners and the tiles of the checkerboard behind a transparent background.
constexpr double cornerRadius = 8;
constexpr double checkerSquare = 10;

// The compositor's program is GLSL 3.30 for a core profile.
QSurfaceFormat canvasFormat() {
    QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    format.setVersion(3, 3);
    format.setProfile(QSurfaceFormat::CoreProfile);
    return format;
}

// Whether a window's own framebuffer still holds the last frame when the next one is drawn, so that the
// canvas can draw into it straight. Mesa's software rasterisers on X keep one back buffer and copy it to
// the window at each swap, so they do; there the framebuffer object that otherwise keeps the frame would
// cost a copy of the whole canvas a frame, a third of the rasteriser's time. A GPU's swap chain hands out
// buffers whose contents are undefined, and there that copy is next to free.
bool windowKeepsFrames() {
    static const bool keeps = [] {
        if (QGuiApplication::platformName() != "xcb") {
            return false;
        }
        QOffscreenSurface surface;
        surface.setFormat(canvasFormat());
        surface.create();
        QOpenGLContext context;
        context.setFormat(canvasFormat());
        if (!context.create() || !context.makeCurrent(&surface)) {
            return false;
        }
        const auto* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
        const std::string name = renderer != nullptr ? renderer : "";
        context.doneCurrent();
        return name.find("llvmpipe") != std::string::npos || name.find("softpipe") != std::string::npos;
    }();
    return keeps;
}

} // namespace

CanvasWindow::CanvasWindow()
    : QOpenGLWindow(windowKeepsFrames() ? QOpenGLWindow::NoPartialUpdate : QOpenGLWindow::PartialUpdateBlit) {
    setFormat(canvasFormat());
    // Clicks go to the widget under the window, which passes the focus to the preview as any widget would.
    setFlags(flags() | Qt::WindowTransparentForInput | Qt::WindowDoesNotAcceptFocus);

    m_refresh.setTimerType(Qt::PreciseTimer);
    m_refresh.setInterval(1000 / 60);
    connect(&m_refresh, &QTimer::timeout, this, &CanvasWindow::refresh);
    m_refresh.start();
}

CanvasWindow::~CanvasWindow() {
    releaseGl();
    // The base class destroys the context after this one is gone: its last signal must not reach us.
    if (context() != nullptr) {
        disconnect(context(), nullptr, this, nullptr);
    }
}

void CanvasWindow::setTimeline(std::optional<OutputTimeline> timeline) {
    m_timeline = std::move(timeline);
    m_stale = true;
    update();
}

void CanvasWindow::setPlayback(PlaybackEngine* playback) {
    m_playback = playback;
    m_frame.reset();
    m_frameOutput = nullptr;
    redrawAll();
}

void CanvasWindow::redrawAll() {
    m_unpainted = PictureChange::everywhere();
    m_kept = Kept::nothing;
    m_stale = true;
    update();
}

void CanvasWindow::refresh() {
    if (!isExposed()) {
        return;
    }
    bool differs = m_stale;
    if (!differs && m_playback && m_compositor && m_timeline) {
        const double t = m_playback->currentTime();
        VideoOutput* output = m_playback->videoOutput();
        differs = !m_drawnTime || *m_drawnTime != t || output != m_frameOutput ||
                  (output != nullptr && output->hasNewFrame(t));
    }
    if (differs) {
        // The frame is drawn now, on this tick. update() alone would ask the platform for a frame, which
        // comes a whole refresh interval later: on a tick that finds it still pending, the next one is lost,
        // and the canvas draws at half the rate.
        update();
        QEvent request(QEvent::UpdateRequest);
        QCoreApplication::sendEvent(this, &request);
    }
}

QImage CanvasWindow::grabFrame() {
    if (!isValid()) {
        return {};
    }
    makeCurrent();
    paintGL();
    QImage image = grabFramebuffer();
    // What was read is on screen at the next frame too.
    m_stale = true;
    update();
    return image;
}

void CanvasWindow::initializeGL() {
    // A context that goes (the window was destroyed to be made again) takes its objects with it.
    connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, &CanvasWindow::releaseGl,
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
        // The frame is then drawn straight into the window, without the rounded corners.
        m_finish.reset();
    }
    m_frame.reset();
    m_frameOutput = nullptr;
    m_unpainted = PictureChange::everywhere();
    m_kept = Kept::nothing;
    m_stale = true;
}

void CanvasWindow::releaseGl() {
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
    m_stale = true;
}

void CanvasWindow::takeFrame(double time) {
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

void CanvasWindow::resizeGL(int, int) {
    // A new size is a new framebuffer and a new picture: nothing of the last frame is kept.
    m_kept = Kept::nothing;
    m_stale = true;
}

void CanvasWindow::paintGL() {
    const qreal ratio = devicePixelRatioF();
    const int pixelWidth = static_cast<int>(std::lround(width() * ratio));
    const int pixelHeight = static_cast<int>(std::lround(height() * ratio));
    glViewport(0, 0, pixelWidth, pixelHeight);
    const auto black = [this] {
        glClearColor(0, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        m_kept = Kept::nothing;
    };
    m_stale = false;
    m_drawnTime.reset();
    if (!m_compositor || !m_timeline || !m_playback) {
        black();
        return;
    }
    const double t = m_playback->currentTime();
    m_drawnTime = t;
    takeFrame(t);
    if (!m_frame) {
        black();
        return;
    }
    const Project& project = m_timeline->project;
    const std::optional<CursorFrame> cursor = m_timeline->cursorAt(t);
    const PictureChange change = std::exchange(m_unpainted, PictureChange::nowhere());
    try {
        // An opaque canvas is drawn straight into the window's framebuffer, which keeps the last frame, and
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
        m_stale = true;
    }
}

} // namespace marlowick
