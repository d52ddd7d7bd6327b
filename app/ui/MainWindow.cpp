#include "ui/MainWindow.h"

#include "session/EditorSession.h"
#include "ui/Banners.h"
#include "ui/CanvasPreview.h"
#include "ui/ExportScreen.h"
#include "ui/Inspector.h"
#include "ui/InspectorScreenTab.h"
#include "ui/RecordScreen.h"
#include "ui/RecordingAside.h"
#include "ui/RecordingScreen.h"
#include "ui/ZoomEditor.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QIcon>
#include <QMenu>
#include <QMenuBar>
#include <QSettings>
#include <QSplitter>
#include <QStackedWidget>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

namespace marlowick {

namespace {

// The record screen's sound choices, kept between launches.
constexpr const char* systemAudioKey = "record/systemAudio";
constexpr const char* microphoneKey = "record/microphone";

QString presetLabel(const ExportPreset& preset) {
    QString label = QString::fromStdString(preset.name);
    if (preset.codec == ExportPreset::Codec::hevcWithAlpha ||
        preset.codec == ExportPreset::Codec::prores4444) {
        label += " (Alpha)";
    }
    return label;
}

} // namespace

MainWindow::MainWindow(EditorSession& session, QWidget* parent)
    : QMainWindow(parent)
    , m_session(session) {
    setWindowTitle("Marlowick");
    buildCommands();

    m_banners = new Banners(session, this);
    m_screens = new QStackedWidget(this);
    m_recordScreen = new RecordScreen(session, m_startRecording, m_screens);
    m_recordingScreen = new RecordingScreen(m_stopRecording, m_screens);
    m_editor = new CanvasPreview(session, m_screens);
    m_exportScreen = new ExportScreen(session, m_screens);
    m_aside = new RecordingAside(*this, *m_stopRecording, this);
    connect(m_aside, &RecordingAside::asideChanged, m_recordingScreen,
            &RecordingScreen::setHiddenFromCapture);
    for (QWidget* screen : {static_cast<QWidget*>(m_recordScreen), static_cast<QWidget*>(m_recordingScreen),
                            static_cast<QWidget*>(m_editor), static_cast<QWidget*>(m_exportScreen)}) {
        m_screens->addWidget(screen);
    }
    auto* central = new QWidget(this);
    auto* column = new QVBoxLayout(central);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(m_banners);
    // The inspector stands right of the screens, and shows only with the editor.
    m_inspector = new Inspector(session, central);
    // Its Screen tab shows the zoom list in place of its sections, and goes back on the list's back action.
    auto* zoomEditor = new ZoomEditor(session);
    m_inspector->setZoomEditor(zoomEditor);
    connect(zoomEditor, &ZoomEditor::backRequested, m_inspector, &Inspector::showSections);
    auto* split = new QSplitter(Qt::Horizontal, central);
    split->setChildrenCollapsible(false);
    split->addWidget(m_screens);
    split->addWidget(m_inspector);
    split->setStretchFactor(0, 1);
    column->addWidget(split, 1);
    setCentralWidget(central);
    buildToolbar();

    // Space, I and O act wherever the focus is in the window, a button or a slider of the inspector included;
    // a text field takes its keys first, so typing there stays typing.
    m_cutIn = new QAction(tr("Set Cut In"), this);
    m_cutIn->setShortcut(Qt::Key_I);
    m_cutOut = new QAction(tr("Set Cut Out"), this);
    m_cutOut->setShortcut(Qt::Key_O);
    auto* removeSelection = new QAction(QIcon::fromTheme("edit-cut"), tr("Remove Selection"), this);
    removeSelection->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Delete));
    connect(m_cutIn, &QAction::triggered, &session,
            [&session] { session.setSelectionStart(session.playback()->currentTime()); });
    connect(m_cutOut, &QAction::triggered, &session,
            [&session] { session.setSelectionEnd(session.playback()->currentTime()); });
    connect(removeSelection, &QAction::triggered, &session, &EditorSession::cutSelection);
    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    m_undo = new QAction(QIcon::fromTheme("edit-undo"), tr("Undo"), this);
    m_undo->setShortcut(QKeySequence::Undo);
    connect(m_undo, &QAction::triggered, &session, &EditorSession::undo);
    m_redo = new QAction(QIcon::fromTheme("edit-redo"), tr("Redo"), this);
    m_redo->setShortcuts({QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), QKeySequence(Qt::CTRL | Qt::Key_Y)});
    connect(m_redo, &QAction::triggered, &session, &EditorSession::redo);
    edit->addAction(m_undo);
    edit->addAction(m_redo);
    edit->addSeparator();
    edit->addAction(m_cutIn);
    edit->addAction(m_cutOut);
    edit->addAction(removeSelection);
    rememberRecordChoices();

    connect(m_inspector->screenTab(), &InspectorScreenTab::retakeRequested, this,
            [this] { startTake(true); });
    // A start that failed leaves the phase where it was: the window comes back with the error.
    connect(&session, &EditorSession::lastErrorChanged, this, [this] {
        if (m_session.lastError() && !m_aside->isWaiting() &&
            m_session.phase().kind() != SessionPhase::Kind::recording) {
            m_aside->end();
        }
    });
    connect(&session, &EditorSession::phaseChanged, this, &MainWindow::followPhase);
    connect(&session, &EditorSession::commandsChanged, this, &MainWindow::followCommands);
    connect(&session, &EditorSession::documentChanged, this, &MainWindow::fillExportMenu);
    connect(&session, &EditorSession::documentChanged, this, &MainWindow::followTitle);
    connect(&session, &EditorSession::isModifiedChanged, this, &MainWindow::followTitle);
    connect(&session, &EditorSession::historyChanged, this, &MainWindow::followCommands);
    connect(session.playback(), &PlaybackEngine::isPlayingChanged, this, &MainWindow::followPlaying);
    followPhase();
    fillExportMenu();
    followTitle();
    resize(1180, 760);
}

