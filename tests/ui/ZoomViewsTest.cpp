// The zoom rail under the canvas and the zoom editor, driven as a person would, over a session with a
// real take open in the window.

#include "capture/X11ScreenCapturer.h"
#include "playback/PreviewPlayer.h"
#include "session/EditorSession.h"
#include "support/TempDir.h"
#include "support/WalkingTake.h"
#include "trajectory/NewRecording.h"
#include "ui/CanvasPreview.h"
#include "ui/MainWindow.h"
#include "ui/WindowTestSupport.h"
#include "ui/ZoomClock.h"
#include "ui/ZoomEditor.h"
#include "ui/ZoomRail.h"
#include "ui/ZoomRow.h"

#include <QAccessible>
#include <QAction>
#include <QApplication>
#include <QContextMenuEvent>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QMenu>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <functional>
#include <thread>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

void saveScreenshot(QWidget& widget, const std::string& name) {
    // The layouts settle first, as they would before the person sees them.
    QApplication::processEvents();
    QApplication::processEvents();
    fs::create_directories(MARLOWICK_SCREENSHOTS);
    const QString path = QString::fromStdString((fs::path(MARLOWICK_SCREENSHOTS) / (name + ".png")).string());
    EXPECT_TRUE(widget.grab().save(path)) << path.toStdString();
}

ZoomBeat beat(double start, double end, double scale, bool isGenerated) {
    return ZoomBeat(Uuid::random(), start, end, {0.4, 0.6}, scale, 0.35, 0.35, Easing::easeInOut,
                    isGenerated);
}

class ZoomViewsTest : public ::testing::Test {
protected:
    // A 4 s take at 320x180 with a tone and a pointer walk, opened in the window.
    static void SetUpTestSuite() {
        s_dir = new TempDir;
        const std::string command =
            "ffmpeg -v error -y -f lavfi -i testsrc2=size=320x180:rate=10 -f lavfi -i "
            "sine=frequency=300:sample_rate=48000 -t 4 -c:v libx264 -pix_fmt yuv420p "
            "-c:a aac '" +
            (*s_dir / "take.mp4").string() + "'";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
        documentForNewRecording(walkingTake(*s_dir / "take.mp4", 4, {40, 30}, {6, 12}), "Zooms")
            .write(*s_dir / "Zooms.marlowick");
    }
    static void TearDownTestSuite() {
        delete s_dir;
        s_dir = nullptr;
    }

    void SetUp() override {
        auto panels = std::make_unique<QueuedPanels>();
        panels->packagesToOpen.push_back(*s_dir / "Zooms.marlowick");
        // No sound server at that address: the player's silent clock, as on a machine without sound.
        m_session = std::make_unique<EditorSession>(
            std::move(panels),
            [] { return std::make_unique<PreviewPlayer>("unix:/nonexistent/marlowick-test"); },
            [] { return std::make_unique<X11ScreenCapturer>(); }, nullptr);
        m_window = std::make_unique<MainWindow>(*m_session);
        m_window->resize(1100, 720);
        m_window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(m_window.get()));
        m_session->open();
        ASSERT_TRUE(within(60, [&] { return openedPreviewSettled(*m_session); }));
        m_session->playback()->pause();
        m_rail = m_window->editor()->findChild<ZoomRail*>();
        ASSERT_NE(m_rail, nullptr);
        ASSERT_TRUE(m_rail->isVisible());
        ASSERT_GT(m_rail->width(), 600);
    }
    void TearDown() override {
        m_window.reset();
        m_session.reset();
    }

    // Puts these beats and hand cuts (source seconds) in the open project, as the only ones.
    void setCamera(std::vector<ZoomBeat> beats, std::vector<Span> cuts = {}) {
        m_session->editProject([&](Project& project) {
            project.camera.beats = std::move(beats);
            project.manualCuts = std::move(cuts);
        });
    }
    const Project& project() const { return m_session->document()->project; }
    const ZoomBeat& stored(Uuid id) const {
        for (const ZoomBeat& b : project().camera.beats) {
            if (b.id == id) {
                return b;
            }
        }
        throw std::runtime_error("no such beat");
    }
    // The beat as the rail shows it, on output time.
    ZoomBeat shown(Uuid id) const {
        for (const ZoomBeat& b : m_rail->track().beats) {
            if (b.id == id) {
                return b;
            }
        }
        throw std::runtime_error("no such beat on the rail");
    }

    // Where on the rail an output time lies, a few pixels above the strip's bottom edge, where every
    // block stands.
    QPoint at(double time) const {
        return {static_cast<int>(std::lround(m_rail->fraction(time) * m_rail->width())),
                m_rail->height() - 3};
    }
    QPoint leadingHandle(Uuid id) const { return at(shown(id).start) + QPoint(3, 0); }
    QPoint trailingHandle(Uuid id) const { return at(shown(id).end) - QPoint(3, 0); }
    QPoint body(Uuid id) const { return at((shown(id).start + shown(id).end) / 2); }

    // A press at `from`, moves over the way, and a release at `to`.
    void dragOnRail(QPoint from, QPoint to) {
        QTest::mousePress(m_rail, Qt::LeftButton, {}, from);
        for (int step = 1; step <= 4; ++step) {
            QTest::mouseMove(m_rail, from + (to - from) * step / 4);
        }
        QTest::mouseRelease(m_rail, Qt::LeftButton, {}, to);
    }
    // The output seconds that `pixels` across the rail stand for.
    double secondsFor(int pixels) const { return m_rail->duration() * pixels / m_rail->width(); }

    static TempDir* s_dir;
    std::unique_ptr<EditorSession> m_session;
    std::unique_ptr<MainWindow> m_window;
    ZoomRail* m_rail = nullptr;
};

