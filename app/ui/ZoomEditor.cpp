#include "ui/ZoomEditor.h"

#include "session/EditorSession.h"
#include "ui/ZoomClock.h"
#include "ui/ZoomRow.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QScrollArea>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace marlowick {

namespace {

QToolButton* textButton(const QString& text, const QString& icon, const QString& help, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setText(text);
    if (!icon.isEmpty()) {
        button->setIcon(QIcon::fromTheme(icon));
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    }
    button->setToolTip(help);
    button->setAutoRaise(false);
    return button;
}

QFont scaled(QFont font, double factor, bool bold = false) {
    font.setPointSizeF(font.pointSizeF() * factor);
    font.setBold(bold);
    return font;
}

} // namespace

ZoomEditor::ZoomEditor(EditorSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session) {
    const QString addHelp = tr("Add a zoom at the playhead");
    const QString regenerateHelp = tr("Re-run the director. Zooms you have edited are kept.");

    auto* back = new QToolButton(this);
    back->setText(tr("Screen"));
    back->setIcon(QIcon::fromTheme("go-previous"));
    back->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    back->setAutoRaise(true);
    m_count = new QLabel(this);
    m_count->setFont(scaled(font(), 1.0, true));
    auto* add = textButton(tr("Add Here"), "list-add", addHelp, this);
    auto* regenerate = textButton(tr("Regenerate"), "", regenerateHelp, this);
    auto* header = new QHBoxLayout;
    header->addWidget(back);
    header->addWidget(m_count);
    header->addStretch(1);
    header->addWidget(add);
    header->addWidget(regenerate);

    // Without beats: what the list is for, and the two ways to fill it.
    m_emptyPage = new QWidget(this);
    auto* emptyIcon = new QLabel(m_emptyPage);
    emptyIcon->setPixmap(QIcon::fromTheme("zoom-in").pixmap(40, 40));
    emptyIcon->setAlignment(Qt::AlignCenter);
    auto* emptyTitle = new QLabel(tr("No zooms"), m_emptyPage);
    emptyTitle->setFont(scaled(font(), 1.15, true));
    emptyTitle->setAlignment(Qt::AlignCenter);
    auto* emptyText = new QLabel(tr("Add one, or let the director find them from your clicks."), m_emptyPage);
    emptyText->setWordWrap(true);
    emptyText->setAlignment(Qt::AlignCenter);
    emptyText->setForegroundRole(QPalette::PlaceholderText);
    auto* addFirst = textButton(tr("Add Zoom"), "", addHelp, m_emptyPage);
    auto* regenerateFirst = textButton(tr("Regenerate"), "", regenerateHelp, m_emptyPage);
    auto* emptyButtons = new QHBoxLayout;
    emptyButtons->addStretch(1);
    emptyButtons->addWidget(addFirst);
    emptyButtons->addWidget(regenerateFirst);
    emptyButtons->addStretch(1);
    auto* empty = new QVBoxLayout(m_emptyPage);
    empty->addStretch(1);
    empty->addWidget(emptyIcon);
    empty->addWidget(emptyTitle);
    empty->addWidget(emptyText);
    empty->addLayout(emptyButtons);
    empty->addStretch(2);

    m_listPage = new QWidget;
    m_list = new QVBoxLayout(m_listPage);
    m_list->setContentsMargins(0, 0, 0, 0);
    m_list->setSpacing(4);
    m_list->addStretch(1);
    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidget(m_listPage);

    m_pages = new QStackedWidget(this);
    m_pages->addWidget(m_emptyPage);
    m_pages->addWidget(scroll);

    auto* footer = new QLabel(tr("Orange means you edited it, and it survives Regenerate."), this);
    footer->setWordWrap(true);
    footer->setFont(scaled(font(), 0.85));
    footer->setForegroundRole(QPalette::PlaceholderText);

    auto* column = new QVBoxLayout(this);
    column->addLayout(header);
    column->addWidget(m_pages, 1);
    column->addWidget(footer);

    connect(back, &QToolButton::clicked, this, &ZoomEditor::backRequested);
    connect(add, &QToolButton::clicked, this, &ZoomEditor::addAtPlayhead);
    connect(addFirst, &QToolButton::clicked, this, &ZoomEditor::addAtPlayhead);
    connect(regenerate, &QToolButton::clicked, &session, &EditorSession::regenerateZoom);
    connect(regenerateFirst, &QToolButton::clicked, &session, &EditorSession::regenerateZoom);
    connect(&session, &EditorSession::documentChanged, this, &ZoomEditor::follow);
    connect(&session, &EditorSession::selectedBeatChanged, this, &ZoomEditor::follow);
    follow();
}

void ZoomEditor::addAtPlayhead() {
    if (const auto& document = m_session.document()) {
        // The playhead is on output time; the beat starts at the source time that plays there.
        m_session.addBeat(ZoomClock(document->project).sourceTime(m_session.playback()->currentTime()));
    }
}

void ZoomEditor::follow() {
    std::vector<ZoomClock::Listed> beats;
    double duration = 0;
    if (const auto& document = m_session.document()) {
        const ZoomClock clock(document->project);
        beats = clock.listed();
        duration = clock.duration();
    }
    m_count->setText(tr("%1 zooms").arg(static_cast<long long>(beats.size())));
    m_pages->setCurrentIndex(beats.empty() ? 0 : 1);

    // The rows stay while the same beats stay in the same order, so that a field keeps its focus across
    // the edit it writes; otherwise the list is made again.
    const bool sameBeats =
        beats.size() == m_rows.size() &&
        std::equal(beats.begin(), beats.end(), m_rows.begin(),
                   [](const ZoomClock::Listed& listed, const ZoomRow* row) {
                       return listed.beat.id == row->beat().id;
                   });
    if (!sameBeats) {
        for (ZoomRow* row : m_rows) {
            // Later: the row's own button may be what brought us here.
            row->hide();
            m_list->removeWidget(row);
            row->deleteLater();
        }
        m_rows.clear();
        for (std::size_t i = 0; i < beats.size(); ++i) {
            auto* row = new ZoomRow(m_session, m_listPage);
            m_list->insertWidget(static_cast<int>(i), row);
            // At once, not at the layout's next turn, so that the list is whole when this returns.
            row->show();
            m_rows.push_back(row);
        }
    }
    const auto& selected = m_session.selectedBeat();
    for (std::size_t i = 0; i < beats.size(); ++i) {
        const ZoomBeat& beat = beats[i].beat;
        m_rows[i]->showBeat(beat, static_cast<int>(i), duration, selected && *selected == beat.id,
                            beats[i].hiddenByCut);
    }
}

} // namespace marlowick