void MainWindow::buildCommands() {
    QMenu* file = menuBar()->addMenu(tr("&File"));
    m_startRecording = new QAction(QIcon::fromTheme("media-record"), tr("Start Recording"), this);
    m_startRecording->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_R));
    m_startRecording->setIconText(tr("Record"));
    m_startRecording->setToolTip(tr("Start recording (Ctrl+Shift+R)"));
    connect(m_startRecording, &QAction::triggered, this, [this] { startTake(false); });
    m_stopRecording = new QAction(QIcon::fromTheme("media-playback-stop"), tr("Stop Recording"), this);
    m_stopRecording->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Period));
    m_stopRecording->setToolTip(tr("Stop recording (Ctrl+.)"));
    // One stop per take: the screen's button, the menu, the tray and the global key all come here, and a
    // second stop would find no capture and lose the editor behind the error.
    connect(m_stopRecording, &QAction::triggered, &m_session, [this] {
        m_stopRecording->setEnabled(false);
        m_session.stopRecording();
    });
    m_stopRecording->setIconText(tr("Stop"));
    m_open = new QAction(QIcon::fromTheme("document-open"), tr("Open Project…"), this);
    m_open->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
    connect(m_open, &QAction::triggered, &m_session, &EditorSession::open);
    m_save = new QAction(QIcon::fromTheme("document-save"), tr("Save Project…"), this);
    m_save->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_S));
    connect(m_save, &QAction::triggered, &m_session, &EditorSession::save);
    auto* quit = new QAction(tr("Quit"), this);
    quit->setShortcut(QKeySequence::Quit);
    connect(quit, &QAction::triggered, this, &QWidget::close);
    file->addAction(m_startRecording);
    file->addAction(m_stopRecording);
    file->addSeparator();
    file->addAction(m_open);
    file->addAction(m_save);
    file->addSeparator();
    file->addAction(tr("Permissions…"), this, &MainWindow::permissionsRequested);
    file->addAction(quit);
}

void MainWindow::buildToolbar() {
    QToolBar* bar = addToolBar(tr("Editor"));
    bar->setMovable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    // The first button records, and reads Stop while a take runs.
    bar->addAction(m_startRecording);
    bar->addAction(m_stopRecording);
    m_play = new QAction(QIcon::fromTheme("media-playback-start"), tr("Play"), this);
    m_play->setToolTip(tr("Play or pause (Space)"));
    m_play->setShortcut(Qt::Key_Space);
    connect(m_play, &QAction::triggered, this, [this] {
        PlaybackEngine* playback = m_session.playback();
        if (playback->isPlaying()) {
            playback->pause();
        } else {
            playback->play();
        }
    });
    bar->addAction(m_play);
    m_save->setIconText(tr("Save"));
    m_save->setToolTip(tr("Save project (Ctrl+S)"));
    bar->addAction(m_save);
    m_export = new QToolButton(bar);
    m_export->setText(tr("Export"));
    QIcon exportIcon = QIcon::fromTheme("document-export");
    m_export->setIcon(exportIcon.isNull() ? QIcon::fromTheme("document-send") : exportIcon);
    m_export->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_export->setPopupMode(QToolButton::InstantPopup);
    m_export->setMenu(new QMenu(m_export));
    bar->addWidget(m_export);
}