TempDir* ZoomViewsTest::s_dir = nullptr;

} // namespace

TEST_F(ZoomViewsTest, DragsOnTheRailMakeOneEditEachAndKeepToTheStripAndTheShortestBeat) {
    const ZoomBeat first = beat(1.0, 2.0, 1.6, true);
    const ZoomBeat second = beat(2.5, 3.2, 2.2, true);
    setCamera({first, second});
    ASSERT_DOUBLE_EQ(m_rail->duration(), 4.0);

    // While the body is dragged the rail alone holds the moved beat; the project changes once, at the
    // release, and the edited beat is the person's own.
    QSignalSpy edits(m_session.get(), &EditorSession::documentChanged);
    const QPoint from = body(first.id);
    QTest::mousePress(m_rail, Qt::LeftButton, {}, from);
    QTest::mouseMove(m_rail, from + QPoint(40, 0));
    QTest::mouseMove(m_rail, from + QPoint(m_rail->width(), 0));
    ASSERT_TRUE(m_rail->dragging().has_value());
    EXPECT_EQ(stored(first.id), first);
    EXPECT_EQ(edits.count(), 0);
    EXPECT_EQ(m_session->selectedBeat(), first.id);
    // Past the strip's end the block stops there, its length kept.
    QTest::mouseMove(m_rail, from + QPoint(m_rail->width() + 300, 0));
    QTest::mouseRelease(m_rail, Qt::LeftButton, {}, from + QPoint(m_rail->width() + 300, 0));
    EXPECT_FALSE(m_rail->dragging().has_value());
    EXPECT_EQ(edits.count(), 1);
    const ZoomBeat& moved = stored(first.id);
    EXPECT_NEAR(moved.end, 4.0, 1e-9);
    EXPECT_NEAR(moved.duration(), 1.0, 1e-9);
    EXPECT_FALSE(moved.isGenerated);
    EXPECT_DOUBLE_EQ(moved.scale, 1.6);
    EXPECT_EQ(stored(second.id), second);

    // Dragged to the left past the start, it stops at 0, a second long still.
    const QPoint again = body(first.id);
    dragOnRail(again, again - QPoint(2 * m_rail->width(), 0));
    EXPECT_NEAR(stored(first.id).start, 0.0, 1e-9);
    EXPECT_NEAR(stored(first.id).end, 1.0, 1e-9);

    // A leading handle dragged past the beat's end leaves the shortest beat, ending where it ended.
    dragOnRail(leadingHandle(second.id), trailingHandle(second.id) + QPoint(200, 0));
    EXPECT_NEAR(stored(second.id).start, 3.2 - 0.3, 1e-9);
    EXPECT_NEAR(stored(second.id).end, 3.2, 1e-9);
    EXPECT_FALSE(stored(second.id).isGenerated);

    // A trailing handle stops at the strip's end, and dragged back past the start leaves the shortest beat.
    dragOnRail(trailingHandle(second.id), trailingHandle(second.id) + QPoint(m_rail->width(), 0));
    EXPECT_NEAR(stored(second.id).start, 2.9, 1e-9);
    EXPECT_NEAR(stored(second.id).end, 4.0, 1e-9);
    dragOnRail(trailingHandle(second.id), trailingHandle(second.id) - QPoint(m_rail->width(), 0));
    EXPECT_NEAR(stored(second.id).start, 2.9, 1e-9);
    EXPECT_NEAR(stored(second.id).end, 2.9 + 0.3, 1e-9);

    // A handle moved by a few pixels moves that edge by as much time and leaves the other alone.
    const ZoomBeat before = stored(first.id);
    dragOnRail(trailingHandle(first.id), trailingHandle(first.id) + QPoint(30, 0));
    EXPECT_NEAR(stored(first.id).end, before.end + secondsFor(30), 1e-9);
    EXPECT_DOUBLE_EQ(stored(first.id).start, before.start);

    // That drag is one step of the history, named in the Edit menu: one undo puts the beat back.
    EXPECT_EQ(m_window->undoAction()->text().toStdString(), "Undo “Move Zoom”");
    EXPECT_TRUE(m_window->undoAction()->isEnabled());
    m_window->undoAction()->trigger();
    EXPECT_EQ(stored(first.id), before);
    EXPECT_EQ(m_window->redoAction()->text().toStdString(), "Redo “Move Zoom”");
}

