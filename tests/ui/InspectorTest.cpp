#include "ui/Inspector.h"
#include "capture/X11ScreenCapturer.h"
#include "playback/PreviewPlayer.h"
#include "session/EditorSession.h"
#include "support/TempDir.h"
#include "support/WalkingTake.h"
#include "trajectory/NewRecording.h"
#include "ui/CaptionCueList.h"
#include "ui/CanvasPreview.h"
#include "ui/CanvasWidget.h"
#include "ui/InspectorAudioTab.h"
#include "ui/InspectorScreenTab.h"
#include "ui/InspectorSlider.h"
#include "ui/MainWindow.h"
#include "ui/WindowTestSupport.h"

#include <QApplication>
#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QSlider>
#include <QStyle>
#include <QStyleOptionSlider>
#include <QTabBar>
#include <QTest>
#include <QToolButton>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <deque>
#include <functional>
#include <thread>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

// The text a control is known by: a slider's label, a button's or toggle's text, else its accessible name.
QString labelOf(QWidget* widget) {
    if (auto* slider = qobject_cast<InspectorSlider*>(widget)) {
        return slider->label();
    }
    if (auto* button = qobject_cast<QAbstractButton*>(widget); button && !button->text().isEmpty()) {
        return button->text();
    }
    return widget->accessibleName();
}

// The control of type T labelled `label` in the section titled `section` of `page`; fails the test if
// there isn't exactly one.
template <class T> T* control(InspectorPage* page, const QString& section, const QString& label) {
    QGroupBox* box = page->section(section);
    EXPECT_NE(box, nullptr) << section.toStdString();
    if (!box) {
        return nullptr;
    }
    std::vector<T*> found;
    for (T* candidate : box->findChildren<T*>()) {
        if (labelOf(candidate) == label) {
            found.push_back(candidate);
        }
    }
    EXPECT_EQ(found.size(), 1u) << section.toStdString() << " / " << label.toStdString();
    return found.size() == 1 ? found.front() : nullptr;
}

// The label showing exactly this text in the section, or null.
QLabel* shownLabel(InspectorPage* page, const QString& section, const QString& text) {
    QGroupBox* box = page->section(section);
    if (!box) {
        return nullptr;
    }
    for (QLabel* label : box->findChildren<QLabel*>()) {
        if (label->text() == text && label->isVisibleTo(page)) {
            return label;
        }
    }
    return nullptr;
}

bool showsText(InspectorPage* page, const QString& section, const QString& text) {
    return shownLabel(page, section, text) != nullptr;
}

// The person picks the entry with this text, as from the picker's list.
void choose(QComboBox* picker, const QString& text) {
    const int index = picker->findText(text);
    ASSERT_GE(index, 0) << text.toStdString();
    picker->setCurrentIndex(index);
    emit picker->activated(index);
}

// The slider's own keys: End to the top of its range, Home to the bottom.
void press(InspectorSlider* slider, Qt::Key key) {
    QTest::keyClick(slider->slider(), key);
}

// The picture of a whole tab: the tab bar over the tab's full column, scrolled part included.
void saveTabScreenshot(Inspector& inspector, QWidget& column, const std::string& name) {
    const QPixmap bar = inspector.findChild<QTabBar*>()->grab();
    const QPixmap content = column.grab();
    QImage picture(std::max(bar.width(), content.width()), bar.height() + content.height(),
                   QImage::Format_ARGB32);
    picture.fill(inspector.palette().color(QPalette::Window));
    QPainter painter(&picture);
    painter.drawPixmap(0, 0, bar);
    painter.drawPixmap(0, bar.height(), content);
    painter.end();
    fs::create_directories(MARLOWICK_SCREENSHOTS);
    const fs::path path = fs::path(MARLOWICK_SCREENSHOTS) / (name + ".png");
    EXPECT_TRUE(picture.save(QString::fromStdString(path.string()))) << path;
}

class InspectorTest : public ::testing::Test {
protected:
    // A 4 s take at 320x180 and 10 frames a second with a tone, a pointer walk and a click every second,
    // and 6 s of music beside it.
    static void SetUpTestSuite() {
        s_dir = new TempDir;
        const std::string take = "ffmpeg -v error -y -f lavfi -i testsrc2=size=320x180:rate=10 -f lavfi -i "
                                 "sine=frequency=300:sample_rate=48000 -t 4 -c:v libx264 -pix_fmt yuv420p "
                                 "-c:a aac '" +
                                 (*s_dir / "take.mp4").string() + "'";
        ASSERT_EQ(std::system(take.c_str()), 0) << take;
        const std::string music = "ffmpeg -v error -y -f lavfi -i sine=frequency=520:sample_rate=48000 -t 6 "
                                  "-c:a aac '" +
                                  (*s_dir / "Morning Walk.m4a").string() + "'";
        ASSERT_EQ(std::system(music.c_str()), 0) << music;
        documentForNewRecording(walkingTake(*s_dir / "take.mp4", 4, {40, 30}, {6, 12}), "Demo")
            .write(*s_dir / "Demo.marlowick");
    }
    static void TearDownTestSuite() {
        delete s_dir;
        s_dir = nullptr;
    }

