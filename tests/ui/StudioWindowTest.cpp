#include "capture/X11Connection.h"
#include "capture/X11ScreenCapturer.h"
#include "export/ExportPreset.h"
#include "export/StillFrame.h"
#include "playback/PreviewPlayer.h"
#include "session/EditorSession.h"
#include "support/TempDir.h"
#include "support/WalkingTake.h"
#include "trajectory/NewRecording.h"
#include "ui/Banners.h"
#include "ui/CanvasPreview.h"
#include "ui/CanvasWidget.h"
#include "ui/ExportScreen.h"
#include "ui/GlobalShortcut.h"
#include "ui/Inspector.h"
#include "ui/MainWindow.h"
#include "ui/RecordScreen.h"
#include "ui/RecordingAside.h"
#include "ui/RecordingScreen.h"
#include "ui/WindowTestSupport.h"

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTest>
#include <gtest/gtest.h>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <string_view>
#include <thread>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

void saveScreenshot(QWidget& widget, const std::string& name) {
    fs::create_directories(MARLOWICK_SCREENSHOTS);
    const QString path = QString::fromStdString((fs::path(MARLOWICK_SCREENSHOTS) / (name + ".png")).string());
    // A window on screen is read from the X server, so that the canvas's own native window is in it, once
    // the frame its last change asked for is drawn.
    QTest::qWait(50);
    const QPixmap picture =
        widget.isWindow() && widget.isVisible() ? widget.screen()->grabWindow(widget.winId()) : widget.grab();
    EXPECT_TRUE(picture.save(path)) << path.toStdString();
}

// Whether pixel (x, y) of a canvas of `width` × `height` lies clear of its rounded corners of `radius`.
bool clearOfCorners(int x, int y, int width, int height, int radius) {
    return (x >= radius && x < width - radius) || (y >= radius && y < height - radius);
}

// The largest difference of one channel between the canvas's picture and an export's still frame, inside
// the canvas's rounded corners of 8 pixels.
int largestDifference(const QImage& grabbed, const BgraImage& still) {
    const QImage picture = grabbed.convertToFormat(QImage::Format_ARGB32);
    EXPECT_EQ(picture.width(), still.width);
    EXPECT_EQ(picture.height(), still.height);
    int largest = 0;
    for (int y = 0; y < std::min(picture.height(), still.height); ++y) {
        // ARGB32 lies in memory as B, G, R, A on this machine, as BGRA does.
        const auto* row = picture.constScanLine(y);
        const auto* expected = still.row(y);
        for (int x = 0; x < std::min(picture.width(), still.width) * 4; ++x) {
            if (clearOfCorners(x / 4, y, picture.width(), picture.height(), 8)) {
                largest = std::max(largest, std::abs(int(row[x]) - int(expected[x])));
            }
        }
    }
    return largest;
}

// The export's still frame, drawn on a thread of its own: its headless context must not meet the
// window's on one thread.
std::optional<BgraImage> exportedStill(const Project& project, const std::vector<InputEvent>& telemetry,
                                       double time, int width, int height) {
    return std::async(std::launch::async,
                      [&] { return drawStillFrame(project, telemetry, time, width, height); })
        .get();
}

// Whether `window` is mapped and all its ancestors are: whether it can be in a picture of the screen.
bool isViewable(xcb_connection_t* connection, xcb_window_t window) {
    xcb_get_window_attributes_reply_t* reply =
        xcb_get_window_attributes_reply(connection, xcb_get_window_attributes(connection, window), nullptr);
    const bool viewable = reply != nullptr && reply->map_state == XCB_MAP_STATE_VIEWABLE;
    std::free(reply);
    return viewable;
}

// The whole screen as the X server shows it now, as a capture's frame would take it.
std::vector<std::uint8_t> screenPicture(const X11Connection& display) {
    const xcb_screen_t& screen = display.screen();
    xcb_get_image_reply_t* reply = xcb_get_image_reply(
        display.get(),
        xcb_get_image(display.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, screen.root, 0, 0, screen.width_in_pixels,
                      screen.height_in_pixels, ~0u),
        nullptr);
    std::vector<std::uint8_t> pixels;
    if (reply != nullptr) {
        const std::uint8_t* data = xcb_get_image_data(reply);
        pixels.assign(data, data + xcb_get_image_data_length(reply));
        std::free(reply);
    }
    return pixels;
}

// Holds a capturer's stop until it is let go, and counts the stops asked for. Where `window` is set, a start
// notes whether the X server showed that window at that moment, and the screen's picture then, as a
// capture's first frame would see them.
struct StopGate {
    std::atomic<bool> held = false;
    std::atomic<int> stops = 0;
    std::atomic<xcb_window_t> window = 0;
    std::atomic<int> starts = 0;
    std::atomic<bool> windowShownAtStart = false;
    std::vector<std::uint8_t> screenAtStart; // written by the start, read once the recording phase is seen
    // A start is refused, as a desktop that won't share the screen refuses it.
    std::atomic<bool> refuseStart = false;
};