TEST_F(ZoomViewsTest, ATapSelectsOrScrubsAndTheKeysAndMenuDeleteAndAdd) {
    const ZoomBeat first = beat(1.0, 2.0, 1.6, true);
    const ZoomBeat second = beat(2.5, 3.2, 2.6, false);
    setCamera({first, second});
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(m_rail);
    ASSERT_NE(accessible, nullptr);
    EXPECT_EQ(accessible->text(QAccessible::Name).toStdString(), "Zoom rail");
    EXPECT_EQ(accessible->text(QAccessible::Value).toStdString(), "2 zoom beats");

    // Under 2 pixels of movement a press on a block is a tap: it selects and changes nothing.
    QSignalSpy edits(m_session.get(), &EditorSession::documentChanged);
    const QPoint from = body(first.id);
    QTest::mousePress(m_rail, Qt::LeftButton, {}, from);
    QTest::mouseMove(m_rail, from + QPoint(1, 1));
    QTest::mouseRelease(m_rail, Qt::LeftButton, {}, from + QPoint(1, 1));
    EXPECT_EQ(m_session->selectedBeat(), first.id);
    EXPECT_EQ(edits.count(), 0);
    EXPECT_EQ(stored(first.id), first);

    // A tap on the bare strip clears the selection and moves the playhead there.
    const QPoint bare(at(0.5).x(), 4);
    QTest::mouseClick(m_rail, Qt::LeftButton, {}, bare);
    EXPECT_FALSE(m_session->selectedBeat().has_value());
    EXPECT_NEAR(m_session->playback()->currentTime(), 4.0 * bare.x() / m_rail->width(), 1e-9);
    EXPECT_NEAR(m_rail->time(), m_session->playback()->currentTime(), 1e-12);

    // Delete removes the selected beat, and nothing without a selection.
    QTest::mouseClick(m_rail, Qt::LeftButton, {}, body(second.id));
    ASSERT_EQ(m_session->selectedBeat(), second.id);
    QTest::keyClick(m_rail, Qt::Key_Delete);
    ASSERT_EQ(project().camera.beats.size(), 1u);
    EXPECT_EQ(project().camera.beats.front(), first);
    EXPECT_FALSE(m_session->selectedBeat().has_value());
    EXPECT_EQ(accessible->text(QAccessible::Value).toStdString(), "1 zoom beats");
    QTest::keyClick(m_rail, Qt::Key_Delete);
    EXPECT_EQ(project().camera.beats.size(), 1u);

    // "Add Zoom Here" adds the person's beat at the playhead, though the pointer stands elsewhere.
    m_session->playback()->seek(2.25);
    ASSERT_NEAR(m_rail->time(), 2.25, 1e-9);
    bool chosen = false;
    QTimer::singleShot(0, [&] {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        ASSERT_NE(menu, nullptr);
        ASSERT_EQ(menu->actions().size(), 1);
        EXPECT_EQ(menu->actions().front()->text().toStdString(), "Add Zoom Here");
        menu->actions().front()->trigger();
        menu->close();
        chosen = true;
    });
    const QPoint pointer = at(0.4);
    QContextMenuEvent request(QContextMenuEvent::Mouse, pointer, m_rail->mapToGlobal(pointer));
    QApplication::sendEvent(m_rail, &request);
    ASSERT_TRUE(chosen);
    ASSERT_EQ(project().camera.beats.size(), 2u);
    const ZoomBeat& added = project().camera.beats.back();
    EXPECT_NEAR(added.start, 2.25, 1e-9);
    EXPECT_FALSE(added.isGenerated);
    EXPECT_EQ(m_session->selectedBeat(), added.id);
}

