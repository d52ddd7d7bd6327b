#include "ui/CaptionCueList.h"

#include "session/EditorSession.h"
#include "ui/CanvasPreview.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QIcon>
#include <QLineEdit>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace marlowick {

namespace {

QToolButton* rowButton(const char* icon, const QString& name, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setIcon(QIcon::fromTheme(icon));
    button->setToolTip(name);
    button->setAccessibleName(name);
    button->setAutoRaise(true);
    return button;
}

} // namespace

CaptionCueList::CaptionCueList(EditorSession& session, QWidget* parent)
    : QWidget(parent)
    , m_session(session)
    , m_rows(new QVBoxLayout(this)) {
    m_rows->setContentsMargins(0, 0, 0, 0);
    m_rows->setSpacing(2);
    connect(&session, &EditorSession::documentChanged, this, &CaptionCueList::follow);
    follow();
}

std::vector<QLineEdit*> CaptionCueList::fields() const {
    std::vector<QLineEdit*> fields;
    for (const Row& row : m_shown) {
        fields.push_back(row.text);
    }
    return fields;
}

QToolButton* CaptionCueList::button(std::size_t row, const QString& name) const {
    if (row >= m_shown.size()) {
        return nullptr;
    }
    for (QToolButton* each : m_shown[row].line->findChildren<QToolButton*>()) {
        if (each->accessibleName() == name) {
            return each;
        }
    }
    return nullptr;
}

void CaptionCueList::follow() {
    const auto& document = m_session.document();
    std::vector<CaptionTrack::Cue> cues;
    TimeMap trim = TimeMap::identity(0);
    if (document && document->project.captions) {
        cues = document->project.captions->cues;
        trim = document->project.effectiveTrim();
    }
    // The rows stay while the same cues stay in the same order, so that a field keeps its focus and what is
    // being typed in it; otherwise the list is made again.
    const bool sameCues = cues.size() == m_shown.size() &&
                          std::equal(cues.begin(), cues.end(), m_shown.begin(),
                                     [](const CaptionTrack::Cue& cue, const Row& row) { return cue.id == row.cue; });
    if (!sameCues) {
        for (Row& row : m_shown) {
            row.line->hide();
            m_rows->removeWidget(row.line);
            // Later: the row's own button may be what brought us here.
            row.line->deleteLater();
        }
        m_shown.clear();
        const QFont digits = QFontDatabase::systemFont(QFontDatabase::FixedFont);
        for (const CaptionTrack::Cue& cue : cues) {
            Row row{cue.id, new QWidget(this)};
            auto* line = new QHBoxLayout(row.line);
            line->setContentsMargins(0, 0, 0, 0);
            line->setSpacing(2);
            row.time = new QToolButton(row.line);
            row.time->setFont(digits);
            row.time->setAutoRaise(true);
            row.time->setToolTip(tr("Move the playhead here"));
            row.time->setAccessibleName(tr("Move the playhead here"));
            row.text = new QLineEdit(row.line);
            row.text->setAccessibleName(tr("Caption text"));
            auto* split = rowButton("edit-cut", tr("Split at the playhead"), row.line);
            auto* merge = rowButton("go-down", tr("Merge with the next"), row.line);
            auto* remove = rowButton("edit-delete", tr("Delete"), row.line);
            line->addWidget(row.time);
            line->addWidget(row.text, 1);
            line->addWidget(split);
            line->addWidget(merge);
            line->addWidget(remove);
            const Uuid id = cue.id;
            connect(row.time, &QToolButton::clicked, this, [this, id] {
                const auto& current = m_session.document();
                if (!current || !current->project.captions) {
                    return;
                }
                for (const CaptionTrack::Cue& each : current->project.captions->cues) {
                    if (each.id == id) {
                        m_session.playback()->seek(current->project.effectiveTrim().outputTimeForSource(each.start()));
                    }
                }
            });
            connect(row.text, &QLineEdit::editingFinished, this, [this, id, field = row.text] {
                m_session.setCaptionText(id, field->text().toStdString());
            });
            connect(split, &QToolButton::clicked, this, [this, id] {
                if (const auto& current = m_session.document()) {
                    const double playhead = m_session.playback()->currentTime();
                    m_session.splitCaption(id, current->project.effectiveTrim().sourceTimeForOutput(playhead));
                }
            });
            connect(merge, &QToolButton::clicked, this, [this, id] { m_session.mergeCaptionWithNext(id); });
            connect(remove, &QToolButton::clicked, this, [this, id] { m_session.deleteCaption(id); });
            m_rows->addWidget(row.line);
            row.line->show();
            m_shown.push_back(row);
        }
    }
    for (std::size_t i = 0; i < cues.size(); ++i) {
        Row& row = m_shown[i];
        row.time->setText(
            QString::fromStdString(CanvasPreview::timecode(trim.outputTimeForSource(cues[i].start()))));
        const QString text = QString::fromStdString(cues[i].text());
        // A field being typed in keeps what the person typed until they leave it.
        if (!row.text->hasFocus() && row.text->text() != text) {
            row.text->setText(text);
        }
        if (QToolButton* merge = button(i, tr("Merge with the next"))) {
            merge->setEnabled(i + 1 < cues.size());
        }
    }
}

} // namespace marlowick
