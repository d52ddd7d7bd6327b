#include "ui/RecordScreen.h"

#include "session/EditorSession.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QVBoxLayout>

#include <algorithm>

namespace marlowick {

namespace {

constexpr const char* recordedMonitorKey = "recordedMonitor";

} // namespace

RecordScreen::RecordScreen(EditorSession& session, QAction* startRecording, QWidget* parent)
    : QWidget(parent)
    , m_session(session) {
    auto* symbol = new QLabel(this);
    symbol->setPixmap(QIcon::fromTheme("media-record").pixmap(64, 64));
    auto* heading = new QLabel(tr("Record your screen"), this);
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.6);
    headingFont.setBold(true);
    heading->setFont(headingFont);
    auto* text = new QLabel(tr("Marlowick adds the camera moves, cursor and framing.\nEverything renders on "
                               "this computer."),
                            this);
    text->setAlignment(Qt::AlignCenter);

    m_monitorRow = new QWidget(this);
    auto* monitorLabel = new QLabel(tr("Monitor"), m_monitorRow);
    m_monitor = new QComboBox(m_monitorRow);
    m_monitor->setAccessibleName(tr("Monitor to record"));
    monitorLabel->setBuddy(m_monitor);
    auto* monitorLine = new QHBoxLayout(m_monitorRow);
    monitorLine->setContentsMargins(0, 0, 0, 0);
    monitorLine->addWidget(monitorLabel);
    monitorLine->addWidget(m_monitor);

    m_systemAudio = new QCheckBox(tr("System audio"), this);
    m_systemAudio->setChecked(session.capturesSystemAudio());
    m_microphone = new QCheckBox(tr("Microphone"), this);
    m_microphone->setChecked(session.capturesMicrophone());
    auto* microphoneNote = new QLabel(tr("Recorded to its own track"), this);
    QFont noteFont = microphoneNote->font();
    noteFont.setPointSizeF(noteFont.pointSizeF() * 0.85);
    microphoneNote->setFont(noteFont);
    microphoneNote->setForegroundRole(QPalette::PlaceholderText);

    auto* start = new QPushButton(QIcon::fromTheme("media-record"), tr("Start Recording"), this);
    start->setDefault(true);
    start->setEnabled(startRecording->isEnabled());
    connect(startRecording, &QAction::changed, start,
            [start, startRecording] { start->setEnabled(startRecording->isEnabled()); });
    connect(start, &QPushButton::clicked, startRecording, &QAction::trigger);
    auto* hint = new QLabel(startRecording->shortcut().toString(QKeySequence::NativeText), this);
    hint->setFont(noteFont);
    hint->setForegroundRole(QPalette::PlaceholderText);
    auto* open = new QPushButton(tr("Open Project…"), this);
    connect(open, &QPushButton::clicked, &session, &EditorSession::open);

    auto* column = new QVBoxLayout(this);
    column->addStretch(1);
    for (QWidget* item :
         {static_cast<QWidget*>(symbol), static_cast<QWidget*>(heading), static_cast<QWidget*>(text)}) {
        column->addWidget(item, 0, Qt::AlignHCenter);
    }
    column->addSpacing(16);
    column->addWidget(m_monitorRow, 0, Qt::AlignHCenter);
    column->addWidget(m_systemAudio, 0, Qt::AlignHCenter);
    column->addWidget(m_microphone, 0, Qt::AlignHCenter);
    column->addWidget(microphoneNote, 0, Qt::AlignHCenter);
    column->addSpacing(16);
    column->addWidget(start, 0, Qt::AlignHCenter);
    column->addWidget(hint, 0, Qt::AlignHCenter);
    column->addSpacing(8);
    column->addWidget(open, 0, Qt::AlignHCenter);
    column->addStretch(1);

    connect(m_systemAudio, &QCheckBox::toggled, &session, &EditorSession::setCapturesSystemAudio);
    connect(m_microphone, &QCheckBox::toggled, &session, &EditorSession::setCapturesMicrophone);
    connect(&session, &EditorSession::capturesSystemAudioChanged, m_systemAudio, &QCheckBox::setChecked);
    connect(&session, &EditorSession::capturesMicrophoneChanged, m_microphone, &QCheckBox::setChecked);

    // The pick of an earlier start, where that monitor is still there.
    const std::string remembered = QSettings().value(recordedMonitorKey).toString().toStdString();
    for (const ScreenMonitor& monitor : session.monitors()) {
        if (monitor.name == remembered) {
            session.setRecordedMonitor(remembered);
        }
    }
    connect(&session, &EditorSession::recordedMonitorChanged, this, &RecordScreen::listMonitors);
    listMonitors();
    connect(m_monitor, &QComboBox::activated, this, [this](int index) {
        const QString name = m_monitor->itemData(index).toString();
        QSettings().setValue(recordedMonitorKey, name);
        m_session.setRecordedMonitor(name.toStdString());
    });
    for (const auto signal : {&QGuiApplication::screenAdded, &QGuiApplication::screenRemoved,
                              &QGuiApplication::primaryScreenChanged}) {
        connect(qGuiApp, signal, this, &RecordScreen::listMonitors);
    }
}

void RecordScreen::listMonitors() {
    const std::vector<ScreenMonitor> monitors = m_session.monitors();
    const auto picked = std::find_if(monitors.begin(), monitors.end(), [&](const ScreenMonitor& m) {
        return m.name == m_session.recordedMonitor();
    });
    if (picked == monitors.end() && !m_session.recordedMonitor().empty()) {
        m_session.setRecordedMonitor({}); // gone: the primary one instead, listed on the change
        return;
    }
    m_monitor->clear();
    for (const ScreenMonitor& monitor : monitors) {
        const QString size = tr("%1 × %2").arg(monitor.width).arg(monitor.height);
        m_monitor->addItem(monitor.primary
                               ? tr("%1 — %2, primary").arg(QString::fromStdString(monitor.name), size)
                               : tr("%1 — %2").arg(QString::fromStdString(monitor.name), size),
                           QString::fromStdString(monitor.name));
        if (picked == monitors.end() ? monitor.primary : monitor.name == picked->name) {
            m_monitor->setCurrentIndex(m_monitor->count() - 1);
        }
    }
    m_monitorRow->setVisible(!monitors.empty());
}

} // namespace marlowick
