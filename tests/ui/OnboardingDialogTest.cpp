// The onboarding sheet over fake probes (each row's end, the status line and the button by the states,
// the launch rule over a scratch settings file) and over the system's probes on a private X display and
// sound server; docs/screenshots/onboarding.png is taken from the latter.

#include "ui/OnboardingDialog.h"
#include "session/Permissions.h"
#include "session/SystemPermissionProbes.h"
#include "support/Prerequisites.h"
#include "support/SoundServer.h"
#include "support/TempDir.h"
#include "support/VirtualDisplay.h"
#include "ui/PermissionRow.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QTest>

#include <gtest/gtest.h>

#include <array>
#include <memory>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

using Item = Permissions::Item;
using State = Permissions::State;

// The system as a table: each item answers with the state set for it, and counts its settings opened.
struct FakeSystem {
    std::array<State, 4> states{State::notAsked, State::notAsked, State::notAsked, State::notAsked};
    std::array<int, 4> settingsOpened{};

    State& operator[](Item item) { return states.at(static_cast<std::size_t>(item)); }
};

class FakeProbe : public PermissionProbe {
public:
    FakeProbe(std::shared_ptr<FakeSystem> system, Item item)
        : m_system(std::move(system))
        , m_item(item) {}
    PermissionReading read() override { return {(*m_system)[m_item], ""}; }
    bool openSettings() override {
        ++m_system->settingsOpened.at(static_cast<std::size_t>(m_item));
        return true;
    }

private:
    std::shared_ptr<FakeSystem> m_system;
    Item m_item;
};

PermissionProbes fakeProbes(const std::shared_ptr<FakeSystem>& system) {
    return {std::make_unique<FakeProbe>(system, Item::screenRecording),
            std::make_unique<FakeProbe>(system, Item::accessibility),
            std::make_unique<FakeProbe>(system, Item::microphone),
            std::make_unique<FakeProbe>(system, Item::speech)};
}

PermissionRow& rowOf(const OnboardingDialog& dialog, Item item) {
    return *dialog.rows().at(static_cast<std::size_t>(item));
}

// What the end of a row shows: "On", "Allow" or "Open Settings", and nothing else beside it.
std::string endOf(const PermissionRow& row) {
    std::string end;
    if (row.onLabel()->isVisibleTo(&row)) {
        end += row.onLabel()->text().toStdString();
    }
    if (row.allowButton()->isVisibleTo(&row)) {
        end += row.allowButton()->text().toStdString();
    }
    if (row.openSettingsButton()->isVisibleTo(&row)) {
        end += row.openSettingsButton()->text().toStdString();
    }
    return end;
}

// A settings file of the test's own, in the ini format the application's defaults would use.
struct ScratchSettings {
    TempDir directory;
    QSettings settings{QString::fromStdString((directory / "Marlowick.conf").string()), QSettings::IniFormat};
};

} // namespace

TEST(OnboardingDialog, RowsStatusAndButtonFollowTheStates) {
    auto system = std::make_shared<FakeSystem>();
    (*system)[Item::accessibility] = State::granted;
    (*system)[Item::microphone] = State::denied;
    Permissions permissions(fakeProbes(system));
    ScratchSettings scratch;
    OnboardingDialog dialog(permissions, scratch.settings);
    dialog.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));

    // Showing the sheet read the system.
    EXPECT_EQ(endOf(rowOf(dialog, Item::screenRecording)), "Allow");
    EXPECT_EQ(endOf(rowOf(dialog, Item::accessibility)), "On");
    EXPECT_EQ(endOf(rowOf(dialog, Item::microphone)), "Open Settings");
    EXPECT_EQ(endOf(rowOf(dialog, Item::speech)), "Allow");
    // What a refusal costs shows only while the item isn't granted.
    EXPECT_FALSE(rowOf(dialog, Item::accessibility).refusalCostLabel()->isVisibleTo(&dialog));
    EXPECT_TRUE(rowOf(dialog, Item::microphone).refusalCostLabel()->isVisibleTo(&dialog));
    EXPECT_EQ(dialog.statusLabel()->text(), "Screen Recording is required before you can record.");
    EXPECT_EQ(dialog.finishButton()->text(), "Continue Anyway");

    // "Open Settings" opens the refused item's settings; the state stays.
    QTest::mouseClick(rowOf(dialog, Item::microphone).openSettingsButton(), Qt::LeftButton);
    EXPECT_EQ(system->settingsOpened.at(static_cast<std::size_t>(Item::microphone)), 1);
    EXPECT_EQ(endOf(rowOf(dialog, Item::microphone)), "Open Settings");

    // Screen recording becomes possible, and "Allow" finds it so: the row, the status and the button follow,
    // with the three others refused or missing.
    (*system)[Item::screenRecording] = State::granted;
    (*system)[Item::accessibility] = State::notAsked;
    QTest::mouseClick(rowOf(dialog, Item::screenRecording).allowButton(), Qt::LeftButton);
    EXPECT_EQ(endOf(rowOf(dialog, Item::screenRecording)), "On");
    EXPECT_EQ(endOf(rowOf(dialog, Item::accessibility)), "Allow");
    EXPECT_EQ(dialog.statusLabel()->text(), "You are ready to record.");
    EXPECT_EQ(dialog.finishButton()->text(), "Start");
}

