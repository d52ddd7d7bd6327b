// The record screen's list of monitors: each by name and size with the primary one picked at first, the
// pick handed to the session and picked again at the next start while that monitor is there, and no list
// where the session offers no monitors.

#include "ui/RecordScreen.h"
#include "capture/X11ScreenCapturer.h"
#include "playback/PreviewPlayer.h"
#include "session/EditorSession.h"
#include "support/TempDir.h"
#include "ui/WindowTestSupport.h"

#include <QAction>
#include <QComboBox>
#include <QSettings>
#include <QTest>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

// The monitors as a window system lists them, changed by the test as a person plugs them in and out.
class ListedMonitors : public ScreenInfo {
public:
    explicit ListedMonitors(std::shared_ptr<std::vector<ScreenMonitor>> monitors)
        : m_monitors(std::move(monitors)) {}
    std::vector<ScreenMonitor> monitors() const override { return *m_monitors; }

private:
    std::shared_ptr<std::vector<ScreenMonitor>> m_monitors;
};

std::unique_ptr<EditorSession> sessionWith(std::unique_ptr<ScreenInfo> screen) {
    return std::make_unique<EditorSession>(
        std::make_unique<QueuedPanels>(),
        [] { return std::make_unique<PreviewPlayer>("unix:/nonexistent/marlowick-test"); },
        [] { return std::make_unique<X11ScreenCapturer>(); }, std::move(screen));
}

void saveScreenshot(QWidget& widget, const std::string& name) {
    QApplication::processEvents();
    fs::create_directories(MARLOWICK_SCREENSHOTS);
    const QString path = QString::fromStdString((fs::path(MARLOWICK_SCREENSHOTS) / (name + ".png")).string());
    EXPECT_TRUE(widget.grab().save(path)) << path.toStdString();
}

} // namespace

TEST(RecordScreen, ListsTheMonitorsAndHandsThePickToTheSession) {
    // The settings of this test only, kept for the rest of the process.
    static const TempDir settings;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                       QString::fromStdString(settings.path().string()));
    auto monitors = std::make_shared<std::vector<ScreenMonitor>>(std::vector<ScreenMonitor>{
        {"DUMMY0", 0, 0, 1280, 720, true}, {"DUMMY1", 1280, 120, 800, 600, false}});
    QAction start;
    {
        const auto session = sessionWith(std::make_unique<ListedMonitors>(monitors));
        RecordScreen screen(*session, &start);
        screen.resize(700, 520);
        auto* list = screen.findChild<QComboBox*>();
        ASSERT_NE(list, nullptr);
        EXPECT_TRUE(list->isVisibleTo(&screen));
        ASSERT_EQ(list->count(), 2);
        EXPECT_EQ(list->itemText(0), "DUMMY0 — 1280 × 720, primary");
        EXPECT_EQ(list->itemText(1), "DUMMY1 — 800 × 600");
        EXPECT_EQ(list->currentIndex(), 0);
        EXPECT_EQ(session->recordedMonitor(), "");
        saveScreenshot(screen, "record-monitors");

        QTest::keyClick(list, Qt::Key_Down);
        EXPECT_EQ(session->recordedMonitor(), "DUMMY1");
    }

    // The next start picks it again while it is there; a pick the list doesn't hold goes back to the primary
    // one.
    {
        const auto session = sessionWith(std::make_unique<ListedMonitors>(monitors));
        RecordScreen screen(*session, &start);
        auto* list = screen.findChild<QComboBox*>();
        EXPECT_EQ(session->recordedMonitor(), "DUMMY1");
        EXPECT_EQ(list->currentIndex(), 1);
        session->setRecordedMonitor("HDMI-9");
        EXPECT_EQ(session->recordedMonitor(), "");
        EXPECT_EQ(list->currentIndex(), 0);
    }
    // Once it has gone, the primary one.
    monitors->pop_back();
    {
        const auto session = sessionWith(std::make_unique<ListedMonitors>(monitors));
        RecordScreen screen(*session, &start);
        EXPECT_EQ(session->recordedMonitor(), "");
        EXPECT_EQ(screen.findChild<QComboBox*>()->count(), 1);
    }

    // No monitors to offer (the desktop's own dialog picks the screen): no list.
    const auto bare = sessionWith(nullptr);
    RecordScreen screen(*bare, &start);
    EXPECT_FALSE(screen.findChild<QComboBox*>()->isVisibleTo(&screen));
}
