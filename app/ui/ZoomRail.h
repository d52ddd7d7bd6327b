#pragma once

#include "model/CameraTrack.h"
#include "model/Uuid.h"

#include <QPoint>
#include <QWidget>

#include <optional>
#include <vector>

namespace marlowick {

class EditorSession;

// The timeline under the canvas: a strip over the edited movie's whole length with the waveform, one
// block for each beat (its height shows the beat's depth; orange once a person has edited it), the
// playhead, and the marks of a cut in progress. A block is dragged by its body, resized at its two edge
// handles, selected with a tap and deleted with the delete key; a tap on the strip moves the playhead, and
// the context menu adds a beat at the playhead.
//
// The rail owns no data: it shows the track it is given and reports through its signals. During a drag it
// alone holds the beat as it stands, and the track isn't touched, so that one drag makes one edit, reported
// once when the pointer is let go. Times here are on whatever clock the track is given on; follow() gives
// it the session's project on output time and writes the edits back onto source time.
//
// Thread: the main thread only.
class ZoomRail : public QWidget {
    Q_OBJECT
public:
    // The part of a block that a gesture holds.
    enum class Handle { body, leading, trailing };

    struct Dragging {
        Uuid id;
        ZoomBeat beat;
    };

    // The strip's height, and the width of a block's edge handles.
    static constexpr int stripHeight = 62;
    static constexpr int handleWidth = 9;

    explicit ZoomRail(QWidget* parent = nullptr);

    // Binds the rail to the session: it shows the open project's beats, cut marks and waveform on output
    // time and the playhead, and its edits, deletions, additions, taps and selection go to the session, an
    // edited beat written through the track's update after its times are moved back onto source time. The
    // session is not owned and outlives the rail.
    void follow(EditorSession& session);

    const CameraTrack& track() const { return m_track; }
    void setTrack(CameraTrack track);
    double duration() const { return m_duration; }
    void setDuration(double seconds);
    double time() const { return m_time; }
    void setTime(double seconds);
    const std::optional<Uuid>& selection() const { return m_selection; }
    // Sets the selection without reporting it: it comes from whoever holds it.
    void setSelection(std::optional<Uuid> id);
    void setCutMarks(std::optional<double> cutIn, std::optional<double> cutOut);
    void setWaveform(std::vector<float> peaks);
    const std::optional<Dragging>& dragging() const { return m_dragging; }

    // The track's beats, the dragged one as it stands during a drag.
    std::vector<ZoomBeat> displayedBeats() const;
    // Where a time lies across the width, 0 to 1; 0 while the strip stands for no time.
    double fraction(double seconds) const;

signals:
    // A tap on the strip, away from the blocks: move the playhead there.
    void scrubbed(double time);
    // A drag has ended: write this beat.
    void beatEdited(const marlowick::ZoomBeat& beat);
    void deleteRequested(marlowick::Uuid id);
    // "Add Zoom Here": add a beat at the playhead.
    void addRequested(double time);
    // A tap or a drag selected a beat, or a tap on the strip cleared the selection.
    void selectionChanged(std::optional<marlowick::Uuid> id);

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    struct Hit {
        Uuid id;
        Handle handle;
    };

    QRectF block(const ZoomBeat& beat) const;
    // The topmost block under `point` and the part of it there; a handle comes before the body.
    std::optional<Hit> hitAt(QPointF point) const;
    // The beat that a drag of `handle` by `dx` pixels makes of the stored beat `id`.
    std::optional<ZoomBeat> drag(Uuid id, Handle handle, double dx) const;
    void select(std::optional<Uuid> id);

    CameraTrack m_track;
    double m_duration = 0;
    double m_time = 0;
    std::optional<Uuid> m_selection;
    std::optional<double> m_cutIn;
    std::optional<double> m_cutOut;
    std::vector<float> m_waveform;
    std::optional<Dragging> m_dragging;

    // The gesture under way, from a left press to its release.
    bool m_pressed = false;
    QPointF m_pressAt;
    std::optional<Hit> m_pressHit;
    // The pointer has gone 2 pixels or more from the press: a drag, no longer a tap.
    bool m_moved = false;
};

} // namespace marlowick
