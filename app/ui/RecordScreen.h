#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QPushButton;

namespace marlowick {

class EditorSession;

// The screen of the idle phase: what the application does, the monitor and the sound sources to capture
// (bound to the session's choices), the button that starts a recording and one that opens a project.
//
// The monitors are listed anew whenever Qt's screens change; the one picked last is remembered in the
// settings ("recordedMonitor") and picked again at the next start while it is there. Where the session
// offers no monitors (the desktop's dialog picks the screen), the list is hidden.
//
// Thread: the main thread only. The session is not owned and outlives the screen.
class RecordScreen : public QWidget {
    Q_OBJECT
public:
    RecordScreen(EditorSession& session, QAction* startRecording, QWidget* parent = nullptr);

private:
    // Lists the session's monitors, keeping the session's pick where it is still there and falling back on
    // the primary one otherwise.
    void listMonitors();

    EditorSession& m_session;
    QWidget* m_monitorRow;
    QComboBox* m_monitor;
    QCheckBox* m_systemAudio;
    QCheckBox* m_microphone;
};

} // namespace marlowick