    void SetUp() override {
        auto panels = std::make_unique<QueuedPanels>();
        m_panels = panels.get();
        // No sound server at that address: the player's silent clock, as on a machine without sound.
        m_session = std::make_unique<EditorSession>(
            std::move(panels),
            [] { return std::make_unique<PreviewPlayer>("unix:/nonexistent/marlowick-test"); },
            [] { return std::make_unique<X11ScreenCapturer>(); }, nullptr);
        m_window = std::make_unique<MainWindow>(*m_session);
        m_window->resize(1100, 720);
        m_window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(m_window.get()));
        m_panels->packagesToOpen.push_back(*s_dir / "Demo.marlowick");
        m_session->open();
        ASSERT_TRUE(within(10, [&] { return m_session->playback()->videoOutput() != nullptr; }));
        ASSERT_TRUE(within(10, [&] { return m_session->audioTrackCount().has_value(); }));
        m_inspector = m_window->inspector();
        ASSERT_TRUE(m_inspector->isVisible());
        m_screen = m_inspector->screenTab();
        m_audio = m_inspector->audioTab();
    }
    void TearDown() override {
        m_window.reset();
        m_session.reset();
    }

    const Project& project() const { return m_session->document()->project; }

    // Waits until no preview mix is being rendered or waiting to be.
    void settlePreview() {
        ASSERT_TRUE(within(30, [&] { return !m_session->isRenderingAudioPreview(); }));
        QTest::qWait(500);
        ASSERT_TRUE(within(30, [&] { return !m_session->isRenderingAudioPreview(); }));
    }

    static TempDir* s_dir;
    QueuedPanels* m_panels = nullptr;
    std::unique_ptr<EditorSession> m_session;
    std::unique_ptr<MainWindow> m_window;
    Inspector* m_inspector = nullptr;
    InspectorScreenTab* m_screen = nullptr;
    InspectorAudioTab* m_audio = nullptr;
};

TempDir* InspectorTest::s_dir = nullptr;

struct SliderRow {
    const char* section;
    const char* label;
    double low;
    double high;
    std::function<double(const Project&)> field;
};

// Moves each slider of the rows to both ends and to the middle, checking what reached the project.
void moveEachSlider(InspectorPage* page, const std::vector<SliderRow>& rows,
                    const std::function<const Project&()>& project) {
    for (const SliderRow& row : rows) {
        SCOPED_TRACE(std::string(row.section) + " / " + row.label);
        InspectorSlider* slider = control<InspectorSlider>(page, row.section, row.label);
        ASSERT_NE(slider, nullptr);
        EXPECT_TRUE(slider->isVisibleTo(page));
        press(slider, Qt::Key_End);
        EXPECT_NEAR(row.field(project()), row.high, 1e-9);
        press(slider, Qt::Key_Home);
        EXPECT_NEAR(row.field(project()), row.low, 1e-9);
        slider->slider()->setValue(slider->slider()->maximum() / 2);
        EXPECT_NEAR(row.field(project()), (row.low + row.high) / 2, 1e-9);
        EXPECT_NEAR(slider->value(), (row.low + row.high) / 2, 1e-9);
    }
}

} // namespace

