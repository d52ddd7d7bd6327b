#include "ui/ExportScreen.h"

#include "session/EditorSession.h"

#include <QLabel>
#include <QProgressBar>
#include <QVBoxLayout>

#include <cmath>

namespace marlowick {

ExportScreen::ExportScreen(EditorSession& session, QWidget* parent)
    : QWidget(parent) {
    auto* title = new QLabel(tr("Exporting…"), this);
    m_progress = new QProgressBar(this);
    m_progress->setRange(0, 100);
    m_progress->setFormat("%p%");
    m_progress->setMinimumWidth(360);

    auto* column = new QVBoxLayout(this);
    column->addStretch(1);
    column->addWidget(title, 0, Qt::AlignHCenter);
    column->addWidget(m_progress, 0, Qt::AlignHCenter);
    column->addStretch(1);

    const auto follow = [this](const SessionPhase& phase) {
        m_progress->setValue(static_cast<int>(std::floor(phase.progress() * 100)));
    };
    connect(&session, &EditorSession::phaseChanged, this, follow);
    follow(session.phase());
}

} // namespace marlowick