// A capturer that records nothing: a start succeeds, and a stop yields the walking take of `movie` once
// the gate lets it.
class FakeCapturer : public ScreenCapturer {
public:
    FakeCapturer(TelemetryAvailability availability, fs::path movie, std::shared_ptr<StopGate> gate)
        : m_availability(availability)
        , m_movie(std::move(movie))
        , m_gate(std::move(gate)) {}
    TelemetryAvailability telemetryAvailability() const override { return m_availability; }
    void start(const CaptureConfiguration&) override {
        if (m_gate->window != 0) {
            const X11Connection display;
            m_gate->windowShownAtStart = isViewable(display.get(), m_gate->window);
            m_gate->screenAtStart = screenPicture(display);
        }
        ++m_gate->starts;
        if (m_gate->refuseStart) {
            throw CaptureError(CaptureErrorKind::permissionDenied);
        }
        if (m_running) {
            throw CaptureError(CaptureErrorKind::alreadyRecording);
        }
        m_running = true;
    }
    Recording stop() override {
        ++m_gate->stops;
        while (m_gate->held) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        if (!m_running) {
            throw CaptureError(CaptureErrorKind::notRecording);
        }
        m_running = false;
        return walkingTake(m_movie, 4, {40, 30}, {6, 12});
    }
    std::optional<CaptureError> interruption() const override { return std::nullopt; }
    std::vector<std::string> takeWarnings() override { return {}; }
    CaptureStatistics statistics() const override { return {}; }

private:
    TelemetryAvailability m_availability;
    fs::path m_movie;
    std::shared_ptr<StopGate> m_gate;
    std::atomic<bool> m_running = false;
};

class StudioWindowTest : public ::testing::Test {
protected:
    // A 4 s take at 320x180 and 10 frames a second with a moving test picture and a tone, a pointer walk and
    // a click every second.
    static void SetUpTestSuite() {
        s_dir = new TempDir;
        const std::string command =
            "ffmpeg -v error -y -f lavfi -i testsrc2=size=320x180:rate=10 -f lavfi -i "
            "sine=frequency=300:sample_rate=48000 -t 4 -c:v libx264 -pix_fmt yuv420p "
            "-c:a aac '" +
            (*s_dir / "take.mp4").string() + "'";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
        documentForNewRecording(walkingTake(*s_dir / "take.mp4", 4, {40, 30}, {6, 12}), "Demo")
            .write(package());
    }
    static void TearDownTestSuite() {
        delete s_dir;
        s_dir = nullptr;
    }
    static fs::path package() { return *s_dir / "Demo.marlowick"; }

    void SetUp() override {
        auto panels = std::make_unique<QueuedPanels>();
        m_panels = panels.get();
        // No sound server at that address: the player's silent clock, as on a machine without sound.
        m_session = std::make_unique<EditorSession>(
            std::move(panels),
            [] { return std::make_unique<PreviewPlayer>("unix:/nonexistent/marlowick-test"); },
            [this] { return makeCapturer(); }, nullptr);
        m_window = std::make_unique<MainWindow>(*m_session);
        m_window->resize(1100, 720);
        m_window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(m_window.get()));
    }
    void TearDown() override {
        m_window.reset();
        m_session.reset();
    }

    virtual std::unique_ptr<ScreenCapturer> makeCapturer() { return std::make_unique<X11ScreenCapturer>(); }

    // Opens the package and waits until the player is loaded.
    void openPackage() {
        m_panels->packagesToOpen.push_back(package());
        m_session->open();
        // The take plays at once with its own sound; once its processed mix is rendered the player is
        // loaded again, and only then does the picture stay put.
        ASSERT_TRUE(within(60, [&] { return openedPreviewSettled(*m_session); }));
    }

    // Pauses the player at `time` and waits until the canvas holds that moment's picture.
    void showPausedAt(double time) {
        PlaybackEngine* playback = m_session->playback();
        playback->pause();
        playback->seek(time);
        CanvasWidget* canvas = m_window->editor()->canvas();
        ASSERT_TRUE(within(10, [&] {
            const auto& frame = canvas->shownFrame();
            return frame && frame->time <= time && time < frame->endTime;
        }));
    }

    static TempDir* s_dir;
    QueuedPanels* m_panels = nullptr;
    std::unique_ptr<EditorSession> m_session;
    std::unique_ptr<MainWindow> m_window;
};

TempDir* StudioWindowTest::s_dir = nullptr;

} // namespace

TEST_F(StudioWindowTest, ThePhaseDecidesTheScreen) {
    EXPECT_EQ(m_window->currentScreen(), m_window->recordScreen());
    EXPECT_FALSE(m_window->stopRecordingAction()->isEnabled());
    saveScreenshot(*m_window, "record");

    // A package that can't be read leaves the record screen, with the error above it.
    m_panels->packagesToOpen.push_back(*s_dir / "missing.marlowick");
    m_session->open();
    EXPECT_EQ(m_window->currentScreen(), m_window->recordScreen());
    ASSERT_TRUE(m_session->lastError().has_value());
    const auto banners = m_window->findChildren<QLabel*>();
    EXPECT_TRUE(std::any_of(banners.begin(), banners.end(), [&](QLabel* label) {
        return label->isVisible() && label->text().toStdString() == *m_session->lastError();
    }));
    saveScreenshot(*m_window, "record-error");

    openPackage();
    EXPECT_EQ(m_window->currentScreen(), m_window->editor());
    showPausedAt(1.25);

    EXPECT_TRUE(m_window->openAction()->isEnabled());
    EXPECT_TRUE(m_window->startRecordingAction()->isEnabled());

    // An export shows its progress, with nothing else to start meanwhile; Escape stops it and the editor
    // comes back.
    const std::vector<ExportPreset> presets = m_session->matchingPresets();
    ASSERT_FALSE(presets.empty());
    m_panels->filesToSave.push_back(*s_dir / "Demo-export.mp4");
    m_session->exportMovie(presets.front());
    EXPECT_EQ(m_window->currentScreen(), m_window->exportScreen());
    EXPECT_FALSE(m_window->openAction()->isEnabled());
    EXPECT_FALSE(m_window->startRecordingAction()->isEnabled());
    saveScreenshot(*m_window, "export");
    QApplication::setActiveWindow(m_window.get());
    QTest::keyClick(m_window->exportScreen()->cancelButton(), Qt::Key_Escape);
    EXPECT_TRUE(within(5, [&] { return m_session->phase() == SessionPhase::editing(); }));
    EXPECT_EQ(m_window->currentScreen(), m_window->editor());
    EXPECT_TRUE(m_window->openAction()->isEnabled());

    // The recording phase comes with the recording flow; its screen on its own, to be looked at.
    m_window->recordingScreen()->resize(1100, 660);
    saveScreenshot(*m_window->recordingScreen(), "recording");
}

