#include "ui/PermissionRow.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace marlowick {

namespace {

QString iconName(Permissions::Item item) {
    switch (item) {
    case Permissions::Item::screenRecording:
        return "video-display";
    case Permissions::Item::accessibility:
        return "input-mouse";
    case Permissions::Item::microphone:
        return "microphone-sensitivity-high";
    case Permissions::Item::speech:
        return "accessories-dictionary";
    }
    return {};
}

QLabel* iconLabel(const QString& name, int size) {
    auto* label = new QLabel;
    label->setPixmap(QIcon::fromTheme(name).pixmap(size, size));
    label->setFixedSize(size, size);
    return label;
}

} // namespace

PermissionRow::PermissionRow(Permissions& permissions, Permissions::Item item, QWidget* parent)
    : QWidget(parent)
    , m_permissions(permissions)
    , m_item(item) {
    const Permissions::Texts texts = Permissions::texts(item);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 6, 0, 6);
    QLabel* icon = iconLabel(iconName(item), 28);
    row->addWidget(icon, 0, Qt::AlignTop);

    auto* words = new QVBoxLayout;
    words->setSpacing(2);
    auto* heading = new QHBoxLayout;
    auto* title = new QLabel(texts.title);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    heading->addWidget(title);
    if (texts.required) {
        auto* required = new QLabel(tr("Required"));
        required->setStyleSheet("QLabel { color: #b4261e; border: 1px solid #b4261e; border-radius: 4px;"
                                " padding: 0px 4px; font-size: 9pt; }");
        heading->addWidget(required);
    }
    heading->addStretch();
    words->addLayout(heading);
    auto* purpose = new QLabel(texts.purpose);
    purpose->setWordWrap(true);
    words->addWidget(purpose);
    m_cost = new QLabel(texts.refusalCost);
    m_cost->setWordWrap(true);
    m_cost->setStyleSheet("QLabel { color: #8a5a00; }");
    words->addWidget(m_cost);
    m_detail = new QLabel;
    m_detail->setWordWrap(true);
    m_detail->setStyleSheet("QLabel { color: palette(mid); font-size: 9pt; }");
    words->addWidget(m_detail);
    row->addLayout(words, 1);

    m_onBadge = new QWidget;
    auto* badge = new QHBoxLayout(m_onBadge);
    badge->setContentsMargins(0, 0, 0, 0);
    badge->addWidget(iconLabel("emblem-default", 16));
    m_on = new QLabel(tr("On"));
    m_on->setStyleSheet("QLabel { color: #1a7f37; font-weight: bold; }");
    badge->addWidget(m_on);
    row->addWidget(m_onBadge, 0, Qt::AlignTop);
    m_allow = new QPushButton(tr("Allow"));
    row->addWidget(m_allow, 0, Qt::AlignTop);
    m_openSettings = new QPushButton(tr("Open Settings"));
    row->addWidget(m_openSettings, 0, Qt::AlignTop);

    connect(m_allow, &QPushButton::clicked, this, [this] { m_permissions.request(m_item); });
    connect(m_openSettings, &QPushButton::clicked, this, [this] { m_permissions.openSettings(m_item); });
    connect(&m_permissions, &Permissions::changed, this, [this](PermissionItem changed) {
        if (changed == m_item) {
            follow();
        }
    });
    follow();
}

void PermissionRow::follow() {
    const PermissionReading& reading = m_permissions.reading(m_item);
    const bool granted = reading.state == Permissions::State::granted;
    m_cost->setVisible(!granted);
    m_detail->setText(QString::fromStdString(reading.detail));
    m_detail->setVisible(!reading.detail.empty());
    m_onBadge->setVisible(granted);
    m_allow->setVisible(reading.state == Permissions::State::notAsked);
    m_openSettings->setVisible(reading.state == Permissions::State::denied);
}

} // namespace marlowick