TEST_F(InspectorTest, TheScreenTabsSlidersWriteTheirFields) {
    const ZoomBeat beat = project().camera.beats.at(0);
    ASSERT_TRUE(beat.isGenerated);
    // The selected zoom's section is there only while a beat of the track is selected.
    EXPECT_FALSE(m_screen->section("Selected zoom")->isVisibleTo(m_screen));
    m_session->setSelectedBeat(Uuid::random());
    EXPECT_FALSE(m_screen->section("Selected zoom")->isVisibleTo(m_screen));
    m_session->setSelectedBeat(beat.id);
    EXPECT_TRUE(m_screen->section("Selected zoom")->isVisibleTo(m_screen));
    const auto selectedBeat = [this, id = beat.id](const Project& p) {
        for (const ZoomBeat& candidate : p.camera.beats) {
            if (candidate.id == id) {
                return candidate;
            }
        }
        ADD_FAILURE() << "the selected beat is gone";
        return ZoomBeat{};
    };

    QSignalSpy cursors(m_session.get(), &EditorSession::cursorSamplerChanged);
    moveEachSlider(
        m_screen,
        {
            {"Format", "Across", 0, 1, [](const Project& p) { return p.canvas.contentAnchor.x; }},
            {"Format", "Down", 0, 1, [](const Project& p) { return p.canvas.contentAnchor.y; }},
            {"Selected zoom", "Depth", 1.05, 3.0, [&](const Project& p) { return selectedBeat(p).scale; }},
            {"Selected zoom", "Ease in", 0.05, 1.5, [&](const Project& p) { return selectedBeat(p).rampIn; }},
            {"Selected zoom", "Ease out", 0.05, 1.5,
             [&](const Project& p) { return selectedBeat(p).rampOut; }},
            {"Perspective", "Tilt X", -25, 25, [](const Project& p) { return p.canvas.tilt.x; }},
            {"Perspective", "Tilt Y", -25, 25, [](const Project& p) { return p.canvas.tilt.y; }},
            {"Cursor", "Smoothing", 0, 1, [](const Project& p) { return p.cursor.smoothing; }},
            {"Cursor", "Size", 0.5, 2.5, [](const Project& p) { return p.cursor.scale; }},
        },
        [this]() -> const Project& { return project(); });
    // A beat moved by hand is the person's, and keeps its place; the cursor was rebuilt at each move.
    EXPECT_FALSE(selectedBeat(project()).isGenerated);
    EXPECT_EQ(selectedBeat(project()).start, beat.start);
    EXPECT_GE(cursors.count(), 6);
    EXPECT_TRUE(showsText(m_screen, "Format", "50% across, 50% down"));
    EXPECT_TRUE(showsText(m_screen, "Perspective", "0° / 0°"));
    // Its timing reads on the finished movie's clock, as the rail and the zoom list do: a beat running past
    // the recording's end ends with it, a cut inside the beat shortens it, and a cut over the whole of it
    // hides it, which the section says.
    const ZoomBeat edited = selectedBeat(project());
    const std::optional<ZoomBeat> shown = project().effectiveTrim().apply(edited);
    ASSERT_TRUE(shown);
    EXPECT_TRUE(
        showsText(m_screen, "Selected zoom", QString::asprintf("%.2fs – %.2fs", shown->start, shown->end)));
    m_session->editProject(
        [&](Project& p) { p.manualCuts.push_back(Span(Range{edited.start + 0.1, edited.start + 0.35})); });
    const std::optional<ZoomBeat> shortened = project().effectiveTrim().apply(edited);
    ASSERT_TRUE(shortened);
    EXPECT_NEAR(shortened->end, shown->end - 0.25, 1e-9);
    EXPECT_TRUE(showsText(m_screen, "Selected zoom",
                          QString::asprintf("%.2fs – %.2fs", shortened->start, shortened->end)));
    m_session->editProject([&](Project& p) {
        p.manualCuts = {Span(Range{std::max(edited.start - 0.1, 0.0), edited.end + 0.1})};
    });
    EXPECT_TRUE(showsText(m_screen, "Selected zoom",
                          QString::asprintf("%.2fs · hidden by a cut", std::max(edited.start - 0.1, 0.0))));
    m_window->resize(1100, 720);
    QTest::qWait(50);
    saveTabScreenshot(*m_inspector, *m_screen, "inspector-screen");
    m_session->editProject([](Project& p) { p.manualCuts.clear(); });

    // The zoom goes with its button, and its section with it.
    const std::size_t beats = project().camera.beats.size();
    control<QPushButton>(m_screen, "Selected zoom", "Delete Zoom")->click();
    EXPECT_EQ(project().camera.beats.size(), beats - 1);
    EXPECT_TRUE(std::none_of(project().camera.beats.begin(), project().camera.beats.end(),
                             [&](const ZoomBeat& b) { return b.id == beat.id; }));
    EXPECT_FALSE(m_screen->section("Selected zoom")->isVisibleTo(m_screen));
}

TEST_F(InspectorTest, FormatDeviceAndPerspectiveFollowTheirRules) {
    // Fit hides the anchor and keeps it; Centre puts it back in the middle in fill mode.
    InspectorSlider* across = control<InspectorSlider>(m_screen, "Format", "Across");
    press(across, Qt::Key_End);
    choose(control<QComboBox>(m_screen, "Format", "Framing"), "Show everything");
    EXPECT_EQ(project().canvas.contentMode, ContentMode::fit);
    EXPECT_FALSE(across->isVisibleTo(m_screen));
    EXPECT_TRUE(showsText(m_screen, "Format", "Keeps the whole screen visible, with space around it."));
    EXPECT_EQ(project().canvas.contentAnchor.x, 1.0);
    choose(control<QComboBox>(m_screen, "Format", "Framing"), "Fill the frame");
    EXPECT_TRUE(across->isVisibleTo(m_screen));
    EXPECT_TRUE(showsText(m_screen, "Format", "100% across, 50% down"));
    control<QPushButton>(m_screen, "Format", "Centre")->click();
    EXPECT_EQ(project().canvas.contentAnchor.x, 0.5);
    EXPECT_EQ(project().canvas.contentAnchor.y, 0.5);
    choose(control<QComboBox>(m_screen, "Format", "Shape"), "Classic 4:3");
    EXPECT_EQ(project().canvas.ratio, AspectRatio::classic);

    // The take is 16:9: a phone letterboxes it and says so, a 16:9 display doesn't, None takes it away.
    QComboBox* frame = control<QComboBox>(m_screen, "Device", "Frame");
    const QString warning = "Recording is 1.78:1, this screen is 0.46:1 — it will letterbox.";
    choose(frame, "iPhone Pro");
    ASSERT_TRUE(project().canvas.deviceFrame);
    EXPECT_EQ(*project().canvas.deviceFrame, DeviceFrame::iPhonePro());
    QLabel* warningLabel = shownLabel(m_screen, "Device", warning);
    ASSERT_NE(warningLabel, nullptr);
    // Its wrapped lines get the height they need once the panel is laid out again.
    QTest::qWait(20);
    EXPECT_GE(warningLabel->height(), warningLabel->heightForWidth(warningLabel->width()));
    choose(frame, "Studio Display");
    EXPECT_EQ(project().canvas.deviceFrame->id, "studio-display");
    EXPECT_FALSE(showsText(m_screen, "Device", warning));
    choose(frame, "iPhone Pro");
    choose(frame, "None");
    EXPECT_FALSE(project().canvas.deviceFrame);
    EXPECT_FALSE(showsText(m_screen, "Device", warning));

    // Reset stands only while there is a tilt.
    QPushButton* reset = control<QPushButton>(m_screen, "Perspective", "Reset");
    EXPECT_FALSE(reset->isEnabled());
    press(control<InspectorSlider>(m_screen, "Perspective", "Tilt Y"), Qt::Key_Home);
    EXPECT_TRUE(reset->isEnabled());
    EXPECT_TRUE(showsText(m_screen, "Perspective", "0° / -25°"));
    reset->click();
    EXPECT_EQ(project().canvas.tilt.y, 0);
    EXPECT_FALSE(reset->isEnabled());

    // The recording's facts, and the zoom style with its summary.
    EXPECT_EQ(control<QLabel>(m_screen, "Recording", "Length")->text(), "0:04");
    EXPECT_EQ(control<QLabel>(m_screen, "Recording", "Source")->text(), "320×180");
    choose(control<QComboBox>(m_screen, "Auto-zoom", "Style"), "Cinematic");
    EXPECT_EQ(project().camera.style, CameraTrack::Style::cinematic);
    EXPECT_TRUE(showsText(m_screen, "Auto-zoom", "Close and deliberate, up to 2.6×."));
    choose(control<QComboBox>(m_screen, "Auto-zoom", "Style"), "Full UI");
    EXPECT_TRUE(project().camera.beats.empty());
    control<QPushButton>(m_screen, "Auto-zoom", "Regenerate")->click();
    EXPECT_TRUE(project().camera.beats.empty());

    // The zoom editor takes the tab's place, from either tab, until its way back is taken.
    auto* editor = new QPushButton("Back to the sections");
    QObject::connect(editor, &QPushButton::clicked, m_inspector, &Inspector::showSections);
    m_inspector->setZoomEditor(editor);
    QSignalSpy showing(m_inspector, &Inspector::showingZoomsChanged);
    control<QPushButton>(m_screen, "Auto-zoom", "Zooms")->click();
    EXPECT_TRUE(m_inspector->showingZooms());
    EXPECT_TRUE(editor->isVisible());
    EXPECT_FALSE(m_screen->isVisible());
    editor->click();
    EXPECT_FALSE(m_inspector->showingZooms());
    EXPECT_FALSE(editor->isVisible());
    EXPECT_TRUE(m_screen->isVisible());
    m_inspector->setTab(Inspector::Tab::audio);
    control<QPushButton>(m_screen, "Auto-zoom", "Zooms")->click();
    EXPECT_EQ(m_inspector->tab(), Inspector::Tab::screen);
    EXPECT_TRUE(editor->isVisible());
    ASSERT_EQ(showing.count(), 3);
    EXPECT_TRUE(showing[2][0].toBool());
}