TEST_F(StudioWindowTest, ClosingOrRecordingOverUnsavedWorkAsksFirstAndTheTitleSaysSo) {
    openPackage();
    EXPECT_EQ(m_window->windowTitle().toStdString(), "Demo[*] — Marlowick");
    EXPECT_FALSE(m_window->isWindowModified());
    EXPECT_FALSE(m_window->undoAction()->isEnabled());
    m_session->editProject("Inset", [](Project& project) { project.canvas.inset = 0.15; });
    EXPECT_TRUE(m_window->isWindowModified());
    EXPECT_EQ(m_window->undoAction()->text().toStdString(), "Undo “Inset”");

    // Cancel keeps the window, and a take doesn't start over the unsaved project.
    m_panels->saveAnswers = {FilePanels::SaveAnswer::cancel, FilePanels::SaveAnswer::cancel};
    EXPECT_FALSE(m_window->close());
    EXPECT_TRUE(m_window->isVisible());
    m_window->startRecordingAction()->trigger();
    EXPECT_FALSE(m_window->recordingAside()->isWaiting());
    EXPECT_EQ(m_session->phase(), SessionPhase::editing());
    EXPECT_EQ(m_panels->questionsAsked, 2);

    // Undone back to the package's state, nothing is unsaved and closing asks nothing.
    m_window->undoAction()->trigger();
    EXPECT_FALSE(m_window->isWindowModified());
    EXPECT_EQ(m_window->redoAction()->text().toStdString(), "Redo “Inset”");
    EXPECT_TRUE(m_window->close());
    EXPECT_EQ(m_panels->questionsAsked, 2);
}

TEST_F(StudioWindowTest, TheRecordScreensSoundChoicesAreThereAgainAtTheNextLaunch) {
    const bool systemAudio = m_session->capturesSystemAudio();
    const bool microphone = m_session->capturesMicrophone();
    m_session->setCapturesSystemAudio(!systemAudio);
    m_session->setCapturesMicrophone(!microphone);
    TearDown();
    SetUp();
    EXPECT_EQ(m_session->capturesSystemAudio(), !systemAudio);
    EXPECT_EQ(m_session->capturesMicrophone(), !microphone);
    m_session->setCapturesSystemAudio(systemAudio);
    m_session->setCapturesMicrophone(microphone);
}

TEST_F(StudioWindowTest, ThePausedPreviewIsTheExportedFrameAndFollowsTheCanvasSettings) {
    openPackage();
    const double time = 1.25;
    showPausedAt(time);
    saveScreenshot(*m_window, "editor");
    CanvasWidget* canvas = m_window->editor()->canvas();
    const MarlowickDocument& document = *m_session->document();

    QImage grabbed = canvas->grabFramebuffer();
    ASSERT_FALSE(grabbed.isNull());
    auto still =
        exportedStill(document.project, document.telemetry(), time, grabbed.width(), grabbed.height());
    ASSERT_TRUE(still.has_value());
    EXPECT_LE(largestDifference(grabbed, *still), 2);

    // Another background and a closer framing show at the next refresh, over the same paused picture.
    Project changed = document.project;
    changed.canvas.background = Background::solid("#2EA043");
    changed.canvas.inset = 0.2;
    canvas->setTimeline(OutputTimeline(changed, document.telemetry()));
    grabbed = canvas->grabFramebuffer();
    const QColor nearCorner = grabbed.pixelColor(10, 10);
    EXPECT_EQ(nearCorner.red(), 0x2E);
    EXPECT_EQ(nearCorner.green(), 0xA0);
    EXPECT_EQ(nearCorner.blue(), 0x43);
    // The corners are rounded off to the black of the stage, and the edges between them are not.
    EXPECT_EQ(grabbed.pixelColor(0, 0).name().toStdString(), "#000000");
    EXPECT_EQ(grabbed.pixelColor(grabbed.width() - 1, grabbed.height() - 1).name().toStdString(), "#000000");
    EXPECT_EQ(grabbed.pixelColor(grabbed.width() / 2, 0).green(), 0xA0);
    EXPECT_EQ(grabbed.pixelColor(0, grabbed.height() / 2).green(), 0xA0);
    still = exportedStill(changed, document.telemetry(), time, grabbed.width(), grabbed.height());
    ASSERT_TRUE(still.has_value());
    EXPECT_LE(largestDifference(grabbed, *still), 2);

    // Where a transparent background lets the picture through, a checkerboard of 10-pixel tiles shows,
    // white in the top-left tile and light grey beside and below it.
    changed.canvas.background = Background::transparent();
    canvas->setTimeline(OutputTimeline(changed, document.telemetry()));
    grabbed = canvas->grabFramebuffer();
    saveScreenshot(*m_window, "editor-transparent");
    EXPECT_EQ(grabbed.pixelColor(12, 12).name().toStdString(), "#ffffff");
    EXPECT_EQ(grabbed.pixelColor(15, 5).name().toStdString(), "#cccccc");
    EXPECT_EQ(grabbed.pixelColor(5, 15).name().toStdString(), "#cccccc");
    EXPECT_EQ(grabbed.pixelColor(25, 5).name().toStdString(), "#ffffff");
    EXPECT_EQ(grabbed.pixelColor(0, 0).name().toStdString(), "#000000");
    // The recording itself stays as the export draws it.
    still = exportedStill(changed, document.telemetry(), time, grabbed.width(), grabbed.height());
    ASSERT_TRUE(still.has_value());
    const QPoint middle(grabbed.width() / 2, grabbed.height() / 2);
    const QColor expected(still->row(middle.y())[4 * middle.x() + 2],
                          still->row(middle.y())[4 * middle.x() + 1], still->row(middle.y())[4 * middle.x()]);
    EXPECT_EQ(grabbed.pixelColor(middle).name().toStdString(), expected.name().toStdString());
}

