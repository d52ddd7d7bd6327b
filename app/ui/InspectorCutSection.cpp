#include "ui/InspectorCutSection.h"

#include "session/EditorSession.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace marlowick {

namespace {

// A hand cut must remove more than this, as the session holds to.
constexpr double shortestCut = 0.05;

} // namespace

InspectorCutSection::InspectorCutSection(InspectorPage& page, EditorSession& session)
    : QObject(&page)
    , m_page(page)
    , m_session(session) {
    QVBoxLayout* rows = m_page.addSection(tr("Cut"));
    QHBoxLayout* marks = m_page.addLine(rows);
    auto* setIn = new QPushButton(tr("Set In"), rows->parentWidget());
    setIn->setToolTip(tr("Mark the start of the stretch to remove, at the playhead (I)"));
    auto* setOut = new QPushButton(tr("Set Out"), rows->parentWidget());
    setOut->setToolTip(tr("Mark the end, at the playhead (O)"));
    auto* remove = new QPushButton(tr("Remove"), rows->parentWidget());
    markDestructive(remove);
    auto* clear = new QPushButton(tr("Clear"), rows->parentWidget());
    for (QPushButton* button : {setIn, setOut, remove, clear}) {
        button->setAutoDefault(false);
        marks->addWidget(button);
    }
    QLabel* selection = m_page.addText(rows, {}, true);
    auto* cuts = new QWidget(rows->parentWidget());
    m_cutRows = new QVBoxLayout(cuts);
    m_cutRows->setContentsMargins(0, 0, 0, 0);
    rows->addWidget(cuts);

    connect(setIn, &QPushButton::clicked, this,
            [this] { m_session.setSelectionStart(m_session.playback()->currentTime()); });
    connect(setOut, &QPushButton::clicked, this,
            [this] { m_session.setSelectionEnd(m_session.playback()->currentTime()); });
    connect(remove, &QPushButton::clicked, &m_session, &EditorSession::cutSelection);
    connect(clear, &QPushButton::clicked, &m_session, &EditorSession::clearSelection);
    m_page.follow([this, remove, selection] {
        const auto& start = m_session.selectionStart();
        const auto& end = m_session.selectionEnd();
        remove->setEnabled(start && end && std::abs(*end - *start) > shortestCut);
        if (start && end) {
            const double from = std::min(*start, *end);
            const double to = std::max(*start, *end);
            selection->setText(format("Selected %.2fs – %.2fs (%.2fs)", from, to, to - from));
        } else if (start) {
            selection->setText(format("In at %.2fs — now move the playhead and Set Out.", *start));
        } else {
            selection->setText(tr("Drag the playhead on the rail under the video, press Set In, move it "
                                  "further along, press Set Out, then Remove."));
        }
        fillCuts();
    });
}

void InspectorCutSection::fillCuts() {
    const std::vector<Span> cuts = m_session.manualCuts();
    if (m_shownCuts == cuts) {
        return;
    }
    m_shownCuts = cuts;
    discardRows(m_cutRows);
    for (const Span& cut : cuts) {
        auto* row = new QWidget(m_cutRows->parentWidget());
        auto* line = new QHBoxLayout(row);
        line->setContentsMargins(0, 0, 0, 0);
        line->addWidget(new QLabel(format("%.2fs – %.2fs", cut.start, cut.end), row), 1);
        auto* restore = new QToolButton(row);
        restore->setIcon(themeIcon({"edit-undo"}));
        restore->setToolTip(tr("Restore this stretch"));
        restore->setAccessibleName(tr("Restore this stretch"));
        line->addWidget(restore);
        connect(restore, &QToolButton::clicked, &m_session,
                [this, id = cut.id] { m_session.restoreCut(id); });
        m_cutRows->addWidget(row);
        row->show();
    }
    if (!cuts.empty()) {
        auto* restoreAll = new QPushButton(tr("Restore All"), m_cutRows->parentWidget());
        restoreAll->setAutoDefault(false);
        connect(restoreAll, &QPushButton::clicked, &m_session, &EditorSession::restoreAllCuts);
        m_cutRows->addWidget(restoreAll);
        restoreAll->show();
    }
}

} // namespace marlowick
