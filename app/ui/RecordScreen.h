#pragma once

#include <QWidget>

class QCheckBox;
class QPushButton;

namespace marlowick {

class EditorSession;

// The screen of the idle phase: what the application does, the sound sources to capture (bound to the
// session's choices), the button that starts a recording and one that opens a project.
//
// Thread: the main thread only. The session is not owned and outlives the screen.
class RecordScreen : public QWidget {
    Q_OBJECT
public:
    RecordScreen(EditorSession& session, QAction* startRecording, QWidget* parent = nullptr);

private:
    EditorSession& m_session;
    QCheckBox* m_systemAudio;
    QCheckBox* m_microphone;
};

} // namespace marlowick