namespace {

// The window over a capturer that records nothing and whose source yields pointer positions only.
class ShellWindowTest : public StudioWindowTest {
protected:
    std::unique_ptr<ScreenCapturer> makeCapturer() override {
        return std::make_unique<FakeCapturer>(TelemetryAvailability::positionOnly, *s_dir / "take.mp4",
                                              m_gate);
    }

    std::shared_ptr<StopGate> m_gate = std::make_shared<StopGate>();
};

// The colour a banner of `colour` shows over `background`: the colour at 15 %.
QColor overBackground(const QColor& colour, const QColor& background) {
    const auto mix = [](int top, int bottom) {
        return static_cast<int>(std::lround(top * 0.15 + bottom * 0.85));
    };
    return QColor(mix(colour.red(), background.red()), mix(colour.green(), background.green()),
                  mix(colour.blue(), background.blue()));
}

void expectColour(const QColor& seen, const QColor& expected) {
    EXPECT_NEAR(seen.red(), expected.red(), 3)
        << seen.name().toStdString() << " " << expected.name().toStdString();
    EXPECT_NEAR(seen.green(), expected.green(), 3)
        << seen.name().toStdString() << " " << expected.name().toStdString();
    EXPECT_NEAR(seen.blue(), expected.blue(), 3)
        << seen.name().toStdString() << " " << expected.name().toStdString();
}

// The texts of a banner's labels, top to bottom, joined by new lines.
std::string bannerText(QWidget* banner) {
    QStringList texts;
    for (QLabel* label : banner->findChildren<QLabel*>()) {
        if (!label->text().isEmpty()) {
            texts << label->text();
        }
    }
    return texts.join("\n").toStdString();
}

} // namespace

TEST(RetakeSummary, SaysWhatTheRetakeRegeneratedKeptAndCleared) {
    // Nothing carried over and no captions: one clause, with the count's own number.
    EXPECT_EQ(Banners::retakeSummary({10, 10, 1, 0, false}), "1 zoom beat regenerated from the new take");
    EXPECT_EQ(Banners::retakeSummary({10, 10, 0, 0, false}), "0 zoom beats regenerated from the new take");
    // A person's beats on a take of about the same length are kept as they were.
    EXPECT_EQ(Banners::retakeSummary({10, 10.1, 3, 2, false}),
              "3 zoom beats regenerated from the new take · 2 hand-edited kept");
    // Stretched by more than a little, they are worth a look, and the captions went with the old words.
    EXPECT_EQ(
        Banners::retakeSummary({8, 10, 2, 1, true}),
        "2 zoom beats regenerated from the new take · 1 hand-edited moved to 125% of their old timing — "
        "worth checking · captions cleared, regenerate them");
}

TEST_F(ShellWindowTest, TheBannersStandInTheirOrderAboveTheScreen) {
    // The take was recorded without the microphone: the audio warning is up once it is open.
    openPackage();
    m_session->setLastError("Could not write the package.");
    m_session->setRetakeReport(RetakeSwap::Report{8, 10, 1, 2, true});
    QApplication::processEvents();

    Banners* banners = m_window->banners();
    const std::vector<QWidget*> order = {banners->telemetryBanner(), banners->errorBanner(),
                                         banners->retakeBanner(), banners->audioBanner()};
    int above = -1;
    for (QWidget* banner : order) {
        ASSERT_TRUE(banner->isVisible());
        const int top = banner->mapTo(m_window.get(), QPoint(0, 0)).y();
        EXPECT_GT(top, above);
        above = top + banner->height() - 1;
    }
    EXPECT_LT(above, m_window->currentScreen()->mapTo(m_window.get(), QPoint(0, 0)).y());

    EXPECT_EQ(bannerText(banners->telemetryBanner()),
              "Cursor positions only. Enable the X server's RECORD extension for click-aware auto-zoom.");
    EXPECT_EQ(bannerText(banners->errorBanner()), "Could not write the package.");
    EXPECT_EQ(bannerText(banners->retakeBanner()),
              "Recording replaced — canvas, cursor and caption styling kept.\n1 zoom beat regenerated from "
              "the new take · 2 hand-edited moved to 125% of their old timing — worth checking · captions "
              "cleared, regenerate them");
    ASSERT_TRUE(m_session->audioWarning().has_value());
    EXPECT_EQ(bannerText(banners->audioBanner()), *m_session->audioWarning());
    saveScreenshot(*m_window, "banners");

    // Each on its colour at 15 % over the window: yellow, red, orange for beats worth checking, yellow.
    const QImage window = m_window->grab().toImage();
    const QColor background = m_window->palette().color(QPalette::Window);
    const auto cornerOf = [&](QWidget* banner) {
        return window.pixelColor(banner->mapTo(m_window.get(), QPoint(3, 3)) * m_window->devicePixelRatioF());
    };
    expectColour(cornerOf(banners->telemetryBanner()), overBackground(QColor(0xE5, 0xB0, 0x00), background));
    expectColour(cornerOf(banners->errorBanner()), overBackground(QColor(0xE0, 0x44, 0x3E), background));
    expectColour(cornerOf(banners->retakeBanner()), overBackground(QColor(0xF2, 0x8C, 0x28), background));
    expectColour(cornerOf(banners->audioBanner()), overBackground(QColor(0xE5, 0xB0, 0x00), background));

    // A retake that kept the timing is green.
    m_session->setRetakeReport(RetakeSwap::Report{10, 10, 1, 2, false});
    expectColour(
        m_window->grab().toImage().pixelColor(banners->retakeBanner()->mapTo(m_window.get(), QPoint(3, 3))),
        overBackground(QColor(0x2E, 0xA0, 0x43), background));

    // Dismiss clears the session's report and only its banner goes.
    QTest::mouseClick(banners->dismissRetakeButton(), Qt::LeftButton);
    EXPECT_FALSE(m_session->retakeReport().has_value());
    EXPECT_FALSE(banners->retakeBanner()->isVisible());
    EXPECT_TRUE(banners->errorBanner()->isVisible());
    EXPECT_TRUE(banners->audioBanner()->isVisible());
    EXPECT_TRUE(banners->telemetryBanner()->isVisible());
}

