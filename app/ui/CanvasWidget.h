#pragma once

#include "compositor/BgraTexture.h"
#include "compositor/FrameCompositor.h"
#include "export/OutputTimeline.h"
#include "playback/PlayerFrame.h"

#include <QOpenGLWidget>
#include <QPointer>
#include <QTimer>

#include <memory>
#include <optional>

namespace marlowick {

class CanvasFinish;
class PlaybackEngine;
class VideoOutput;

// The composited canvas: the project on output time, drawn through the same FrameCompositor as the
// export, at the widget's size in device pixels, from the player's picture of the engine's current time.
// It redraws on a 60 Hz timer whether or not the player plays, so that a changed setting shows at the next
// refresh over a paused picture. The canvas is clipped to a rounded rectangle of radius 8, with black
// outside its corners, and a transparent background shows a checkerboard of 10-point tiles. The last picture
// is kept until a new one comes; before the first, and where no GL 3.3 core context or compositor program
// can be had, it shows black.
//
// Thread: the main thread only. The engine is not owned and must outlive the widget or be replaced first.
class CanvasWidget : public QOpenGLWidget {
    Q_OBJECT
public:
    explicit CanvasWidget(QWidget* parent = nullptr);
    ~CanvasWidget() override;

    // What to draw; none draws black. Takes effect at the next refresh.
    void setTimeline(std::optional<OutputTimeline> timeline);
    const std::optional<OutputTimeline>& timeline() const { return m_timeline; }
    void setPlayback(PlaybackEngine* playback);

    // The player's picture the canvas holds, none before the first.
    const std::optional<PlayerFrame>& shownFrame() const { return m_frame; }

protected:
    void initializeGL() override;
    void paintGL() override;
    void resizeGL(int width, int height) override;

private:
    // Takes the player's picture for `time` when it differs from the one held.
    void takeFrame(double time);
    void releaseGl();

    std::optional<OutputTimeline> m_timeline;
    QPointer<PlaybackEngine> m_playback;
    QTimer m_refresh;

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
