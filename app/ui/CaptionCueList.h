#pragma once

#include "model/Uuid.h"

#include <QWidget>

#include <vector>

class QLineEdit;
class QToolButton;
class QVBoxLayout;

namespace marlowick {

class EditorSession;

// The cues of the project's captions, one row each, for a person to correct what the recogniser misheard:
// the cue's time on the finished video (a click moves the playhead there), its text in a field that writes
// the correction when the field is left or Return is pressed, and buttons to split the cue at the playhead,
// merge it with the next one and delete it. Every change is one edit of the session.
//
// Thread: the main thread only. The session is not owned and outlives the list.
class CaptionCueList : public QWidget {
    Q_OBJECT
public:
    explicit CaptionCueList(EditorSession& session, QWidget* parent = nullptr);

    // The rows' text fields, in cue order.
    std::vector<QLineEdit*> fields() const;
    // The row's button whose accessible name is `name` ("Split at the playhead", "Merge with the next",
    // "Delete", or the time button "Move the playhead here"), or null.
    QToolButton* button(std::size_t row, const QString& name) const;

private:
    struct Row {
        Uuid cue;
        QWidget* line = nullptr;
        QToolButton* time = nullptr;
        QLineEdit* text = nullptr;
    };

    void follow();

    EditorSession& m_session;
    QVBoxLayout* m_rows;
    std::vector<Row> m_shown;
};

} // namespace marlowick