namespace {

constexpr std::uint32_t periodKeysym = 0x2e;
constexpr std::uint32_t leftControlKeysym = 0xffe3;

// Another client on the same display, as a person's keyboard and another program are.
class OtherClient {
public:
    OtherClient()
        : m_root(m_display.screen().root) {}

    // Whether this client could grab Ctrl+`keysym` on the root window; what it grabs it gives back.
    bool canGrab(std::uint32_t keysym) {
        const auto codes = GlobalShortcut::keycodes(keysym);
        EXPECT_FALSE(codes.empty());
        bool all = true;
        for (const std::uint8_t code : codes) {
            xcb_generic_error_t* error = xcb_request_check(
                m_display.get(), xcb_grab_key_checked(m_display.get(), 1, m_root, XCB_MOD_MASK_CONTROL, code,
                                                      XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
            if (error != nullptr) {
                all = false;
                std::free(error);
            } else {
                xcb_ungrab_key(m_display.get(), code, m_root, XCB_MOD_MASK_CONTROL);
            }
        }
        sync();
        return all;
    }

    // Presses Ctrl+`keysym` and lets go, through XTEST, as the keyboard would.
    void pressWithControl(std::uint32_t keysym) {
        const std::uint8_t control = GlobalShortcut::keycodes(leftControlKeysym).at(0);
        const std::uint8_t key = GlobalShortcut::keycodes(keysym).at(0);
        fake(XCB_KEY_PRESS, control);
        fake(XCB_KEY_PRESS, key);
        fake(XCB_KEY_RELEASE, key);
        fake(XCB_KEY_RELEASE, control);
        sync();
    }

    bool isViewable(WId window) { return ::isViewable(m_display.get(), static_cast<xcb_window_t>(window)); }

    // Whether a window manager has taken `window` in and shows it: it set the window's WM_STATE to
    // NormalState. Until then its framing may still unmap and map the window, and requests to the manager
    // about it go unheard.
    bool isManaged(WId window) {
        const char name[] = "WM_STATE";
        const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom(
            xcb_intern_atom_reply(m_display.get(), xcb_intern_atom(m_display.get(), 0, sizeof name - 1, name),
                                  nullptr),
            &std::free);
        if (!atom) {
            return false;
        }
        const std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> state(
            xcb_get_property_reply(m_display.get(),
                                   xcb_get_property(m_display.get(), 0, static_cast<xcb_window_t>(window),
                                                    atom->atom, atom->atom, 0, 2),
                                   nullptr),
            &std::free);
        constexpr std::uint32_t normalState = 1;
        return state && xcb_get_property_value_length(state.get()) >= 4 &&
               *static_cast<const std::uint32_t*>(xcb_get_property_value(state.get())) == normalState;
    }

    // Moves the pointer to (x, y) on the screen and clicks `button` there (1 the left, 3 the right),
    // through XTEST.
    void click(int x, int y, std::uint8_t button = 1) {
        xcb_test_fake_input(m_display.get(), XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, m_root,
                            static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), 0);
        fake(XCB_BUTTON_PRESS, button);
        fake(XCB_BUTTON_RELEASE, button);
        sync();
    }

    // Presses `keysym` without a modifier and lets go.
    void press(std::uint32_t keysym) {
        const std::uint8_t key = GlobalShortcut::keycodes(keysym).at(0);
        fake(XCB_KEY_PRESS, key);
        fake(XCB_KEY_RELEASE, key);
        sync();
    }

    // Holds Ctrl+`keysym` on the root window until `release`.
    void grab(std::uint32_t keysym) {
        for (const std::uint8_t code : GlobalShortcut::keycodes(keysym)) {
            xcb_grab_key(m_display.get(), 1, m_root, XCB_MOD_MASK_CONTROL, code, XCB_GRAB_MODE_ASYNC,
                         XCB_GRAB_MODE_ASYNC);
        }
        sync();
    }
    void release(std::uint32_t keysym) {
        for (const std::uint8_t code : GlobalShortcut::keycodes(keysym)) {
            xcb_ungrab_key(m_display.get(), code, m_root, XCB_MOD_MASK_CONTROL);
        }
        sync();
    }

private:
    void fake(std::uint8_t type, std::uint8_t detail) {
        xcb_test_fake_input(m_display.get(), type, detail, XCB_CURRENT_TIME, m_root, 0, 0, 0);
    }
    void sync() {
        std::free(xcb_get_input_focus_reply(m_display.get(), xcb_get_input_focus(m_display.get()), nullptr));
    }

    X11Connection m_display;
    xcb_window_t m_root;
};

} // namespace

TEST_F(ShellWindowTest, ATakeTakesTheWindowOutOfThePictureAndCtrlPeriodAnywhereStopsIt) {
    OtherClient other;
    // The private display has no window manager: the window withdraws rather than waiting to be minimised.
    ASSERT_FALSE(RecordingAside::windowManagerRuns());
    EXPECT_TRUE(other.canGrab(periodKeysym));
    EXPECT_TRUE(m_window->recordingScreen()->hiddenLine()->isHidden());

    // The capture starts only once the window has left the screen.
    m_gate->window = static_cast<xcb_window_t>(m_window->winId());
    m_window->startRecordingAction()->trigger();
    ASSERT_TRUE(within(10, [&] { return m_session->phase().kind() == SessionPhase::Kind::recording; }));
    EXPECT_EQ(m_gate->starts, 1);
    EXPECT_FALSE(m_gate->windowShownAtStart);
    EXPECT_EQ(m_window->currentScreen(), m_window->recordingScreen());
    // The toolbar's first button is Stop for the take.
    EXPECT_FALSE(m_window->startRecordingAction()->isVisible());
    EXPECT_TRUE(m_window->stopRecordingAction()->isVisible());
    EXPECT_EQ(m_window->stopRecordingAction()->iconText().toStdString(), "Stop");
    EXPECT_TRUE(m_window->recordingAside()->isAside());
    EXPECT_FALSE(m_window->isVisible());
    EXPECT_TRUE(within(5, [&] { return !other.isViewable(m_window->winId()); }));
    EXPECT_FALSE(m_window->recordingScreen()->hiddenLine()->isHidden());
    EXPECT_EQ(m_window->recordingScreen()->hiddenLine()->text().toStdString(),
              "Marlowick is hidden from the capture.");
    saveScreenshot(*m_window->recordingScreen(), "recording-aside");
    // The window holds Ctrl+. on the whole display for the take.
    EXPECT_TRUE(m_window->recordingAside()->holdsShortcut());
    EXPECT_FALSE(other.canGrab(periodKeysym));

    // While the movie is finished, a second Ctrl+. and the screen's Stop ask for nothing more: a second stop
    // would find no capture and leave the editor for the record screen with an error.
    m_gate->held = true;
    other.pressWithControl(periodKeysym);
    ASSERT_TRUE(within(10, [&] { return m_gate->stops == 1; }));
    other.pressWithControl(periodKeysym);
    m_window->recordingScreen()->findChild<QPushButton*>()->click();
    QTest::qWait(300);
    EXPECT_EQ(m_session->phase().kind(), SessionPhase::Kind::recording);
    m_gate->held = false;
    ASSERT_TRUE(within(20, [&] { return m_session->phase().kind() == SessionPhase::Kind::editing; }));
    ASSERT_TRUE(within(10, [&] { return m_session->playback()->videoOutput() != nullptr; }));
    QTest::qWait(200);
    EXPECT_EQ(m_gate->stops, 1);
    EXPECT_EQ(m_session->phase().kind(), SessionPhase::Kind::editing);
    EXPECT_FALSE(m_session->lastError().has_value()) << *m_session->lastError();
    EXPECT_EQ(m_window->currentScreen(), m_window->editor());

    // The window is back on screen, and the key is the display's again.
    EXPECT_TRUE(m_window->isVisible());
    EXPECT_TRUE(within(5, [&] { return other.isViewable(m_window->winId()); }));
    EXPECT_FALSE(m_window->recordingAside()->isAside());
    EXPECT_TRUE(m_window->recordingScreen()->hiddenLine()->isHidden());
    EXPECT_TRUE(other.canGrab(periodKeysym));
}

// Our icon in the display's tray while a take runs, if any: Qt draws it in a window of its own, which the
// tray takes in.
QWidget* trayIconWindow() {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (std::string_view(widget->metaObject()->className()) == "QSystemTrayIconSys" &&
            widget->isVisible()) {
            return widget;
        }
    }
    return nullptr;
}

