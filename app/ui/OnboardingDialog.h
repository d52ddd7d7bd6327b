#pragma once

#include "session/Permissions.h"

#include <QDialog>

#include <vector>

class QLabel;
class QPushButton;
class QSettings;

namespace marlowick {

class PermissionRow;

// The sheet that explains each permission, shows its state and lets the user fix it: a heading, one row
// per permission, a status line and the finishing button. The button reads "Continue Anyway" while screen
// recording isn't granted and "Start" once it is; it always closes the sheet, since onboarding never
// blocks the application, and notes in the settings that onboarding was completed.
//
// The sheet reads the permissions again when it is shown and whenever the application becomes active, so
// something fixed elsewhere shows as soon as the user comes back.
//
// Thread: the main thread only. The permissions and the settings are not owned and outlive the sheet.
class OnboardingDialog : public QDialog {
    Q_OBJECT
public:
    // The one thing the application keeps between runs: whether the sheet was finished once.
    static constexpr const char* completedKey = "hasCompletedOnboarding";

    // The launch rule: reads the permissions, and says whether the sheet shows, which it does until it
    // has been finished once, and after that whenever screen recording isn't granted.
    static bool neededAtLaunch(Permissions& permissions, const QSettings& settings);

    OnboardingDialog(Permissions& permissions, QSettings& settings, QWidget* parent = nullptr);

    const std::vector<PermissionRow*>& rows() const { return m_rows; }
    QLabel* statusLabel() const { return m_status; }
    QPushButton* finishButton() const { return m_finish; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void follow();
    void finish();

    Permissions& m_permissions;
    QSettings& m_settings;
    std::vector<PermissionRow*> m_rows;
    QLabel* m_status = nullptr;
    QPushButton* m_finish = nullptr;
};

} // namespace marlowick
