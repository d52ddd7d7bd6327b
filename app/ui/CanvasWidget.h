#pragma once

#include "export/OutputTimeline.h"
#include "playback/PlayerFrame.h"

#include <QImage>
#include <QWidget>

#include <optional>

namespace marlowick {

class CanvasWindow;
class PlaybackEngine;

// The composited canvas: the project on output time, drawn through the same FrameCompositor as the
// export, at the widget's size in device pixels, from the player's picture of the engine's current time.
// A changed setting shows at the next refresh of the display (60 Hz) over a paused picture; a paused,
// unchanged canvas draws nothing. The canvas is clipped to a rounded rectangle of radius 8, with black
// outside its corners, and a transparent background shows a checkerboard of 10-point tiles. The last picture
// is kept until a new one comes; before the first, and where no GL 3.3 core context or compositor program
// can be had, it shows black.
//
// It draws in a native window of its own (CanvasWindow) that fills the widget, so that a frame puts only
// the canvas on screen. The canvas takes no pointer input: a click lands on this widget, and the focus goes
// where it would for any widget.
//
// Thread: the main thread only. The engine is not owned and must outlive the widget or be replaced first.
class CanvasWidget : public QWidget {
    Q_OBJECT
public:
    explicit CanvasWidget(QWidget* parent = nullptr);
    ~CanvasWidget() override;

    // What to draw; none draws black. Takes effect at the next refresh.
    void setTimeline(std::optional<OutputTimeline> timeline);
    const std::optional<OutputTimeline>& timeline() const;
    void setPlayback(PlaybackEngine* playback);

    // The player's picture the canvas holds, none before the first.
    const std::optional<PlayerFrame>& shownFrame() const;

    // Draws the present moment and returns it as drawn, in device pixels; a null image before the canvas
    // was first shown.
    QImage grabFramebuffer();

    CanvasWindow* canvasWindow() const { return m_window; }

signals:
    // A frame was put on screen.
    void frameSwapped();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    CanvasWindow* m_window; // owned by m_container
    QWidget* m_container;
};

} // namespace marlowick