TEST_F(ShellWindowTest, WhereTheDesktopHasATrayTheTakeStopsFromItsIconsMenu) {
    // A real tray on the private display; another program holds Ctrl+., so the tray alone can stop the take.
    QProcess tray;
    tray.start("trayer", {"--edge", "top", "--align", "right", "--widthtype", "request", "--height", "24",
                          "--SetDockType", "false"});
    ASSERT_TRUE(tray.waitForStarted(10000)) << tray.errorString().toStdString();
    ASSERT_TRUE(within(10, [] { return QSystemTrayIcon::isSystemTrayAvailable(); }));
    OtherClient other;
    other.grab(periodKeysym);

    m_window->startRecordingAction()->trigger();
    ASSERT_TRUE(within(10, [&] { return m_session->phase().kind() == SessionPhase::Kind::recording; }));
    EXPECT_TRUE(m_window->recordingAside()->isAside());
    EXPECT_FALSE(m_window->recordingAside()->holdsShortcut());
    EXPECT_TRUE(within(5, [&] { return !other.isViewable(m_window->winId()); }));

    // A right click on the icon opens its menu, and its Stop Recording ends the take.
    QWidget* icon = nullptr;
    ASSERT_TRUE(within(10, [&] {
        icon = trayIconWindow();
        return icon != nullptr && other.isViewable(icon->winId());
    }));
    EXPECT_FALSE(icon->toolTip().isEmpty());
    const QPoint middle = icon->mapToGlobal(icon->rect().center());
    other.click(middle.x(), middle.y(), 3);
    QMenu* menu = nullptr;
    ASSERT_TRUE(within(10, [&] {
        menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        return menu != nullptr && other.isViewable(menu->winId());
    }));
    saveScreenshot(*menu, "tray-menu");
    ASSERT_EQ(menu->actions().size(), 1);
    QAction* stop = menu->actions().front();
    EXPECT_EQ(stop->text().toStdString(), "Stop Recording");
    const QPoint item = menu->mapToGlobal(menu->actionGeometry(stop).center());
    other.click(item.x(), item.y());
    ASSERT_TRUE(within(20, [&] { return m_session->phase().kind() == SessionPhase::Kind::editing; }));
    EXPECT_EQ(m_gate->stops, 1);

    // The window is back and the icon gone from the tray.
    EXPECT_TRUE(within(5, [&] { return other.isViewable(m_window->winId()); }));
    EXPECT_FALSE(m_window->recordingAside()->isAside());
    EXPECT_TRUE(within(5, [] { return trayIconWindow() == nullptr; }));
    other.release(periodKeysym);
    tray.terminate();
    EXPECT_TRUE(tray.waitForFinished(10000));
}

