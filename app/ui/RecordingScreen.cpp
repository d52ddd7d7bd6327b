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
    // "Marlowick is hidden from the capture." belongs here once the window takes itself out of the take;
    // until then it would not be true, and the screen doesn't say it.
    auto* stop = new QPushButton(QIcon::fromTheme("media-playback-stop"), tr("Stop"), this);
    connect(stop, &QPushButton::clicked, stopRecording, &QAction::trigger);

    auto* column = new QVBoxLayout(this);
    column->addStretch(1);
    column->addWidget(symbol, 0, Qt::AlignHCenter);
    column->addWidget(word, 0, Qt::AlignHCenter);
    column->addSpacing(16);
    column->addWidget(stop, 0, Qt::AlignHCenter);
    column->addStretch(1);
}

} // namespace marlowick
