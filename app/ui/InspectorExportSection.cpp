#include "ui/InspectorExportSection.h"

#include "session/EditorSession.h"

#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

#include <cmath>

namespace marlowick {

namespace {

QString presetSize(const ExportPreset& preset) {
    return format("%lld×%lld", static_cast<long long>(std::lround(preset.size.width)),
                  static_cast<long long>(std::lround(preset.size.height)));
}

bool preservesAlpha(const ExportPreset& preset) {
    return preset.codec == ExportPreset::Codec::hevcWithAlpha ||
           preset.codec == ExportPreset::Codec::prores4444;
}

} // namespace

InspectorExportSection::InspectorExportSection(InspectorPage& page, EditorSession& session)
    : QObject(&page)
    , m_page(page)
    , m_session(session) {
    QVBoxLayout* rows = m_page.addSection(tr("Export"));
    QWidget* transparentLine = nullptr;
    QLabel* transparent = m_page.addIconText(rows, {"transform-crop", "zoom-fit-best"}, &transparentLine);
    transparent->setText(tr("Transparent canvas — pick an Alpha export to keep it."));
    auto* matching = new QWidget(rows->parentWidget());
    m_matchingRows = new QVBoxLayout(matching);
    m_matchingRows->setContentsMargins(0, 0, 0, 0);
    rows->addWidget(matching);

    auto* disclosure = new QToolButton(rows->parentWidget());
    disclosure->setText(tr("Other shapes"));
    disclosure->setCheckable(true);
    disclosure->setArrowType(Qt::RightArrow);
    disclosure->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    disclosure->setAutoRaise(true);
    rows->addWidget(disclosure);
    auto* others = new QWidget(rows->parentWidget());
    auto* otherColumn = new QVBoxLayout(others);
    otherColumn->setContentsMargins(0, 0, 0, 0);
    auto* otherButtons = new QWidget(others);
    m_otherRows = new QVBoxLayout(otherButtons);
    m_otherRows->setContentsMargins(0, 0, 0, 0);
    otherColumn->addWidget(otherButtons);
    m_page.addText(otherColumn, tr("These do not match the preview. The recording is fitted, never cropped."),
                   true);
    others->setVisible(false);
    rows->addWidget(others);
    connect(disclosure, &QToolButton::toggled, this, [disclosure, others](bool open) {
        disclosure->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
        others->setVisible(open);
    });

    QPushButton* save = m_page.addButton(rows, tr("Save Project"));
    save->setIcon(themeIcon({"document-save"}));
    connect(save, &QPushButton::clicked, &m_session, &EditorSession::save);

    QHBoxLayout* lastLine = m_page.addLine(rows);
    QWidget* last = lastLine->parentWidget();
    auto* lastName = new QLabel(last);
    lastName->setWordWrap(true);
    auto* show = new QPushButton(themeIcon({"folder-open", "folder"}), tr("Show in Folder"), last);
    show->setAutoDefault(false);
    show->setToolTip(tr("Open the folder of the last export in the file manager"));
    lastLine->addWidget(lastName, 1);
    lastLine->addWidget(show);
    connect(show, &QPushButton::clicked, this, [this] {
        if (const auto& url = m_session.lastExportUrl()) {
            QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(url->path().parent_path())));
        }
    });

    m_page.follow([this, transparentLine, last, lastName] {
        const auto& document = m_session.document();
        transparentLine->setVisible(document && document->project.canvas.background.isTransparent());
        fillPresets();
        const auto& url = m_session.lastExportUrl();
        last->setVisible(url.has_value());
        if (url) {
            lastName->setText(tr("Last export: %1").arg(QString::fromStdString(url->path().filename())));
            lastName->setToolTip(QString::fromStdString(url->path()));
        }
    });
}

void InspectorExportSection::fillPresets() {
    std::vector<ExportPreset> all = m_session.matchingPresets();
    const std::size_t matchingCount = all.size();
    for (const ExportPreset& preset : m_session.mismatchedPresets()) {
        all.push_back(preset);
    }
    if (m_shownPresets == all) {
        return;
    }
    m_shownPresets = all;
    discardRows(m_matchingRows);
    discardRows(m_otherRows);
    for (std::size_t i = 0; i < all.size(); ++i) {
        const ExportPreset& preset = all[i];
        QVBoxLayout* rows = i < matchingCount ? m_matchingRows : m_otherRows;
        auto* button = new QPushButton(rows->parentWidget());
        button->setAutoDefault(false);
        button->setAccessibleName(QString::fromStdString(preset.name));
        auto* inside = new QHBoxLayout(button);
        inside->setContentsMargins(10, 2, 10, 2);
        auto* name = new QLabel(QString::fromStdString(preset.name), button);
        auto* size = new QLabel(presetSize(preset), button);
        size->setForegroundRole(QPalette::PlaceholderText);
        inside->addWidget(name);
        inside->addStretch(1);
        if (preservesAlpha(preset)) {
            auto* badge = new QLabel(tr("ALPHA"), button);
            QFont small = badge->font();
            small.setPointSizeF(small.pointSizeF() * 0.75);
            small.setBold(true);
            badge->setFont(small);
            badge->setStyleSheet("QLabel { border: 1px solid palette(highlight); color: palette(highlight); "
                                 "border-radius: 3px; padding: 0px 3px; }");
            inside->addWidget(badge);
        }
        inside->addWidget(size);
        for (QLabel* part : button->findChildren<QLabel*>()) {
            part->setAttribute(Qt::WA_TransparentForMouseEvents);
        }
        button->setMinimumHeight(name->sizeHint().height() + 14);
        connect(button, &QPushButton::clicked, &m_session, [this, preset] { m_session.exportMovie(preset); });
        rows->addWidget(button);
        button->show();
    }
}

} // namespace marlowick