TEST_F(ShellWindowTest, WithNothingElseToStopTheTakeTheWindowStaysAndTheTakeStartsAtOnce) {
    // Another program holds Ctrl+. and the display has no tray: only the window's Stop button is left.
    OtherClient other;
    other.grab(periodKeysym);
    ASSERT_FALSE(QSystemTrayIcon::isSystemTrayAvailable());
    m_gate->window = static_cast<xcb_window_t>(m_window->winId());
    m_window->startRecordingAction()->trigger();
    ASSERT_TRUE(within(10, [&] { return m_session->phase().kind() == SessionPhase::Kind::recording; }));
    EXPECT_EQ(m_gate->starts, 1);
    EXPECT_TRUE(m_gate->windowShownAtStart);
    EXPECT_FALSE(m_window->recordingAside()->isAside());
    EXPECT_FALSE(m_window->recordingAside()->holdsShortcut());
    EXPECT_TRUE(m_window->isVisible());
    EXPECT_TRUE(m_window->recordingScreen()->hiddenLine()->isHidden());

    m_window->stopRecordingAction()->trigger();
    ASSERT_TRUE(within(20, [&] { return m_session->phase().kind() == SessionPhase::Kind::editing; }));
    EXPECT_TRUE(m_window->isVisible());
    other.release(periodKeysym);
}

TEST_F(ShellWindowTest, ARefusedStartBringsTheWindowBackWithTheError) {
    OtherClient other;
    m_gate->refuseStart = true;
    m_window->startRecordingAction()->trigger();
    ASSERT_TRUE(within(10, [&] { return m_session->lastError().has_value(); }));
    EXPECT_EQ(m_gate->starts, 1);
    EXPECT_EQ(m_session->phase().kind(), SessionPhase::Kind::idle);
    EXPECT_EQ(m_window->currentScreen(), m_window->recordScreen());
    EXPECT_TRUE(m_window->isVisible());
    EXPECT_TRUE(within(5, [&] { return other.isViewable(m_window->winId()); }));
    EXPECT_FALSE(m_window->recordingAside()->isAside());
    // The key is the display's again.
    EXPECT_TRUE(other.canGrab(periodKeysym));
}

TEST_F(ShellWindowTest, SpaceIAndOActWhereverTheFocusIsButInTextFields) {
    openPackage();
    showPausedAt(1.5);
    QApplication::setActiveWindow(m_window.get());
    auto* field = new QLineEdit(m_window->editor());
    field->show();
    field->setFocus();
    ASSERT_TRUE(within(5, [&] { return QApplication::focusWidget() == field; }));

    // Typed into a field, the letters are text.
    QTest::keyClick(field, Qt::Key_I);
    QTest::keyClick(field, Qt::Key_O);
    EXPECT_EQ(field->text().toStdString(), "io");
    EXPECT_FALSE(m_session->selectionStart().has_value());
    EXPECT_FALSE(m_session->selectionEnd().has_value());

    // With the focus on any other control, a button of the inspector's as much as the preview, they set the
    // cut's marks at the playhead, and the space bar plays and pauses rather than pressing the button.
    QPushButton* button = nullptr;
    for (QPushButton* candidate : m_window->inspector()->findChildren<QPushButton*>()) {
        if (candidate->isVisible() && candidate->isEnabled()) {
            button = candidate;
            break;
        }
    }
    ASSERT_NE(button, nullptr);
    button->setFocus();
    ASSERT_TRUE(within(5, [&] { return QApplication::focusWidget() == button; }));
    QTest::keyClick(button, Qt::Key_I);
    showPausedAt(2.5);
    QTest::keyClick(button, Qt::Key_O);
    ASSERT_TRUE(m_session->selectionStart().has_value());
    ASSERT_TRUE(m_session->selectionEnd().has_value());
    EXPECT_NEAR(*m_session->selectionStart(), 1.5, 1e-6);
    EXPECT_NEAR(*m_session->selectionEnd(), 2.5, 1e-6);
    EXPECT_EQ(field->text().toStdString(), "io");

    QSignalSpy pressed(button, &QPushButton::clicked);
    QTest::keyClick(button, Qt::Key_Space);
    EXPECT_TRUE(m_session->playback()->isPlaying());
    QTest::keyClick(button, Qt::Key_Space);
    EXPECT_FALSE(m_session->playback()->isPlaying());
    EXPECT_EQ(pressed.count(), 0);
}

