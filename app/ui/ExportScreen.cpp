#include "ui/ExportScreen.h"

#include "session/EditorSession.h"

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
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
    // Escape stops the export too: the earlier file of that name stays as it was.
    m_cancel = new QPushButton(tr("Cancel"), this);
    m_cancel->setShortcut(Qt::Key_Escape);
    m_cancel->setToolTip(tr("Stop the export (Esc)"));
    connect(m_cancel, &QPushButton::clicked, &session, &EditorSession::cancelExport);

    auto* column = new QVBoxLayout(this);
    column->addStretch(1);
    column->addWidget(title, 0, Qt::AlignHCenter);
    column->addWidget(m_progress, 0, Qt::AlignHCenter);
    column->addWidget(m_cancel, 0, Qt::AlignHCenter);
    column->addStretch(1);

    const auto follow = [this](const SessionPhase& phase) {
        m_progress->setValue(static_cast<int>(std::floor(phase.progress() * 100)));
    };
    connect(&session, &EditorSession::phaseChanged, this, follow);
    follow(session.phase());
}

} // namespace marlowick