TEST_F(InspectorTest, CutsAreMarkedAtThePlayheadRemovedAndRestored) {
    PlaybackEngine* playback = m_session->playback();
    QPushButton* setIn = control<QPushButton>(m_screen, "Cut", "Set In");
    QPushButton* setOut = control<QPushButton>(m_screen, "Cut", "Set Out");
    QPushButton* remove = control<QPushButton>(m_screen, "Cut", "Remove");
    QPushButton* clear = control<QPushButton>(m_screen, "Cut", "Clear");
    const auto restoreButtons = [&] {
        int shown = 0;
        for (QToolButton* button : m_screen->section("Cut")->findChildren<QToolButton*>()) {
            shown += button->accessibleName() == "Restore this stretch" && button->isVisibleTo(m_screen);
        }
        return shown;
    };
    const auto restoreAllShown = [&] {
        for (QPushButton* button : m_screen->section("Cut")->findChildren<QPushButton*>()) {
            if (button->text() == "Restore All" && button->isVisibleTo(m_screen)) {
                return true;
            }
        }
        return false;
    };
    EXPECT_EQ(restoreButtons(), 0);
    EXPECT_FALSE(restoreAllShown());
    EXPECT_FALSE(remove->isEnabled());
    EXPECT_TRUE(
        showsText(m_screen, "Cut",
                  "Drag the playhead on the rail under the video, press Set In, move it further along, "
                  "press Set Out, then Remove."));

    // Each click reads the playhead as it is at that moment.
    playback->seek(1.0);
    setIn->click();
    EXPECT_TRUE(showsText(m_screen, "Cut", "In at 1.00s — now move the playhead and Set Out."));
    playback->seek(1.04);
    setOut->click();
    EXPECT_FALSE(remove->isEnabled());
    playback->seek(1.06);
    setOut->click();
    EXPECT_TRUE(remove->isEnabled());
    EXPECT_TRUE(showsText(m_screen, "Cut", "Selected 1.00s – 1.06s (0.06s)"));

    // Marked backwards, the text still reads in order.
    clear->click();
    EXPECT_FALSE(m_session->selectionStart());
    playback->seek(1.0);
    setOut->click();
    playback->seek(2.0);
    setIn->click();
    EXPECT_TRUE(showsText(m_screen, "Cut", "Selected 1.00s – 2.00s (1.00s)"));
    QSignalSpy cutWaveforms(m_session.get(), &EditorSession::waveformChanged);
    remove->click();
    EXPECT_TRUE(within(10, [&] { return cutWaveforms.count() > 0; }));
    ASSERT_EQ(project().manualCuts.size(), 1u);
    EXPECT_NEAR(project().manualCuts[0].start, 1.0, 1e-9);
    EXPECT_NEAR(project().manualCuts[0].end, 2.0, 1e-9);
    EXPECT_FALSE(m_session->selectionStart());
    EXPECT_TRUE(showsText(m_screen, "Cut", "1.00s – 2.00s"));
    EXPECT_EQ(restoreButtons(), 1);
    EXPECT_TRUE(restoreAllShown());

    // Restoring one row puts its stretch back and rebuilds the waveform over the longer timeline.
    QSignalSpy waveforms(m_session.get(), &EditorSession::waveformChanged);
    for (QToolButton* button : m_screen->section("Cut")->findChildren<QToolButton*>()) {
        if (button->accessibleName() == "Restore this stretch" && button->isVisibleTo(m_screen)) {
            button->click();
            break;
        }
    }
    EXPECT_TRUE(project().manualCuts.empty());
    EXPECT_EQ(restoreButtons(), 0);
    EXPECT_FALSE(restoreAllShown());
    EXPECT_TRUE(within(10, [&] { return waveforms.count() > 0; }));

    // Two cuts, then Restore All.
    for (const auto& [from, to] : {std::pair{0.5, 1.0}, std::pair{2.5, 3.0}}) {
        playback->seek(from);
        setIn->click();
        playback->seek(to);
        setOut->click();
        remove->click();
    }
    ASSERT_EQ(project().manualCuts.size(), 2u);
    EXPECT_EQ(restoreButtons(), 2);
    control<QPushButton>(m_screen, "Cut", "Restore All")->click();
    EXPECT_TRUE(project().manualCuts.empty());
    EXPECT_EQ(restoreButtons(), 0);
    EXPECT_FALSE(restoreAllShown());
}