TEST_F(ZoomViewsTest, WithCutsTheRailShowsOutputTimeAndAnEditLandsWhereThePersonPutIt) {
    // A second of source is cut at 1 s: the movie lasts 3 s, and source 2.5 plays at 1.5.
    const ZoomBeat early = beat(0.2, 1.6, 1.4, true); // its end lies inside the cut
    const ZoomBeat late = beat(2.5, 3.5, 1.8, true);
    setCamera({early, late}, {Span(Range{1.0, 2.0})});
    ASSERT_DOUBLE_EQ(m_rail->duration(), 3.0);
    EXPECT_NEAR(shown(late.id).start, 1.5, 1e-9);
    EXPECT_NEAR(shown(late.id).end, 2.5, 1e-9);
    EXPECT_NEAR(shown(early.id).end, 1.0, 1e-9);

    // The trailing handle moved right: the new end is that far after 2.5 s of output, on the source behind
    // the cut; the start stays.
    dragOnRail(trailingHandle(late.id), trailingHandle(late.id) + QPoint(60, 0));
    EXPECT_NEAR(stored(late.id).end, 3.5 + secondsFor(60), 1e-9);
    EXPECT_DOUBLE_EQ(stored(late.id).start, 2.5);

    // The body moved left across the cut: the start lands before the cut and the end after it, each where
    // the person sees it.
    const ZoomBeat shownBefore = shown(late.id);
    const int left = -static_cast<int>(std::lround(m_rail->width() / 3.0));
    dragOnRail(body(late.id), body(late.id) + QPoint(left, 0));
    const double shift = secondsFor(left);
    ASSERT_LT(shownBefore.start + shift, 1.0);
    EXPECT_NEAR(stored(late.id).start, shownBefore.start + shift, 1e-9);
    EXPECT_NEAR(stored(late.id).end, shownBefore.end + shift + 1.0, 1e-9);
    EXPECT_NEAR(shown(late.id).start, shownBefore.start + shift, 1e-9);

    // An edge inside the cut that the drag left alone keeps its stored time, not the cut's instant.
    dragOnRail(leadingHandle(early.id), leadingHandle(early.id) + QPoint(20, 0));
    EXPECT_NEAR(stored(early.id).start, 0.2 + secondsFor(20), 1e-9);
    EXPECT_DOUBLE_EQ(stored(early.id).end, 1.6);

    // The menu's beat starts at the source time behind the playhead.
    m_session->playback()->seek(2.0);
    QTimer::singleShot(0, [] {
        if (auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget())) {
            menu->actions().front()->trigger();
            menu->close();
        }
    });
    QContextMenuEvent request(QContextMenuEvent::Mouse, at(0.3), m_rail->mapToGlobal(at(0.3)));
    QApplication::sendEvent(m_rail, &request);
    ASSERT_EQ(project().camera.beats.size(), 3u);
    EXPECT_NEAR(project().camera.beats.back().start, 3.0, 1e-9);

    // Seen as the person sees it: edited blocks and a generated one of the deepest scale, the selection, a
    // cut in progress.
    m_session->editProject(
        [](Project& project) { project.camera.beats.push_back(beat(3.6, 3.95, 2.6, true)); });
    m_session->setSelectedBeat(late.id);
    m_session->setSelectionStart(2.6);
    m_session->setSelectionEnd(2.3);
    m_session->playback()->seek(1.2);
    saveScreenshot(*m_window, "zoom-rail-window");
    saveScreenshot(*m_rail, "zoom-rail");
}

namespace {

QDoubleSpinBox* fieldOf(ZoomRow* row, const char* name) {
    for (QDoubleSpinBox* box : row->findChildren<QDoubleSpinBox*>()) {
        if (box->accessibleName() == QLatin1String(name)) {
            return box;
        }
    }
    return nullptr;
}

QToolButton* buttonOf(QWidget* parent, const char* accessibleNameOrText) {
    for (QToolButton* button : parent->findChildren<QToolButton*>()) {
        if (button->isVisible() && (button->accessibleName() == QLatin1String(accessibleNameOrText) ||
                                    button->text() == QString::fromUtf8(accessibleNameOrText))) {
            return button;
        }
    }
    return nullptr;
}

// Types `text` into the field over what it holds, and enters it.
void enter(QDoubleSpinBox* box, const QString& text) {
    box->setFocus();
    box->selectAll();
    QTest::keyClicks(box, text);
    QTest::keyClick(box, Qt::Key_Return);
}

} // namespace

