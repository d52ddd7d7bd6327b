#pragma once

#include <QMainWindow>

class QAction;
class QStackedWidget;
class QToolButton;

namespace marlowick {

class Banners;
class CanvasPreview;
class EditorSession;
class ExportScreen;
class Inspector;
class RecordScreen;
class RecordingAside;
class RecordingScreen;

// The one window over the session: the menus and the toolbar with the shell's commands, the banners, and
// one screen for each phase (record, recording, editor, export), replaced as soon as the phase changes.
// Every control calls an operation of the session or of its playback engine.
//
// Thread: the main thread only. The session is not owned and outlives the window.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(EditorSession& session, QWidget* parent = nullptr);

    // The screen the phase shows now.
    QWidget* currentScreen() const;
    RecordScreen* recordScreen() const { return m_recordScreen; }
    RecordingScreen* recordingScreen() const { return m_recordingScreen; }
    CanvasPreview* editor() const { return m_editor; }
    ExportScreen* exportScreen() const { return m_exportScreen; }
    // The side panel, right of the editor's preview, shown while editing.
    Inspector* inspector() const { return m_inspector; }
    Banners* banners() const { return m_banners; }
    RecordingAside* recordingAside() const { return m_aside; }

    QAction* startRecordingAction() const { return m_startRecording; }
    QAction* stopRecordingAction() const { return m_stopRecording; }
    QAction* openAction() const { return m_open; }
    QAction* undoAction() const { return m_undo; }
    QAction* redoAction() const { return m_redo; }

protected:
    // Asks before closing over unsaved changes.
    void closeEvent(QCloseEvent* event) override;

signals:
    // The "Permissions…" command: the application opens the onboarding sheet.
    void permissionsRequested();

private:
    void buildCommands();
    void buildToolbar();
    void followPhase();
    // Enables the commands the session allows now; the stop keeps its own state, since one stop is taken
    // per take.
    void followCommands();
    // The title: the project's name and "Marlowick", marked while there are unsaved changes.
    void followTitle();
    // Starts a take, or a retake of the open project, once the window is out of the picture.
    void startTake(bool retake);
    void followPlaying(bool playing);
    void fillExportMenu();
    // The record screen's sound choices start as they were last left, and are kept as they change.
    void rememberRecordChoices();

    EditorSession& m_session;
    QAction* m_startRecording = nullptr;
    QAction* m_stopRecording = nullptr;
    QAction* m_play = nullptr;
    QAction* m_open = nullptr;
    QAction* m_cutIn = nullptr;
    QAction* m_cutOut = nullptr;
    QAction* m_undo = nullptr;
    QAction* m_redo = nullptr;
    QAction* m_save = nullptr;
    QToolButton* m_export = nullptr;
    Banners* m_banners = nullptr;
    RecordingAside* m_aside = nullptr;
    QStackedWidget* m_screens = nullptr;
    RecordScreen* m_recordScreen = nullptr;
    RecordingScreen* m_recordingScreen = nullptr;
    CanvasPreview* m_editor = nullptr;
    ExportScreen* m_exportScreen = nullptr;
    Inspector* m_inspector = nullptr;
};

} // namespace marlowick