TEST_F(InspectorTest, TheBackgroundAndShapeShowInThePreviewAtTheNextRefresh) {
    m_session->playback()->pause();
    m_session->playback()->seek(1.25);
    CanvasWidget* canvas = m_window->editor()->canvas();
    ASSERT_TRUE(within(10, [&] { return canvas->shownFrame().has_value(); }));

    // Inside the canvas's rounded corner, where the background shows.
    const auto cornerOf = [&] {
        const QImage grabbed = canvas->grabFramebuffer();
        return grabbed.pixelColor(12, 12);
    };
    // A swatch: its colour at the corner, and the swatch marked as the chosen one.
    QToolButton* slate = control<QToolButton>(m_screen, "Background", "Slate");
    slate->click();
    EXPECT_TRUE(slate->isChecked());
    EXPECT_EQ(cornerOf(), QColor("#2C3038"));

    // A custom colour, through the colour dialog.
    control<QPushButton>(m_screen, "Background", "Custom colour")->click();
    QColorDialog* dialog = m_screen->colourDialog();
    ASSERT_NE(dialog, nullptr);
    dialog->setCurrentColor(QColor("#2EA043"));
    dialog->accept();
    const auto* solid = std::get_if<Background::Solid>(&project().canvas.background.value);
    ASSERT_NE(solid, nullptr);
    EXPECT_EQ(solid->hex, "#2EA043");
    EXPECT_FALSE(slate->isChecked());
    EXPECT_EQ(cornerOf(), QColor("#2EA043"));

    // A gradient swatch stores the gradient itself.
    control<QToolButton>(m_screen, "Background", "Sunset")->click();
    const auto* gradient = std::get_if<Background::LinearGradient>(&project().canvas.background.value);
    ASSERT_NE(gradient, nullptr);
    EXPECT_EQ(gradient->from, "#FF512F");
    EXPECT_EQ(gradient->angle, 90);

    // The square shape: the canvas turns square, and the exports offered follow it.
    choose(control<QComboBox>(m_screen, "Format", "Shape"), "Square 1:1");
    QApplication::processEvents();
    EXPECT_NEAR(canvas->width(), canvas->height(), 1);
    const auto exportButtons = [&] {
        std::vector<QString> names;
        for (QPushButton* button : m_screen->section("Export")->findChildren<QPushButton*>()) {
            if (!button->accessibleName().isEmpty() && button->isVisibleTo(m_screen)) {
                names.push_back(button->accessibleName());
            }
        }
        return names;
    };
    EXPECT_EQ(exportButtons(), std::vector<QString>{"Square"});
    auto* others = control<QToolButton>(m_screen, "Export", "Other shapes");
    others->click();
    EXPECT_EQ(exportButtons().size(), ExportPreset::all().size());
    EXPECT_TRUE(showsText(m_screen, "Export",
                          "These do not match the preview. The recording is fitted, never cropped."));

    // Transparent: the note asks for an alpha export.
    const QString transparentNote = "Transparent canvas — pick an Alpha export to keep it.";
    EXPECT_FALSE(showsText(m_screen, "Export", transparentNote));
    control<QToolButton>(m_screen, "Background", "Transparent")->click();
    EXPECT_TRUE(project().canvas.background.isTransparent());
    EXPECT_TRUE(showsText(m_screen, "Export", transparentNote));
}

TEST_F(InspectorTest, AnExportFromThePanelIsShownAsTheLastExport) {
    auto* first = control<QPushButton>(m_screen, "Export", "720p");
    ASSERT_NE(first, nullptr);
    // A cancelled panel starts nothing.
    first->click();
    EXPECT_EQ(m_session->phase().kind(), SessionPhase::Kind::editing);
    m_panels->filesToSave.push_back(*s_dir / "Demo-inspector.mp4");
    first->click();
    EXPECT_EQ(m_session->phase().kind(), SessionPhase::Kind::exporting);
    ASSERT_TRUE(within(120, [&] { return m_session->phase().kind() == SessionPhase::Kind::editing; }));
    EXPECT_TRUE(fs::exists(*s_dir / "Demo-inspector.mp4"));
    EXPECT_TRUE(showsText(m_screen, "Export", "Last export: Demo-inspector.mp4"));
    EXPECT_TRUE(control<QPushButton>(m_screen, "Export", "Show in Folder")->isVisibleTo(m_screen));
}

