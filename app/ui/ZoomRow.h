#pragma once

#include "model/CameraTrack.h"

#include <QFrame>

#include <functional>

class QDoubleSpinBox;
class QLabel;
class QToolButton;

namespace marlowick {

class EditorSession;

// One beat in the zoom editor's list: a dot (orange once a person has edited the beat), its range and its
// depth, a button that moves the playhead to its start and one that deletes it. A tap on the row selects
// the beat; the selected row opens with exact fields for start, end, depth and the two ramps, each of which
// writes the beat through the track's update, so an edited beat becomes the person's own.
//
// The row shows the beat on output time, on the edited movie's timeline, as the rail does; a written beat
// goes back onto source time first.
//
// Thread: the main thread only. The session is not owned and outlives the row.
class ZoomRow : public QFrame {
    Q_OBJECT
public:
    explicit ZoomRow(EditorSession& session, QWidget* parent = nullptr);

    // Shows `beat` (on output time), the `index`-th of the list, on a timeline `duration` seconds long,
    // opened when `isSelected`. A beat a cut hides is marked so, and its times can't be edited there.
    void showBeat(const ZoomBeat& beat, int index, double duration, bool isSelected, bool hiddenByCut = false);
    const ZoomBeat& beat() const { return m_beat; }
    bool isSelected() const { return m_isSelected; }

protected:
    void mousePressEvent(QMouseEvent* event) override;

private:
    // Writes a copy of the shown beat with `change` made to it.
    void write(const std::function<void(ZoomBeat&)>& change);

    EditorSession& m_session;
    ZoomBeat m_beat;
    double m_duration = 0;
    bool m_isSelected = false;

    QWidget* m_dot;
    QLabel* m_range;
    QLabel* m_depth;
    QWidget* m_details;
    QDoubleSpinBox* m_start;
    QDoubleSpinBox* m_end;
    QDoubleSpinBox* m_scale;
    QDoubleSpinBox* m_rampIn;
    QDoubleSpinBox* m_rampOut;
};

} // namespace marlowick
