#pragma once

#include "compositor/BgraTexture.h"
#include "compositor/FrameCompositor.h"
#include "export/OutputTimeline.h"
#include "playback/PlayerFrame.h"

#include <QOpenGLWindow>
#include <QPointer>
#include <QTimer>

#include <memory>
#include <optional>

namespace marlowick {

class CanvasFinish;
class PlaybackEngine;
class VideoOutput;

// The native window the canvas draws in, embedded in the editor by CanvasWidget. It has a GL context of
// its own and swaps only its own area: a GL widget would make Qt compose the whole top-level window with
// GL on every frame, which on a software renderer costs as much as drawing the canvas. Its contents are
// kept from one frame to the next, so that a frame draws only where it differs from the last: in the
// window's own framebuffer where the software rasteriser keeps it between swaps, else in a framebuffer
// object copied to the window at each frame.
//
// A 60 Hz timer looks at each tick whether anything would draw differently (the engine's time, a new
// picture from the player, the project, the size) and draws only then: a paused, unchanged canvas draws
// nothing. The window takes neither the pointer nor the focus: clicks fall through to the widget under it.
//
// Thread: the main thread only. The engine is not owned and must outlive the window or be replaced first.
class CanvasWindow : public QOpenGLWindow {
    Q_OBJECT
public:
    CanvasWindow();
    ~CanvasWindow() override;

    void setTimeline(std::optional<OutputTimeline> timeline);
    const std::optional<OutputTimeline>& timeline() const { return m_timeline; }
    void setPlayback(PlaybackEngine* playback);
    const std::optional<PlayerFrame>& shownFrame() const { return m_frame; }

    // Draws the present moment now and reads it back; a null image before the window was first shown.
    QImage grabFrame();

protected:
    void initializeGL() override;
    void paintGL() override;
    void resizeGL(int width, int height) override;

private:
    // Asks for a frame when one would differ from the last drawn.
    void refresh();
    // Takes the player's picture for `time` when it differs from the one held.
    void takeFrame(double time);
    void releaseGl();
    // Forgets the last frame drawn and asks for a whole new one.
    void redrawAll();

    std::optional<OutputTimeline> m_timeline;
    QPointer<PlaybackEngine> m_playback;
    QTimer m_refresh;
    // Something other than the engine's time and picture changed since the last frame drawn.
    bool m_stale = true;
    // The engine's time of the last frame drawn, none before the first.
    std::optional<double> m_drawnTime;

    // GL objects, made in initializeGL and released with the context current.
    std::unique_ptr<FrameCompositor> m_compositor; // none when the program failed
    std::unique_ptr<CanvasFinish> m_finish;        // none when its program failed: drawn straight, square
    std::unique_ptr<BgraTexture> m_source;
    // The picture in m_source and the output it came from: another output (a new load) starts afresh.
    std::optional<PlayerFrame> m_frame;
    VideoOutput* m_frameOutput = nullptr;
    // Where the pictures taken since the last paint differ from the one it drew.
    PictureChange m_unpainted = PictureChange::everywhere();
    // Where the last frame drawn is still whole, for the next one to draw only what differs.
    enum class Kept { nothing, framebuffer, picture };
    Kept m_kept = Kept::nothing;
};

} // namespace marlowick
