#include "ui/RecordScreen.h"

#include "session/EditorSession.h"

#include <QAction>
#include <QCheckBox>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace marlowick {

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
}

} // namespace marlowick