TEST(OnboardingDialog, ContinueAnywayClosesTheSheetAndOnboardingIsThenDone) {
    auto system = std::make_shared<FakeSystem>();
    Permissions permissions(fakeProbes(system));
    ScratchSettings scratch;
    // The first launch shows the sheet even with everything granted.
    system->states = {State::granted, State::granted, State::granted, State::granted};
    EXPECT_TRUE(OnboardingDialog::neededAtLaunch(permissions, scratch.settings));

    system->states = {State::notAsked, State::denied, State::denied, State::denied};
    OnboardingDialog dialog(permissions, scratch.settings);
    dialog.open();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
    ASSERT_EQ(dialog.finishButton()->text(), "Continue Anyway");
    QTest::mouseClick(dialog.finishButton(), Qt::LeftButton);
    EXPECT_FALSE(dialog.isVisible());
    EXPECT_EQ(dialog.result(), QDialog::Accepted);

    // A later launch reads the file afresh: the sheet comes back while screen recording is missing...
    QSettings reread(scratch.settings.fileName(), QSettings::IniFormat);
    EXPECT_TRUE(reread.value(OnboardingDialog::completedKey).toBool());
    EXPECT_TRUE(OnboardingDialog::neededAtLaunch(permissions, reread));
    // ...and stays away once it is granted, whatever else is refused.
    (*system)[Item::screenRecording] = State::granted;
    EXPECT_FALSE(OnboardingDialog::neededAtLaunch(permissions, reread));
}

TEST(OnboardingDialog, ShowsWhatThisSystemGrants) {
    // A display without RECORD, and a sound server whose only sources are monitors of its outputs.
    const VirtualDisplay display(false);
    const SoundServer sound;
    MARLOWICK_REQUIRE(xvfb(display), pulseAudio(sound));
    ASSERT_TRUE(sound.run("pactl unload-module module-remap-source"));
    Permissions permissions(systemPermissionProbes(
        {display.name(), sound.server(), SpeechRoots::standard(), CaptureBackend::x11}));
    ScratchSettings scratch;
    ASSERT_TRUE(OnboardingDialog::neededAtLaunch(permissions, scratch.settings));

    OnboardingDialog dialog(permissions, scratch.settings);
    dialog.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
    EXPECT_EQ(endOf(rowOf(dialog, Item::screenRecording)), "On");
    EXPECT_EQ(endOf(rowOf(dialog, Item::accessibility)), "Allow");
    EXPECT_TRUE(rowOf(dialog, Item::accessibility).detailLabel()->text().contains("RECORD"));
    EXPECT_EQ(endOf(rowOf(dialog, Item::microphone)), "Open Settings");
    EXPECT_EQ(endOf(rowOf(dialog, Item::speech)), "On");
    EXPECT_EQ(dialog.finishButton()->text(), "Start");

    fs::create_directories(MARLOWICK_SCREENSHOTS);
    const QString path =
        QString::fromStdString((fs::path(MARLOWICK_SCREENSHOTS) / "onboarding.png").string());
    EXPECT_TRUE(dialog.grab().save(path)) << path.toStdString();
}