TEST_F(InspectorTest, TheAudioTabsControlsWriteTheMix) {
    m_inspector->setTab(Inspector::Tab::audio);
    const auto audio = [this]() -> const AudioSettings& { return project().audio; };
    // The take has system sound and no microphone.
    EXPECT_TRUE(showsText(m_audio, "Sources", QString::fromStdString(*m_session->audioWarning())));
    EXPECT_TRUE(showsText(m_audio, "Sources", "Requested: system · in the file: 1 audio track(s)"));

    // Toggles first, since some sliders stand only while their toggle is on.
    InspectorSlider* tick = control<InspectorSlider>(m_audio, "Clicks", "Tick level");
    EXPECT_FALSE(tick->isVisibleTo(m_audio));
    EXPECT_TRUE(showsText(m_audio, "Clicks", "A soft tick at each of your 4 real clicks"));
    control<QCheckBox>(m_audio, "Clicks", "Click sounds")->click();
    EXPECT_TRUE(audio().clickSounds);
    EXPECT_TRUE(tick->isVisibleTo(m_audio));
    control<QCheckBox>(m_audio, "Voice", "Normalise")->click();
    EXPECT_FALSE(audio().normalize);
    QCheckBox* enhance = control<QCheckBox>(m_audio, "Voice", "Enhance");
    enhance->click();
    EXPECT_FALSE(audio().enhanceVoice);
    EXPECT_FALSE(control<InspectorSlider>(m_audio, "Voice", "Noise")->isVisibleTo(m_audio));
    enhance->click();
    EXPECT_TRUE(audio().enhanceVoice);

    moveEachSlider(m_audio,
                   {
                       {"Voice", "Noise", 0, 1, [](const Project& p) { return p.audio.noiseReduction; }},
                       {"Voice", "Presence", 0, 1, [](const Project& p) { return p.audio.presence; }},
                       {"Voice", "Levelling", 0, 1, [](const Project& p) { return p.audio.compression; }},
                       {"Voice", "Voice level", 0, 2, [](const Project& p) { return p.audio.voiceGain; }},
                       {"Voice", "System level", 0, 2, [](const Project& p) { return p.audio.systemGain; }},
                       {"Voice", "Duck system", 0, 1, [](const Project& p) { return p.audio.ducking; }},
                       {"Clicks", "Tick level", 0, 1, [](const Project& p) { return p.audio.clickGain; }},
                   },
                   [this]() -> const Project& { return project(); });

    // Music: chosen through the file panel, then each of its controls.
    EXPECT_FALSE(control<InspectorSlider>(m_audio, "Music", "Level")->isVisibleTo(m_audio));
    m_panels->filesToChoose.push_back(*s_dir / "Morning Walk.m4a");
    control<QPushButton>(m_audio, "Music", "Add Music…")->click();
    ASSERT_TRUE(audio().music);
    EXPECT_EQ(control<QLabel>(m_audio, "Music", "Track")->text(), "Morning Walk");
    EXPECT_FALSE(control<QPushButton>(m_audio, "Music", "Add Music…")->isVisibleTo(m_audio));
    moveEachSlider(m_audio,
                   {
                       {"Music", "Level", 0, 1, [](const Project& p) { return p.audio.music->gain; }},
                       {"Music", "Duck under voice", 0, 1,
                        [](const Project& p) { return p.audio.music->duckUnderVoice; }},
                       {"Music", "Fade in", 0, 5, [](const Project& p) { return p.audio.music->fadeIn; }},
                       {"Music", "Fade out", 0, 8, [](const Project& p) { return p.audio.music->fadeOut; }},
                   },
                   [this]() -> const Project& { return project(); });
    control<QCheckBox>(m_audio, "Music", "Loop to fill")->click();
    EXPECT_FALSE(audio().music->loops);
    EXPECT_EQ(audio().music->name, "Morning Walk");
    control<QPushButton>(m_audio, "Music", "Remove Music")->click();
    EXPECT_FALSE(audio().music);
    EXPECT_TRUE(control<QPushButton>(m_audio, "Music", "Add Music…")->isVisibleTo(m_audio));

    // Silence: switching it on runs the first analysis, shown while it runs; the tone has no pause to cut.
    // A short tone can be analysed before the click returns, so what shows is looked at as it starts.
    InspectorSlider* sensitivity = control<InspectorSlider>(m_audio, "Trim silence", "Sensitivity");
    EXPECT_FALSE(sensitivity->isVisibleTo(m_audio));
    int analyses = 0;
    bool shownWhileAnalysing = false;
    const QMetaObject::Connection watch =
        QObject::connect(m_session.get(), &EditorSession::isAnalysingSilenceChanged, [&](bool analysing) {
            if (analysing) {
                ++analyses;
                shownWhileAnalysing =
                    showsText(m_audio, "Trim silence", "Analysing audio…") &&
                    !control<QPushButton>(m_audio, "Trim silence", "Re-analyse")->isVisibleTo(m_audio);
            }
        });
    control<QCheckBox>(m_audio, "Trim silence", "Remove dead air")->click();
    EXPECT_TRUE(audio().silence.isEnabled);
    ASSERT_TRUE(within(30, [&] { return !m_session->isAnalysingSilence(); }));
    QObject::disconnect(watch);
    EXPECT_EQ(analyses, 1);
    EXPECT_TRUE(shownWhileAnalysing);
    EXPECT_FALSE(showsText(m_audio, "Trim silence", "Analysing audio…"));
    EXPECT_TRUE(control<QPushButton>(m_audio, "Trim silence", "Re-analyse")->isVisibleTo(m_audio));
    moveEachSlider(m_audio,
                   {
                       {"Trim silence", "Sensitivity", 0.02, 0.3,
                        [](const Project& p) { return p.audio.silence.threshold; }},
                       {"Trim silence", "Shortest gap", 0.3, 3.0,
                        [](const Project& p) { return p.audio.silence.minimumSilence; }},
                   },
                   [this]() -> const Project& { return project(); });
    EXPECT_TRUE(
        showsText(m_audio, "Trim silence",
                  QString::asprintf("Gaps under %.1fs are left alone.", audio().silence.minimumSilence)));
    EXPECT_EQ(audio().silence.padding, SilenceTrim{}.padding);
}

