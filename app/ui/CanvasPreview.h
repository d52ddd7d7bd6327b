#pragma once

#include <QWidget>

#include <string>

class QLabel;
class QSlider;
class QToolButton;

namespace marlowick {

class CanvasWidget;
class EditorSession;

// The centre of the editor: the canvas at the project's shape on black, and under it the transport (back
// five seconds, play or pause, forward five seconds, the playhead's timecode, a slider that seeks, the
// duration). The canvas draws the open project moved onto output time, on the engine's clock; it follows
// the session's document. The space bar plays and pauses while the focus is inside the preview.
//
// Thread: the main thread only. The session is not owned and outlives the preview.
class CanvasPreview : public QWidget {
    Q_OBJECT
public:
    explicit CanvasPreview(EditorSession& session, QWidget* parent = nullptr);

    CanvasWidget* canvas() const { return m_canvas; }

    // A time as "m:ss.hh"; a negative time reads as 0.
    static std::string timecode(double seconds);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void followDocument();
    void followPlayhead();
    void togglePlaying();
    // Puts the canvas at the project's shape, as large as the area above the transport allows.
    void placeCanvas();

    EditorSession& m_session;
    QWidget* m_stage;
    CanvasWidget* m_canvas;
    QToolButton* m_play;
    QLabel* m_time;
    QSlider* m_playhead;
    QLabel* m_duration;
    double m_aspect = 16.0 / 9.0;
};

} // namespace marlowick