void MainWindow::fillExportMenu() {
    QMenu* menu = m_export->menu();
    menu->clear();
    const auto add = [this, menu](const ExportPreset& preset) {
        QAction* entry = menu->addAction(presetLabel(preset));
        connect(entry, &QAction::triggered, &m_session, [this, preset] { m_session.exportMovie(preset); });
    };
    for (const ExportPreset& preset : m_session.matchingPresets()) {
        add(preset);
    }
    const auto others = m_session.mismatchedPresets();
    if (!others.empty()) {
        menu->addSeparator();
    }
    for (const ExportPreset& preset : others) {
        add(preset);
    }
}

QWidget* MainWindow::currentScreen() const {
    return m_screens->currentWidget();
}

void MainWindow::followPhase() {
    const SessionPhase& phase = m_session.phase();
    switch (phase.kind()) {
    case SessionPhase::Kind::idle:
        m_screens->setCurrentWidget(m_recordScreen);
        break;
    case SessionPhase::Kind::recording:
        m_screens->setCurrentWidget(m_recordingScreen);
        break;
    case SessionPhase::Kind::editing:
        m_screens->setCurrentWidget(m_editor);
        break;
    case SessionPhase::Kind::exporting:
        m_screens->setCurrentWidget(m_exportScreen);
        break;
    }
    m_inspector->setVisible(phase.kind() == SessionPhase::Kind::editing);
    followCommands();
    const bool recording = phase.kind() == SessionPhase::Kind::recording;
    m_stopRecording->setEnabled(recording);
    m_banners->followTelemetry();
    if (recording) {
        m_aside->begin();
    } else if (!m_aside->isWaiting()) {
        m_aside->end();
    }
}

void MainWindow::followCommands() {
    const SessionPhase& phase = m_session.phase();
    const bool editing = phase.kind() == SessionPhase::Kind::editing;
    for (QAction* action : {m_play, m_cutIn, m_cutOut}) {
        action->setEnabled(editing);
    }
    m_save->setEnabled(phase.needsDocument());
    m_export->setEnabled(m_session.canExport());
    m_open->setEnabled(m_session.canOpen());
    const bool recording = phase.kind() == SessionPhase::Kind::recording;
    m_startRecording->setVisible(!recording);
    m_startRecording->setEnabled(m_session.canRecord());
    m_stopRecording->setVisible(recording);
    // The history's names on its two commands, which are there only while editing.
    const auto name = [](const QString& verb, const std::optional<std::string>& step) {
        return step ? QString("%1 “%2”").arg(verb, QString::fromStdString(*step)) : verb;
    };
    m_undo->setText(name(tr("Undo"), m_session.undoName()));
    m_undo->setEnabled(editing && m_session.undoName().has_value());
    m_redo->setText(name(tr("Redo"), m_session.redoName()));
    m_redo->setEnabled(editing && m_session.redoName().has_value());
}

void MainWindow::followTitle() {
    const auto& document = m_session.document();
    setWindowTitle(document ? QString::fromStdString(document->project.name) + "[*] — Marlowick" : "Marlowick");
    setWindowModified(m_session.isModified());
}

void MainWindow::closeEvent(QCloseEvent* event) {
    // Unsaved work is never dropped without asking; Cancel keeps the window open.
    if (m_session.phase().kind() == SessionPhase::Kind::editing && !m_session.settleUnsavedChanges()) {
        event->ignore();
        return;
    }
    QMainWindow::closeEvent(event);
}

void MainWindow::startTake(bool retake) {
    // A new take replaces the open project, and a retake its take: unsaved work is saved or let go first.
    if (!m_session.canRecord() || !m_session.settleUnsavedChanges()) {
        return;
    }
    // The window leaves the screen first, so that the take's first frames don't show it; it comes back at
    // once if the session refuses the start meanwhile.
    m_aside->beginThen([this, retake] {
        const bool started = retake ? m_session.startRetake() : m_session.startRecording();
        if (!started) {
            m_aside->end();
        }
    });
}

void MainWindow::rememberRecordChoices() {
    const QSettings settings;
    m_session.setCapturesSystemAudio(settings.value(systemAudioKey, m_session.capturesSystemAudio()).toBool());
    m_session.setCapturesMicrophone(settings.value(microphoneKey, m_session.capturesMicrophone()).toBool());
    connect(&m_session, &EditorSession::capturesSystemAudioChanged, this,
            [](bool value) { QSettings().setValue(systemAudioKey, value); });
    connect(&m_session, &EditorSession::capturesMicrophoneChanged, this,
            [](bool value) { QSettings().setValue(microphoneKey, value); });
}

void MainWindow::followPlaying(bool playing) {
    m_play->setIcon(QIcon::fromTheme(playing ? "media-playback-pause" : "media-playback-start"));
    m_play->setText(playing ? tr("Pause") : tr("Play"));
}

} // namespace marlowick
