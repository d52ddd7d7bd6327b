#include "ui/OnboardingDialog.h"

#include "ui/PermissionRow.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QVBoxLayout>

namespace marlowick {

bool OnboardingDialog::neededAtLaunch(Permissions& permissions, const QSettings& settings) {
    permissions.refresh();
    return !settings.value(completedKey, false).toBool() ||
           permissions.state(Permissions::Item::screenRecording) != Permissions::State::granted;
}

OnboardingDialog::OnboardingDialog(Permissions& permissions, QSettings& settings, QWidget* parent)
    : QDialog(parent)
    , m_permissions(permissions)
    , m_settings(settings) {
    setWindowTitle(tr("Permissions"));
    setModal(true);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 20);

    auto* symbol = new QLabel;
    symbol->setPixmap(QIcon::fromTheme("media-record").pixmap(48, 48));
    symbol->setAlignment(Qt::AlignHCenter);
    layout->addWidget(symbol);
    auto* heading = new QLabel(tr("Set up Marlowick"));
    QFont big = heading->font();
    big.setPointSizeF(big.pointSizeF() * 1.5);
    big.setBold(true);
    heading->setFont(big);
    heading->setAlignment(Qt::AlignHCenter);
    layout->addWidget(heading);
    auto* intro = new QLabel(tr("Each of these is set up separately, and nothing tells you what you lose "
                                "without one. Here is what each one is for."));
    intro->setWordWrap(true);
    intro->setAlignment(Qt::AlignHCenter);
    layout->addWidget(intro);
    layout->addSpacing(12);

    for (const Permissions::Item item : Permissions::items) {
        auto* row = new PermissionRow(permissions, item);
        m_rows.push_back(row);
        layout->addWidget(row);
    }
    layout->addSpacing(12);

    auto* bottom = new QHBoxLayout;
    m_status = new QLabel;
    m_status->setWordWrap(true);
    bottom->addWidget(m_status, 1);
    m_finish = new QPushButton;
    m_finish->setDefault(true);
    bottom->addWidget(m_finish);
    layout->addLayout(bottom);

    connect(m_finish, &QPushButton::clicked, this, &OnboardingDialog::finish);
    connect(&m_permissions, &Permissions::changed, this, &OnboardingDialog::follow);
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        if (state == Qt::ApplicationActive && isVisible()) {
            m_permissions.refresh();
        }
    });
    setMinimumWidth(560);
    follow();
}

void OnboardingDialog::showEvent(QShowEvent* event) {
    m_permissions.refresh();
    QDialog::showEvent(event);
}

void OnboardingDialog::follow() {
    const bool ready = m_permissions.state(Permissions::Item::screenRecording) == Permissions::State::granted;
    m_status->setText(ready ? tr("You are ready to record.")
                            : tr("Screen Recording is required before you can record."));
    m_finish->setText(ready ? tr("Start") : tr("Continue Anyway"));
}

void OnboardingDialog::finish() {
    m_settings.setValue(completedKey, true);
    m_settings.sync();
    accept();
}

} // namespace marlowick