TEST_F(ZoomViewsTest, TheZoomEditorListsTheBeatsAndItsFieldsReachTheBeat) {
    ZoomEditor editor(*m_session);
    editor.resize(340, 560);
    editor.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&editor));
    QSignalSpy back(&editor, &ZoomEditor::backRequested);

    // Without beats: the empty state, whose "Add Zoom" adds at the playhead.
    setCamera({});
    EXPECT_TRUE(editor.rows().empty());
    const auto labels = editor.findChildren<QLabel*>();
    EXPECT_TRUE(std::any_of(labels.begin(), labels.end(), [](QLabel* label) {
        return label->isVisible() && label->text() == QLatin1String("No zooms");
    }));
    saveScreenshot(editor, "zoom-editor-empty");
    m_session->playback()->seek(0.75);
    ASSERT_NE(buttonOf(&editor, "Add Zoom"), nullptr);
    QTest::mouseClick(buttonOf(&editor, "Add Zoom"), Qt::LeftButton);
    ASSERT_EQ(project().camera.beats.size(), 1u);
    EXPECT_NEAR(project().camera.beats.front().start, 0.75, 1e-9);
    ASSERT_EQ(editor.rows().size(), 1u);
    EXPECT_TRUE(editor.rows().front()->isSelected());

    // With a cut of a second at 1 s, the rows are in time order on output time.
    const ZoomBeat director = beat(0.2, 0.9, 1.5, true);
    const ZoomBeat later = beat(2.5, 3.5, 1.8, true);
    setCamera({later, director}, {Span(Range{1.0, 2.0})});
    m_session->setSelectedBeat(std::nullopt);
    ASSERT_EQ(editor.rows().size(), 2u);
    EXPECT_EQ(editor.rows()[0]->beat().id, director.id);
    EXPECT_NEAR(editor.rows()[1]->beat().start, 1.5, 1e-9);
    EXPECT_FALSE(fieldOf(editor.rows()[1], "Start")->isVisible());

    // A tap on a row selects it and opens its fields.
    QTest::mouseClick(editor.rows()[1], Qt::LeftButton, {}, QPoint(30, 10));
    ASSERT_EQ(m_session->selectedBeat(), later.id);
    ZoomRow* row = editor.rows()[1];
    ASSERT_TRUE(fieldOf(row, "Start")->isVisible());

    // A start typed before the cut lands there in source time; the end stays where it was stored.
    enter(fieldOf(row, "Start"), "0.5");
    EXPECT_NEAR(stored(later.id).start, 0.5, 1e-9);
    EXPECT_DOUBLE_EQ(stored(later.id).end, 3.5);
    EXPECT_FALSE(stored(later.id).isGenerated);
    // An end past the movie's end stops at it: 3 s of output, the source's 4 s.
    row = editor.rows()[1];
    enter(fieldOf(row, "End"), "9");
    EXPECT_NEAR(stored(later.id).end, 4.0, 1e-9);
    // A start past the end leaves the shortest beat.
    row = editor.rows()[1];
    enter(fieldOf(row, "Start"), "5");
    EXPECT_NEAR(shown(later.id).end - shown(later.id).start, 0.3, 1e-9);
    EXPECT_NEAR(stored(later.id).start, 2.7 + 1.0, 1e-9);

    // Depth steps up to 3.0, past the director's deepest; the ramps step down to 0.05.
    row = editor.rows()[1];
    for (int i = 0; i < 40; ++i) {
        QTest::keyClick(fieldOf(row, "Depth"), Qt::Key_Up);
    }
    EXPECT_DOUBLE_EQ(stored(later.id).scale, 3.0);
    for (int i = 0; i < 20; ++i) {
        QTest::keyClick(fieldOf(row, "Ease in"), Qt::Key_Down);
    }
    EXPECT_NEAR(stored(later.id).rampIn, 0.05, 1e-9);
    EXPECT_DOUBLE_EQ(stored(later.id).rampOut, 0.35);
    EXPECT_EQ(stored(director.id), director);
    saveScreenshot(editor, "zoom-editor");

    // The row's buttons: to the beat's start on output time, selecting it; and delete.
    QTest::mouseClick(buttonOf(editor.rows()[0], "Move the playhead here"), Qt::LeftButton);
    EXPECT_NEAR(m_session->playback()->currentTime(), 0.2, 1e-9);
    EXPECT_EQ(m_session->selectedBeat(), director.id);
    QTest::mouseClick(buttonOf(editor.rows()[0], "Delete"), Qt::LeftButton);
    ASSERT_EQ(project().camera.beats.size(), 1u);
    EXPECT_EQ(project().camera.beats.front().id, later.id);
    EXPECT_EQ(editor.rows().size(), 1u);

    // A beat a cut covers whole is still listed, at the cut, and says so; its times can't be typed there.
    const ZoomBeat covered = beat(1.2, 1.8, 1.5, true);
    setCamera({covered}, {Span(Range{1.0, 2.0})});
    ASSERT_EQ(editor.rows().size(), 1u);
    const auto rowLabels = editor.rows()[0]->findChildren<QLabel*>();
    EXPECT_TRUE(std::any_of(rowLabels.begin(), rowLabels.end(), [](QLabel* label) {
        return label->text() == QString::fromUtf8("1.00 · hidden by a cut");
    }));
    EXPECT_FALSE(fieldOf(editor.rows()[0], "Start")->isEnabled());
    EXPECT_TRUE(fieldOf(editor.rows()[0], "Depth")->isEnabled());

    QTest::mouseClick(buttonOf(&editor, "Screen"), Qt::LeftButton);
    EXPECT_EQ(back.count(), 1);
}

