#pragma once

#include "session/Permissions.h"

#include <QWidget>

class QLabel;
class QPushButton;

namespace marlowick {

// One permission on the onboarding sheet: its icon and title, "Required" where recording needs it, what it
// is for, and, while it isn't granted, what going without it costs and what the system said. Its end
// shows the state: "On" in green when granted, "Allow" (ask again) when not asked, and "Open Settings"
// when the system refused. It follows the permissions object as it changes.
//
// Thread: the main thread only. The permissions object is not owned and outlives the row.
class PermissionRow : public QWidget {
    Q_OBJECT
public:
    PermissionRow(Permissions& permissions, Permissions::Item item, QWidget* parent = nullptr);

    Permissions::Item item() const { return m_item; }
    // The parts of the row as they show now, for tests.
    QLabel* onLabel() const { return m_on; }
    QPushButton* allowButton() const { return m_allow; }
    QPushButton* openSettingsButton() const { return m_openSettings; }
    QLabel* refusalCostLabel() const { return m_cost; }
    QLabel* detailLabel() const { return m_detail; }

private:
    void follow();

    Permissions& m_permissions;
    Permissions::Item m_item;
    QLabel* m_cost = nullptr;
    QLabel* m_detail = nullptr;
    QWidget* m_onBadge = nullptr; // the green "On" with its check mark
    QLabel* m_on = nullptr;
    QPushButton* m_allow = nullptr;
    QPushButton* m_openSettings = nullptr;
};

} // namespace marlowick