TEST_F(InspectorTest, ACaptionsMisheardWordsAreCorrectedSplitMergedAndDeletedOneEditEach) {
    m_inspector->setTab(Inspector::Tab::audio);
    m_window->resize(1100, 720);
    // What the recogniser heard, in two cues; a cut of 0.2 s before the second moves it earlier.
    const CaptionTrack::Cue first{Uuid::random(), CaptionTrack::spreadWords("This is a tape", 0.5, 1.5)};
    const CaptionTrack::Cue second{Uuid::random(), CaptionTrack::spreadWords("recorded by my leg", 2.0, 3.0)};
    m_session->editProject([&](Project& p) {
        p.captions = CaptionTrack{{first, second}, CaptionStyle{}, true};
        p.manualCuts = {Span(Range{1.6, 1.8})};
    });
    auto* list = m_audio->findChild<CaptionCueList*>();
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->fields().size(), 2u);
    EXPECT_EQ(list->fields()[1]->text().toStdString(), "recorded by my leg");

    // A spelling fixed keeps every word's time.
    QLineEdit* field = list->fields()[0];
    field->setFocus();
    field->selectAll();
    QTest::keyClicks(field, "This is a take");
    QTest::keyClick(field, Qt::Key_Return);
    const auto cues = [&] { return project().captions->cues; };
    EXPECT_EQ(cues()[0].text(), "This is a take");
    EXPECT_EQ(cues()[0].words[3].start, first.words[3].start);
    EXPECT_EQ(m_session->undoName(), "Edit Caption");

    // A click on the second cue's time moves the playhead to it on the finished video, 1.8 s.
    list->button(1, "Move the playhead here")->click();
    EXPECT_NEAR(m_session->playback()->currentTime(), 1.8, 1e-9);
    // Split there between "recorded by" and "my leg", the two halves merged again, then one deleted.
    m_session->playback()->seek(2.45);
    list->button(1, "Split at the playhead")->click();
    ASSERT_EQ(cues().size(), 3u);
    EXPECT_EQ(cues()[1].text(), "recorded by");
    EXPECT_EQ(cues()[2].text(), "my leg");
    ASSERT_EQ(list->fields().size(), 3u);
    list->button(1, "Merge with the next")->click();
    ASSERT_EQ(cues().size(), 2u);
    EXPECT_EQ(cues()[1].text(), "recorded by my leg");
    EXPECT_FALSE(list->button(1, "Merge with the next")->isEnabled());
    QTest::qWait(50);
    saveTabScreenshot(*m_inspector, *m_audio, "inspector-captions");
    list->button(0, "Delete")->click();
    ASSERT_EQ(cues().size(), 1u);

    // Each was one step: four undos give the cues as heard.
    for (int step = 0; step < 4; ++step) {
        m_session->undo();
    }
    EXPECT_EQ(cues(), (std::vector<CaptionTrack::Cue>{first, second}));
}

