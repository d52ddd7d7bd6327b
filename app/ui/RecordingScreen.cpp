#include "ui/RecordingScreen.h"

#include <QAction>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace marlowick {

RecordingScreen::RecordingScreen(QAction* stopRecording, QWidget* parent)
    : QWidget(parent) {
    auto* symbol = new QLabel(this);
    symbol->setPixmap(QIcon::fromTheme("media-record").pixmap(64, 64));
    auto* word = new QLabel(tr("Recording"), this);
    QFont wordFont = word->font();
    wordFont.setPointSizeF(wordFont.pointSizeF() * 1.6);
    wordFont.setBold(true);
    word->setFont(wordFont);
    // Said only while it is true: the window stays in the picture where nothing else could stop the take.
    m_hiddenLine = new QLabel(tr("Marlowick is hidden from the capture."), this);
    m_hiddenLine->setForegroundRole(QPalette::PlaceholderText);
    m_hiddenLine->hide();
    auto* stop = new QPushButton(QIcon::fromTheme("media-playback-stop"), tr("Stop"), this);
    connect(stop, &QPushButton::clicked, stopRecording, &QAction::trigger);

    auto* column = new QVBoxLayout(this);
    column->addStretch(1);
    column->addWidget(symbol, 0, Qt::AlignHCenter);
    column->addWidget(word, 0, Qt::AlignHCenter);
    column->addWidget(m_hiddenLine, 0, Qt::AlignHCenter);
    column->addSpacing(16);
    column->addWidget(stop, 0, Qt::AlignHCenter);
    column->addStretch(1);
}

void RecordingScreen::setHiddenFromCapture(bool hidden) {
    m_hiddenLine->setVisible(hidden);
}

} // namespace marlowick