TEST_F(ShellWindowTest, TheScreenShowsTheCanvasAsDrawnAndAPausedUnchangedCanvasDrawsNothing) {
    openPackage();
    showPausedAt(1.25);
    CanvasWidget* canvas = m_window->editor()->canvas();
    int swapped = 0;
    QObject::connect(canvas, &CanvasWidget::frameSwapped, canvas, [&] { ++swapped; });

    // What the X server shows where the canvas lies is the canvas's picture, its corners included.
    const QImage drawn = canvas->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
    ASSERT_FALSE(drawn.isNull());
    ASSERT_TRUE(within(5, [&] { return swapped > 0; }));
    const QPoint origin = canvas->mapToGlobal(QPoint(0, 0));
    const QImage shown = canvas->screen()
                             ->grabWindow(0, origin.x(), origin.y(), canvas->width(), canvas->height())
                             .toImage()
                             .convertToFormat(QImage::Format_RGB32);
    ASSERT_EQ(shown.size(), drawn.size());
    int largest = 0;
    for (int y = 0; y < drawn.height(); ++y) {
        for (int x = 0; x < drawn.width(); ++x) {
            const QRgb a = drawn.pixel(x, y);
            const QRgb b = shown.pixel(x, y);
            largest = std::max({largest, std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)),
                                std::abs(qBlue(a) - qBlue(b))});
        }
    }
    EXPECT_EQ(largest, 0);

    // Paused, with nothing changed, it puts no frame on screen; a changed setting puts one.
    within(0.3, [] { return false; });
    swapped = 0;
    within(0.5, [] { return false; });
    EXPECT_EQ(swapped, 0);
    m_session->editProject(
        [](Project& project) { project.canvas.background = Background::solid("#2EA043"); });
    ASSERT_TRUE(within(5, [&] { return swapped > 0; }));
    const QPoint corner = canvas->mapToGlobal(QPoint(12, 12));
    const auto cornerShown = [&] {
        return canvas->screen()
            ->grabWindow(0, corner.x(), corner.y(), 1, 1)
            .toImage()
            .pixelColor(0, 0)
            .name();
    };
    EXPECT_TRUE(within(5, [&] { return cornerShown() == "#2ea043"; })) << cornerShown().toStdString();
}

TEST_F(ShellWindowTest, AClickOnTheCanvasPutsTheFocusInThePreviewWhereTheSpaceBarPlays) {
    openPackage();
    showPausedAt(1.0);
    CanvasWidget* canvas = m_window->editor()->canvas();
    OtherClient other;
    const QPoint middle = canvas->mapToGlobal(canvas->rect().center());
    other.click(middle.x(), middle.y());
    ASSERT_TRUE(within(5, [&] { return QApplication::focusWidget() == m_window->editor(); }));
    constexpr std::uint32_t spaceKeysym = 0x20;
    other.press(spaceKeysym);
    EXPECT_TRUE(within(5, [&] { return m_session->playback()->isPlaying(); }));
    m_session->playback()->pause();
}

TEST_F(ShellWindowTest, AfterPlayingThePausedScreenIsTheExportedFrame) {
    // Played, the canvas draws each frame only where it differs from the last, over what the screen kept:
    // once paused, the screen holds the exported frame of that moment all the same.
    openPackage();
    showPausedAt(0.5);
    CanvasWidget* canvas = m_window->editor()->canvas();
    PlaybackEngine* playback = m_session->playback();
    playback->play();
    ASSERT_TRUE(within(10, [&] { return playback->currentTime() > 1.6; }));
    playback->pause();
    int swapped = 0;
    QObject::connect(canvas, &CanvasWidget::frameSwapped, canvas, [&] { ++swapped; });
    // Until the canvas has drawn the paused moment's picture and stopped drawing.
    ASSERT_TRUE(within(10, [&] {
        const auto& frame = canvas->shownFrame();
        const double time = playback->currentTime();
        return !playback->isPlaying() && frame && frame->time <= time && time < frame->endTime;
    }));
    ASSERT_TRUE(within(10, [&] {
        const int before = swapped;
        within(0.3, [] { return false; });
        return swapped == before;
    }));

    const QPoint origin = canvas->mapToGlobal(QPoint(0, 0));
    const QImage shown =
        canvas->screen()->grabWindow(0, origin.x(), origin.y(), canvas->width(), canvas->height()).toImage();
    const MarlowickDocument& document = *m_session->document();
    const auto still = exportedStill(document.project, document.telemetry(), playback->currentTime(),
                                     shown.width(), shown.height());
    ASSERT_TRUE(still.has_value());
    EXPECT_LE(largestDifference(shown, *still), 2);
}

TEST_F(ShellWindowTest, UnderAWindowManagerTheTakeStartsMinimisedAndTheWindowComesBackAfter) {
    // A window manager on the private display, killed with the process at the end of the test.
    QProcess manager;
    manager.start("openbox", {"--sm-disable"});
    ASSERT_TRUE(manager.waitForStarted(10000)) << manager.errorString().toStdString();
    ASSERT_TRUE(within(10, [] { return RecordingAside::windowManagerRuns(); }));
    OtherClient other;
    const auto window = static_cast<xcb_window_t>(m_window->winId());
    ASSERT_TRUE(within(10, [&] { return other.isManaged(window) && other.isViewable(window); }));

    m_gate->window = window;
    m_window->startRecordingAction()->trigger();
    ASSERT_TRUE(within(10, [&] { return m_session->phase().kind() == SessionPhase::Kind::recording; }));
    EXPECT_EQ(m_gate->starts, 1);
    EXPECT_FALSE(m_gate->windowShownAtStart);
    // The first frame already shows the desktop as it stays: no title bar of the manager's minimising
    // animation crosses it.
    QTest::qWait(500);
    const std::vector<std::uint8_t> settled = screenPicture(X11Connection());
    ASSERT_FALSE(settled.empty());
    EXPECT_TRUE(m_gate->screenAtStart == settled);
    EXPECT_TRUE(m_window->isMinimized());
    EXPECT_TRUE(m_window->recordingAside()->isAside());
    EXPECT_FALSE(other.isViewable(window));
    EXPECT_FALSE(m_window->recordingScreen()->hiddenLine()->isHidden());

    m_window->stopRecordingAction()->trigger();
    ASSERT_TRUE(within(20, [&] { return m_session->phase().kind() == SessionPhase::Kind::editing; }));
    EXPECT_TRUE(within(5, [&] { return other.isViewable(window) && !m_window->isMinimized(); }));
    EXPECT_FALSE(m_window->recordingAside()->isAside());

    manager.terminate();
    EXPECT_TRUE(manager.waitForFinished(10000));
    EXPECT_TRUE(within(10, [] { return !RecordingAside::windowManagerRuns(); }));
}