TEST_F(InspectorTest, CaptionsOfferTheInstalledLanguagesThenStyleTheTrack) {
    m_inspector->setTab(Inspector::Tab::audio);
    const EditorSession::Locales& locales = m_session->captionLocales();
    QPushButton* generate = control<QPushButton>(m_audio, "Captions", "Generate Captions");
    EXPECT_TRUE(generate->isEnabled());
    QComboBox* language = control<QComboBox>(m_audio, "Captions", "Language");
    // This machine has a speech model installed: its languages are offered, the chosen one shown.
    ASSERT_FALSE(locales.empty());
    EXPECT_TRUE(language->isVisibleTo(m_audio));
    EXPECT_EQ(language->count(), static_cast<int>(locales.size()));
    EXPECT_EQ(language->currentText(), QString::fromStdString(m_session->captionLocale().displayName()));
    choose(language, QString::fromStdString(locales.back().displayName()));
    EXPECT_EQ(m_session->captionLocale(), locales.back());

    // While transcribing only the progress shows.
    generate->click();
    EXPECT_TRUE(m_session->isTranscribing());
    EXPECT_TRUE(showsText(m_audio, "Captions", "Transcribing on device…"));
    EXPECT_FALSE(generate->isVisibleTo(m_audio));
    ASSERT_TRUE(within(60, [&] { return !m_session->isTranscribing(); }));
    EXPECT_EQ(generate->isVisibleTo(m_audio), !project().captions.has_value());

    // With a track, its own controls in place of all that.
    m_session->editProject([](Project& p) {
        CaptionTrack track;
        track.cues = CaptionTrack::cuesFromWords(
            {{"Hello.", 0.2, 0.6, 0.9}, {"This", 1.0, 1.2, 0.9}, {"works.", 1.3, 1.7, 0.9}}, 8, 0.6);
        p.captions = track;
    });
    EXPECT_FALSE(generate->isVisibleTo(m_audio));
    EXPECT_TRUE(showsText(m_audio, "Captions", "2 lines"));
    control<QCheckBox>(m_audio, "Captions", "Show captions")->click();
    EXPECT_FALSE(project().captions->isEnabled);
    control<QCheckBox>(m_audio, "Captions", "Highlight each word")->click();
    EXPECT_FALSE(project().captions->style.highlightPerWord);
    choose(control<QComboBox>(m_audio, "Captions", "Position"), "Top");
    EXPECT_EQ(project().captions->style.position, CaptionStyle::Position::top);
    moveEachSlider(
        m_audio,
        {{"Captions", "Size", 0.03, 0.1, [](const Project& p) { return p.captions->style.fontScale; }}},
        [this]() -> const Project& { return project(); });
    control<QPushButton>(m_audio, "Captions", "Remove")->click();
    EXPECT_FALSE(project().captions);
    EXPECT_TRUE(generate->isVisibleTo(m_audio));
}

TEST_F(InspectorTest, ControlsFollowTheDocumentWithoutWritingBack) {
    QSignalSpy edits(m_session.get(), &EditorSession::documentChanged);
    m_session->editProject([](Project& p) {
        p.audio.voiceGain = 1.5;
        p.audio.clickSounds = true;
        p.canvas.ratio = AspectRatio::vertical;
        p.canvas.tilt = {10, -5};
        p.canvas.deviceFrame = DeviceFrame::iPadPro();
        p.audio.music = MusicBed::forFile(Url::fileUrl("/music/Evening.mp3"));
    });
    EXPECT_EQ(edits.count(), 1);
    EXPECT_NEAR(control<InspectorSlider>(m_audio, "Voice", "Voice level")->value(), 1.5, 1e-9);
    EXPECT_TRUE(control<QCheckBox>(m_audio, "Clicks", "Click sounds")->isChecked());
    EXPECT_EQ(control<QComboBox>(m_screen, "Format", "Shape")->currentText(), "Reels / TikTok 9:16");
    EXPECT_EQ(control<QComboBox>(m_screen, "Device", "Frame")->currentText(), "iPad Pro");
    EXPECT_NEAR(control<InspectorSlider>(m_screen, "Perspective", "Tilt X")->value(), 10, 1e-9);
    EXPECT_TRUE(showsText(m_screen, "Perspective", "10° / -5°"));
    EXPECT_EQ(control<QLabel>(m_audio, "Music", "Track")->text(), "Evening");
    EXPECT_NEAR(control<InspectorSlider>(m_audio, "Music", "Level")->value(), 0.35, 1e-9);

    // The one edit is all there was: filling the controls wrote nothing back.
    QTest::qWait(50);
    EXPECT_EQ(edits.count(), 1);
    // A move by hand is one edit.
    press(control<InspectorSlider>(m_screen, "Cursor", "Smoothing"), Qt::Key_Right);
    EXPECT_EQ(edits.count(), 2);
    EXPECT_EQ(project().audio.voiceGain, 1.5);
    // Nothing the fill touched stays changed: the canvas and the mix are as the edit left them.
    EXPECT_EQ(project().canvas.ratio, AspectRatio::vertical);
    EXPECT_EQ(project().canvas.tilt.y, -5);

    // A drag by the mouse writes at every step, before the button is let go.
    QSlider* tilt = control<InspectorSlider>(m_screen, "Perspective", "Tilt X")->slider();
    QStyleOptionSlider option;
    option.initFrom(tilt);
    option.orientation = Qt::Horizontal;
    option.minimum = tilt->minimum();
    option.maximum = tilt->maximum();
    option.sliderPosition = tilt->sliderPosition();
    option.sliderValue = tilt->value();
    const QPoint handle =
        tilt->style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, tilt).center();
    const auto before = edits.count();
    QTest::mousePress(tilt, Qt::LeftButton, {}, handle);
    double last = project().canvas.tilt.x;
    for (int step = 1; step <= 5; ++step) {
        QTest::mouseMove(tilt, handle + QPoint(8 * step, 0));
        EXPECT_GT(project().canvas.tilt.x, last) << "step " << step;
        last = project().canvas.tilt.x;
    }
    EXPECT_EQ(edits.count(), before + 5);
    QTest::mouseRelease(tilt, Qt::LeftButton, {}, handle + QPoint(40, 0));
    EXPECT_EQ(project().canvas.tilt.x, last);

    // The drag is one step of the history: one undo takes the tilt back to where the drag began.
    EXPECT_EQ(m_session->undoName(), "Tilt X");
    m_session->undo();
    EXPECT_EQ(project().canvas.tilt.x, 10);
    EXPECT_EQ(m_session->undoName(), "Smoothing");
}