namespace {

int redOverBlue(const QImage& image, int x, int y) {
    const QColor colour = image.pixelColor(x, y);
    return colour.red() - colour.blue();
}

} // namespace

TEST(ZoomRailDrawing, BlocksStandByDepthAndTheMarksAndPlayheadLieAtTheirTimes) {
    ZoomRail rail;
    rail.resize(400, ZoomRail::stripHeight);
    rail.setDuration(4);
    // A director's beat of the deepest scale over 100..200 px, a person's shallow one over 250..300 px.
    rail.setTrack({{beat(1.0, 2.0, 2.6, true), beat(2.5, 3.0, 1.0, false)}, CameraTrack::Style::dynamic});
    rail.setTime(3.5);
    // Marks set out first, in first: still drawn between them, over 370..390 px.
    rail.setCutMarks(3.9, 3.7);
    QImage image = rail.grab().toImage();
    const QColor base = image.pixelColor(50, 30);

    // The deepest beat fills the strip in the accent colour; the shallow one stands low on the bottom edge.
    EXPECT_NE(image.pixelColor(150, 4), base);
    EXPECT_NE(image.pixelColor(150, 58), base);
    EXPECT_LT(redOverBlue(image, 150, 30), redOverBlue(image, 50, 30));
    EXPECT_GT(redOverBlue(image, 275, 58), redOverBlue(image, 50, 30) + 60);
    EXPECT_EQ(image.pixelColor(275, 30), base);
    // The playhead is orange at its time and 2 wide; the cut mark is tinted orange between its ends.
    EXPECT_EQ(image.pixelColor(350, 30), QColor(0xF2, 0x8C, 0x28));
    EXPECT_EQ(image.pixelColor(352, 30), base);
    EXPECT_GT(redOverBlue(image, 380, 30), redOverBlue(image, 50, 30) + 20);
    EXPECT_EQ(image.pixelColor(365, 30), base);
    EXPECT_EQ(image.pixelColor(395, 30), base);

    // A mark of no length is still a pixel wide.
    rail.setCutMarks(0.25, 0.25);
    image = rail.grab().toImage();
    EXPECT_GT(redOverBlue(image, 25, 30), redOverBlue(image, 50, 30) + 20);
    EXPECT_EQ(image.pixelColor(27, 30), base);

    // Standing for no time, everything lies at x 0: the blocks have no width, the playhead is at the edge.
    rail.setCutMarks(std::nullopt, std::nullopt);
    rail.setDuration(0);
    EXPECT_DOUBLE_EQ(rail.fraction(3.5), 0.0);
    image = rail.grab().toImage();
    EXPECT_EQ(image.pixelColor(150, 4), image.pixelColor(50, 30));
    EXPECT_EQ(image.pixelColor(275, 58), image.pixelColor(50, 30));
    EXPECT_GT(redOverBlue(image, 0, 30), redOverBlue(image, 50, 30) + 60);
}
