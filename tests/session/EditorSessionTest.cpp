// The session driven as the window drives it, over real packages and movies and a fake player: opening and
// saving, the derived state after each edit, the debounced preview mix, silence analysis, retakes, export,
// and recordings on a private X display and sound server, one of them of a monitor picked out of two.

#include "session/EditorSession.h"
#include "captions/CaptionTranscriber.h"
#include "capture/MonitorLayout.h"
#include "capture/X11ScreenCapturer.h"
#include "support/FakeUser.h"
#include "support/Prerequisites.h"
#include "support/QueuedPanels.h"
#include "support/SoundServer.h"
#include "support/TempDir.h"
#include "support/VirtualDisplay.h"
#include "support/WalkingTake.h"
#include "trajectory/NewRecording.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <random>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

class NoFrames : public VideoOutput {
public:
    bool hasNewFrame(double) const override { return false; }
    std::optional<PlayerFrame> frameAt(double) override { return std::nullopt; }
};

// Counts the players the engine opened and keeps the last item.
struct OpenedItems {
    std::vector<PlayerItem> items;
};

class RecordingPlayer : public Player {
public:
    explicit RecordingPlayer(std::shared_ptr<OpenedItems> opened)
        : m_opened(std::move(opened)) {}
    void open(PlayerItem item, PlayerCallbacks) override { m_opened->items.push_back(std::move(item)); }
    void play() override {}
    void pause() override {}
    void seek(double) override {}
    double currentTime() const override { return 0; }
    VideoOutput& videoOutput() override { return m_output; }

private:
    std::shared_ptr<OpenedItems> m_opened;
    NoFrames m_output;
};

// The session's tests let unsaved changes go unless an answer is queued.
class FakePanels : public QueuedPanels {
public:
    FakePanels() { unqueuedSave = SaveAnswer::discard; }
};

// The monitors of an X display as the window would list them.
class DisplayMonitors : public ScreenInfo {
public:
    explicit DisplayMonitors(std::string display)
        : m_display(std::move(display)) {}
    std::vector<ScreenMonitor> monitors() const override { return MonitorLayout::read(m_display).monitors(); }

private:
    std::string m_display;
};

// Notes each configuration it is started with, and fails a start or a stop when told; a stop yields a
// take of the given recording.
struct ScriptedCapture {
    std::vector<CaptureConfiguration> started;
    std::optional<CaptureError> failStart;
    std::optional<CaptureError> failStop;
    Recording take;
};

class ScriptedCapturer : public ScreenCapturer {
public:
    explicit ScriptedCapturer(std::shared_ptr<ScriptedCapture> script)
        : m_script(std::move(script)) {}
    TelemetryAvailability telemetryAvailability() const override { return TelemetryAvailability::full; }
    void start(const CaptureConfiguration& configuration) override {
        if (m_script->failStart) {
            throw *m_script->failStart;
        }
        m_script->started.push_back(configuration);
    }
    Recording stop() override {
        if (m_script->failStop) {
            throw *m_script->failStop;
        }
        return m_script->take;
    }
    std::optional<CaptureError> interruption() const override { return std::nullopt; }
    std::vector<std::string> takeWarnings() override { return {}; }
    CaptureStatistics statistics() const override { return {}; }

private:
    std::shared_ptr<ScriptedCapture> m_script;
};

// Points the process's temporary directory (std::filesystem::temp_directory_path) at `path` for its
// lifetime.
class TemporaryDirectoryOverride {
public:
    explicit TemporaryDirectoryOverride(const fs::path& path) {
        if (const char* value = std::getenv("TMPDIR")) {
            m_previous = value;
        }
        setenv("TMPDIR", path.c_str(), 1);
    }
    ~TemporaryDirectoryOverride() {
        if (m_previous) {
            setenv("TMPDIR", m_previous->c_str(), 1);
        } else {
            unsetenv("TMPDIR");
        }
    }

private:
    std::optional<std::string> m_previous;
};

void ffmpeg(const std::string& arguments, const fs::path& path) {
    const std::string command = "ffmpeg -v error -y " + arguments + " '" + path.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

bool waitFor(const std::function<bool()>& condition) {
    return QTest::qWaitFor(condition, 60000);
}

class EditorSessionTest : public ::testing::Test {
protected:
    // An 8 s take at 320x180 and 10 frames a second whose one sound track is silent from 2 to 3.5 s and
    // from 5 to 6.5 s, with a pointer walk and a click every second; and a short music file.
    static void SetUpTestSuite() {
        s_dir = new TempDir;
        ffmpeg("-f lavfi -i testsrc2=size=320x180:rate=10 -f lavfi -i sine=frequency=300:sample_rate=48000 "
               "-af \"volume=enable='between(t,2,3.5)+between(t,5,6.5)':volume=0\" -t 8 -c:v libx264 "
               "-pix_fmt yuv420p -c:a aac",
               *s_dir / "take.mp4");
        ffmpeg("-f lavfi -i sine=frequency=440:sample_rate=48000 -t 2 -c:a aac", *s_dir / "music.m4a");
        // A take twice as long, larger and at another rate, without sound: the retake from a file.
        ffmpeg("-f lavfi -i testsrc2=size=480x270:rate=25 -t 16 -c:v libx264 -pix_fmt yuv420p",
               *s_dir / "retake.mp4");
        documentForNewRecording(walkingTake(*s_dir / "take.mp4", 8, {20, 30}, {3, 10}), "Demo")
            .write(package());
    }
    static void TearDownTestSuite() {
        delete s_dir;
        s_dir = nullptr;
    }

    static fs::path package() { return *s_dir / "Demo.marlowick"; }

    void SetUp() override {
        auto panels = std::make_unique<FakePanels>();
        m_panels = panels.get();
        m_session = std::make_unique<EditorSession>(
            std::move(panels), [opened = m_opened] { return std::make_unique<RecordingPlayer>(opened); },
            [script = m_capture] { return std::make_unique<ScriptedCapturer>(script); }, nullptr);
    }

    // Replaces the session with one that records `display` and `sound` through the X11 capturer, offering
    // the display's monitors.
    void recordFrom(const std::string& display, const std::string& soundServer) {
        m_session.reset();
        auto panels = std::make_unique<FakePanels>();
        m_panels = panels.get();
        X11ScreenCapturer::Options options;
        options.display = display;
        options.soundServer = soundServer;
        m_session = std::make_unique<EditorSession>(
            std::move(panels), [opened = m_opened] { return std::make_unique<RecordingPlayer>(opened); },
            [options] { return std::make_unique<X11ScreenCapturer>(options); },
            std::make_unique<DisplayMonitors>(display));
    }

    // Opens the sample package and waits until the first preview has reached the player and the probe
    // and waveform are in.
    void openSample() {
        m_panels->packagesToOpen.push_back(package());
        m_session->open();
        // The derived state is all there once the player plays the processed mix.
        ASSERT_TRUE(waitFor([&] {
            return !m_opened->items.empty() && m_session->audioTrackCount() &&
                   !m_session->waveform().empty() && m_session->audioPreviewUrl() &&
                   !m_opened->items.back().composition.audio.empty() &&
                   m_opened->items.back().composition.audio[0].file == m_session->audioPreviewUrl()->path();
        }));
    }

    static TempDir* s_dir;
    std::shared_ptr<OpenedItems> m_opened = std::make_shared<OpenedItems>();
    std::shared_ptr<ScriptedCapture> m_capture = std::make_shared<ScriptedCapture>();
    FakePanels* m_panels = nullptr;
    std::unique_ptr<EditorSession> m_session;
};

TempDir* EditorSessionTest::s_dir = nullptr;

TEST_F(EditorSessionTest, OpenAndSaveGoThroughThePanelsAndAFailureLeavesWhatWasThere) {
    // Cancelled panels and a save without a project change nothing.
    QSignalSpy phases(m_session.get(), &EditorSession::phaseChanged);
    m_session->open();
    m_session->save();
    EXPECT_EQ(m_panels->shown, 1);
    EXPECT_FALSE(m_session->document());
    EXPECT_EQ(m_session->phase(), SessionPhase::idle());

    // A folder that isn't a package: the message, and nothing else.
    m_panels->packagesToOpen.push_back(s_dir->path());
    m_session->open();
    ASSERT_TRUE(m_session->lastError());
    EXPECT_FALSE(m_session->document());
    EXPECT_EQ(m_session->phase(), SessionPhase::idle());
    EXPECT_EQ(phases.count(), 0);

    openSample();
    EXPECT_EQ(m_session->phase(), SessionPhase::editing());
    EXPECT_EQ(m_session->packageUrl(), Url::fileUrl(package()));
    EXPECT_EQ(m_session->document()->project.name, "Demo");
    EXPECT_TRUE(m_session->cursorSampler());
    EXPECT_EQ(m_session->audioTrackCount(), 1);
    EXPECT_EQ(m_session->waveform().size(), 600u);
    EXPECT_EQ(m_session->clickCount(), 8);
    EXPECT_EQ(m_session->audioTrackSummary(), "Requested: system · in the file: 1 audio track(s)");
    EXPECT_EQ(
        m_session->audioWarning(),
        "No voice here: the microphone was off. Tick Microphone on the record screen before recording.");

    // A failed open keeps the open project and the phase.
    m_panels->packagesToOpen.push_back(*s_dir / "missing.marlowick");
    m_session->open();
    EXPECT_EQ(m_session->lastError(), "missing.marlowick: no such file or folder");
    EXPECT_EQ(m_session->phase(), SessionPhase::editing());
    EXPECT_EQ(m_session->packageUrl(), Url::fileUrl(package()));

    // Every save asks, proposing the project's name, also with a package already known.
    m_session->save();
    EXPECT_EQ(m_panels->proposedNames.back(), "Demo.marlowick");
    EXPECT_EQ(m_session->packageUrl(), Url::fileUrl(package()));
    m_panels->packagesToSave.push_back(*s_dir / "Copy.marlowick");
    m_session->save();
    EXPECT_EQ(m_session->packageUrl(), Url::fileUrl(*s_dir / "Copy.marlowick"));
    EXPECT_EQ(MarlowickDocument::read(*s_dir / "Copy.marlowick").project.name, "Demo");
    // A plain file is never replaced by a package: the message, and the place stays.
    m_session->setLastError(std::nullopt);
    m_panels->packagesToSave.push_back(*s_dir / "music.m4a");
    m_session->save();
    ASSERT_TRUE(m_session->lastError());
    EXPECT_TRUE(m_session->lastError()->starts_with("music.m4a: ")) << *m_session->lastError();
    EXPECT_EQ(m_session->packageUrl(), Url::fileUrl(*s_dir / "Copy.marlowick"));
}

TEST_F(EditorSessionTest, ZoomEditsChangeTheCameraAndTheSelectedBeat) {
    openSample();
    const std::size_t generated = m_session->document()->project.camera.beats.size();
    ASSERT_GT(generated, 0u);
    m_session->setZoomStyle(CameraTrack::Style::subtle);
    EXPECT_EQ(m_session->document()->project.camera.style, CameraTrack::Style::subtle);
    EXPECT_EQ(m_session->document()->project.camera.beats.size(), generated);

    // A beat near the end runs past it by up to a second; one before 0 starts at 0.
    m_session->addBeat(7.5);
    ZoomBeat added = m_session->document()->project.camera.beats.back();
    EXPECT_EQ(m_session->selectedBeat(), added.id);
    EXPECT_DOUBLE_EQ(added.end, 8.5);
    EXPECT_EQ(added.scale, 1.6);
    EXPECT_FALSE(added.isGenerated);
    EXPECT_NE(added.center, (Point{0.5, 0.5})); // on the cursor
    m_session->addBeat(-1);
    EXPECT_EQ(m_session->document()->project.camera.beats.back().start, 0);
    m_session->addBeat(2);
    EXPECT_DOUBLE_EQ(m_session->document()->project.camera.beats.back().end, 4.5);

    // Regenerating keeps the person's beats; deleting the selected one clears the selection.
    m_session->regenerateZoom();
    EXPECT_EQ(m_session->document()->project.camera.beats.size(), generated + 3);
    const Uuid selected = *m_session->selectedBeat();
    m_session->deleteBeat(selected);
    EXPECT_FALSE(m_session->selectedBeat());
    EXPECT_EQ(m_session->document()->project.camera.beats.size(), generated + 2);
}

TEST_F(EditorSessionTest, ACutRebuildsTheCursorTheWaveformAndThePlayer) {
    openSample();
    const std::size_t loads = m_opened->items.size();
    QSignalSpy cursors(m_session.get(), &EditorSession::cursorSamplerChanged);
    QSignalSpy waveforms(m_session.get(), &EditorSession::waveformChanged);

    // 0.05 s is too short: no cut, and the selection stays.
    m_session->setSelectionStart(3.0);
    m_session->setSelectionEnd(3.05);
    m_session->cutSelection();
    EXPECT_TRUE(m_session->manualCuts().empty());
    EXPECT_EQ(m_session->selectionEnd(), 3.05);

    // Right to left cuts the same as left to right.
    m_session->setSelectionStart(4.0);
    m_session->setSelectionEnd(1.0);
    m_session->cutSelection();
    ASSERT_EQ(m_session->manualCuts().size(), 1u);
    EXPECT_EQ(m_session->manualCuts()[0].range(), (Range{1, 4}));
    EXPECT_FALSE(m_session->selectionStart());
    EXPECT_FALSE(m_session->selectionEnd());
    EXPECT_EQ(cursors.count(), 1);
    ASSERT_TRUE(waitFor([&] { return m_opened->items.size() > loads && waveforms.count() > 0; }));
    EXPECT_EQ(m_opened->items.back().duration(), 5);
    // The cursor now runs on output time: the clicks inside the cut are gone, the later ones 3 s earlier.
    const std::vector<double> clicks = m_session->cursorSampler()->clicks;
    ASSERT_EQ(clicks.size(), 5u);
    EXPECT_NEAR(clicks[0], 0.52, 1e-9);
    EXPECT_NEAR(clicks[1], 1.52, 1e-9);
    EXPECT_NEAR(clicks[4], 4.52, 1e-9);

    // A second cut is chosen on the edited timeline: output 1.5 to 2.5 is source 4.5 to 5.5.
    m_session->setSelectionStart(1.5);
    m_session->setSelectionEnd(2.5);
    m_session->cutSelection();
    ASSERT_EQ(m_session->manualCuts().size(), 2u);
    EXPECT_EQ(m_session->manualCuts()[1].range(), (Range{4.5, 5.5}));

    // Restoring a cut puts its stretch back into the player, the cursor and the waveform; an unknown cut
    // changes nothing.
    QSignalSpy edits(m_session.get(), &EditorSession::documentChanged);
    m_session->restoreCut(Uuid::random());
    EXPECT_EQ(edits.count(), 0);
    const std::size_t loadsBefore = m_opened->items.size();
    const auto cursorsBefore = cursors.count();
    const auto waveformsBefore = waveforms.count();
    m_session->restoreCut(m_session->manualCuts()[0].id);
    ASSERT_EQ(m_session->manualCuts().size(), 1u);
    EXPECT_EQ(m_session->manualCuts()[0].range(), (Range{4.5, 5.5}));
    EXPECT_EQ(cursors.count(), cursorsBefore + 1);
    ASSERT_TRUE(waitFor([&] {
        return m_opened->items.size() > loadsBefore && waveforms.count() > waveformsBefore &&
               m_opened->items.back().duration() == 7;
    }));
    m_session->restoreAllCuts();
    EXPECT_TRUE(m_session->manualCuts().empty());
    ASSERT_TRUE(waitFor([&] { return m_opened->items.back().duration() == 8; }));
    EXPECT_EQ(m_session->cursorSampler()->clicks.size(), 8u);
    EXPECT_EQ(edits.count(), 2);
}

TEST_F(EditorSessionTest, ABurstOfMusicChangesRendersThePreviewOnce) {
    openSample();
    // The take played at once with its own sound, before its processed mix was rendered.
    ASSERT_EQ(m_opened->items.size(), 2u);
    const PlayerItem& own = m_opened->items.front();
    ASSERT_FALSE(own.composition.audio.empty());
    EXPECT_EQ(own.composition.audio[0].file, own.movie);
    ASSERT_TRUE(m_session->audioPreviewUrl());
    const fs::path first = m_session->audioPreviewUrl()->path();
    EXPECT_TRUE(fs::exists(first));
    // A cancelled panel changes nothing; a chosen file is a bed of the usual levels named after it.
    m_session->chooseMusic();
    EXPECT_FALSE(m_session->document()->project.audio.music);
    m_panels->filesToChoose.push_back(*s_dir / "music.m4a");
    m_session->chooseMusic();
    ASSERT_TRUE(m_session->document()->project.audio.music);
    EXPECT_EQ(m_session->document()->project.audio.music->name, "music");
    EXPECT_EQ(m_session->document()->project.audio.music,
              MusicBed::forFile(Url::fileUrl(*s_dir / "music.m4a")));
    m_session->setMusic(std::nullopt);
    EXPECT_FALSE(m_session->document()->project.audio.music);

    const std::size_t loads = m_opened->items.size();
    QSignalSpy renders(m_session.get(), &EditorSession::isRenderingAudioPreviewChanged);

    MusicBed bed = MusicBed::forFile(Url::fileUrl(*s_dir / "music.m4a"));
    for (int step = 0; step < 20; ++step) {
        bed.gain = 0.05 * step;
        m_session->setMusic(bed);
        QTest::qWait(40);
    }
    ASSERT_TRUE(
        waitFor([&] { return m_opened->items.size() > loads && !m_session->isRenderingAudioPreview(); }));
    QTest::qWait(500);
    EXPECT_EQ(m_opened->items.size(), loads + 1);
    ASSERT_EQ(renders.count(), 2); // up once and down once
    EXPECT_EQ(renders[0][0].toBool(), true);
    EXPECT_EQ(m_session->document()->project.audio.music->gain, 0.05 * 19);

    // The new mix replaced the old file, and goes with the session.
    ASSERT_TRUE(m_session->audioPreviewUrl());
    const fs::path second = m_session->audioPreviewUrl()->path();
    EXPECT_NE(second, first);
    EXPECT_FALSE(fs::exists(first));
    EXPECT_TRUE(fs::exists(second));
    ASSERT_FALSE(m_opened->items.back().composition.audio.empty());
    EXPECT_EQ(m_opened->items.back().composition.audio[0].file, second);
    m_session.reset();
    EXPECT_FALSE(fs::exists(second));
}

TEST_F(EditorSessionTest, SilenceAnalysisFindsThePausesOfTheTake) {
    openSample();
    QSignalSpy analysing(m_session.get(), &EditorSession::isAnalysingSilenceChanged);
    SilenceTrim trim = m_session->document()->project.audio.silence;
    trim.isEnabled = true;
    m_session->setSilence(trim);
    ASSERT_TRUE(waitFor([&] { return !m_session->isAnalysingSilence(); }));
    // On, then off: a quick analysis may be over before setSilence returns.
    ASSERT_EQ(analysing.count(), 2);
    EXPECT_TRUE(analysing.at(0).at(0).toBool());
    EXPECT_FALSE(m_session->lastError()) << *m_session->lastError();
    const std::optional<TimeMap>& found = m_session->document()->project.trim;
    ASSERT_TRUE(found);
    ASSERT_EQ(found->removals().size(), 2u);
    EXPECT_NEAR(found->removals()[0].lower, 2.12, 0.06);
    EXPECT_NEAR(found->removals()[0].upper, 3.38, 0.06);
    EXPECT_NEAR(found->removals()[1].lower, 5.12, 0.06);
    EXPECT_NEAR(found->removals()[1].upper, 6.38, 0.06);
    const std::string expected =
        "2 cuts · " + QString::number(found->removedDuration(), 'f', 1).toStdString() + "s removed (" +
        QString::number(found->removedDuration() / 8 * 100, 'f', 0).toStdString() + "%) · exports at " +
        QString::number(found->outputDuration(), 'f', 1).toStdString() + "s";
    EXPECT_EQ(m_session->trimSummary(), expected);

    // Switched off and on again with a stored analysis: no new analysis.
    trim.isEnabled = false;
    m_session->setSilence(trim);
    EXPECT_FALSE(m_session->trimSummary());
    trim.isEnabled = true;
    m_session->setSilence(trim);
    EXPECT_FALSE(m_session->isAnalysingSilence());
    // The player plays the take without its pauses.
    ASSERT_TRUE(waitFor([&] {
        return !m_opened->items.empty() &&
               std::abs(m_opened->items.back().duration() - found->outputDuration()) < 1e-9;
    }));
}

TEST_F(EditorSessionTest, AMovieFromAFileReplacesTheTakeUnderTheEdit) {
    openSample();
    const std::vector<ZoomBeat> before = m_session->document()->project.camera.beats;
    ASSERT_FALSE(before.empty());
    m_session->addBeat(2);
    const ZoomBeat mine = m_session->document()->project.camera.beats.back();
    const AudioSettings sound = m_session->document()->project.audio;
    const Url take = m_session->document()->project.source.mediaURL;

    // A cancelled panel, a file with no picture and a file that isn't a movie change nothing but the message.
    m_session->replaceRecordingFromFile();
    m_panels->filesToChoose.push_back(*s_dir / "music.m4a");
    m_session->replaceRecordingFromFile();
    ASSERT_TRUE(waitFor([&] { return m_session->lastError().has_value(); }));
    EXPECT_EQ(m_session->lastError(), "That file has no video track.");
    m_session->setLastError(std::nullopt);
    { std::ofstream(*s_dir / "notes.mp4") << "not a movie"; }
    m_panels->filesToChoose.push_back(*s_dir / "notes.mp4");
    m_session->replaceRecordingFromFile();
    ASSERT_TRUE(waitFor([&] { return m_session->lastError().has_value(); }));
    EXPECT_EQ(m_session->document()->project.source.mediaURL, take);
    EXPECT_FALSE(m_session->retakeReport());

    // The 16 s retake: the person's beat is stretched onto it, the director's beats go with the telemetry,
    // and the look stays.
    const std::size_t loads = m_opened->items.size();
    QSignalSpy tracks(m_session.get(), &EditorSession::audioTrackCountChanged);
    m_panels->filesToChoose.push_back(*s_dir / "retake.mp4");
    m_session->replaceRecordingFromFile();
    ASSERT_TRUE(waitFor([&] { return m_session->retakeReport().has_value(); }));
    const RetakeSwap::Report report = *m_session->retakeReport();
    EXPECT_DOUBLE_EQ(report.previousDuration, 8);
    EXPECT_NEAR(report.newDuration, 16, 0.05);
    EXPECT_EQ(report.remappedBeats, 1);
    EXPECT_EQ(report.regeneratedBeats, 0);
    EXPECT_TRUE(report.needsReview());
    const Recording& source = m_session->document()->project.source;
    EXPECT_EQ(source.mediaURL, Url::fileUrl(*s_dir / "retake.mp4"));
    EXPECT_EQ(source.size, (Size{480, 270}));
    EXPECT_EQ(source.frameRate, 25);
    EXPECT_FALSE(source.capturedSystemAudio);
    EXPECT_FALSE(source.capturedMicrophone);
    ASSERT_EQ(m_session->document()->project.camera.beats.size(), 1u);
    const ZoomBeat moved = m_session->document()->project.camera.beats[0];
    EXPECT_EQ(moved.id, mine.id);
    EXPECT_NEAR(moved.start, 2 * mine.start, 0.05);
    EXPECT_NEAR(moved.end, 2 * mine.end, 0.05);
    EXPECT_EQ(m_session->document()->project.audio, sound);
    EXPECT_TRUE(m_session->document()->telemetry().empty());
    EXPECT_FALSE(m_session->selectedBeat());
    EXPECT_FALSE(m_session->cursorSampler());
    EXPECT_EQ(m_session->phase(), SessionPhase::editing());
    EXPECT_EQ(m_session->packageUrl(), Url::fileUrl(package()));

    // Every derived state follows: the player plays the new movie, the probe finds it silent, and the
    // warning says so.
    ASSERT_TRUE(waitFor([&] { return m_opened->items.size() > loads && tracks.count() > 0; }));
    ASSERT_TRUE(waitFor([&] {
        return m_opened->items.back().movie == *s_dir / "retake.mp4" && m_session->audioTrackCount() == 0;
    }));
    EXPECT_NEAR(m_opened->items.back().duration(), 16, 0.05);
    EXPECT_EQ(
        m_session->audioWarning(),
        "This recording has no audio track at all. Enable System audio or Microphone before recording.");
}

TEST_F(EditorSessionTest, ARecordingOnAPrivateDisplayOpensWithZoomsAndARetakeKeepsTheEdit) {
    const VirtualDisplay display;
    const SoundServer sound;
    MARLOWICK_REQUIRE(xvfb(display), pulseAudio(sound));
    recordFrom(display.name(), sound.server());
    FakeUser user(display.name());
    // Two bursts of clicks 1.7 s apart, longer than the director's cluster gap, each a cluster the director
    // zooms into.
    const auto act = [&](int x, int y) {
        for (int i = 0; i < 3; ++i) {
            user.moveTo(x + 40 * i, y + 20 * i);
            QTest::qWait(100);
            user.press(1);
            user.release(1);
            QTest::qWait(100);
        }
        QTest::qWait(1600);
    };

    QSignalSpy phases(m_session.get(), &EditorSession::phaseChanged);
    m_session->setLastError(std::string("an earlier message"));
    m_session->startRecording();
    EXPECT_FALSE(m_session->lastError());
    ASSERT_TRUE(
        waitFor([&] { return m_session->phase() != SessionPhase::idle() || m_session->lastError(); }));
    ASSERT_EQ(m_session->phase(), SessionPhase::recording()) << m_session->lastError().value_or("");
    EXPECT_TRUE(m_session->capturedWithAudio());
    act(200, 150);
    act(900, 500);
    m_session->stopRecording();
    EXPECT_EQ(m_session->phase(), SessionPhase::recording()); // while the movie is finished
    ASSERT_TRUE(waitFor([&] { return m_session->phase() != SessionPhase::recording(); }));
    ASSERT_EQ(m_session->phase(), SessionPhase::editing()) << m_session->lastError().value_or("");
    ASSERT_EQ(phases.count(), 2);

    const MarlowickDocument& first = *m_session->document();
    EXPECT_EQ(first.project.name, "Untitled");
    EXPECT_EQ(first.project.source.size, (Size{1280, 720}));
    EXPECT_EQ(first.project.source.frameRate, 60);
    EXPECT_TRUE(first.project.source.inputEvents.empty());
    EXPECT_EQ(m_session->clickCount(), 6);
    EXPECT_EQ(first.project.camera.style, CameraTrack::Style::dynamic);
    EXPECT_GE(first.project.camera.beats.size(), 2u);
    EXPECT_TRUE(m_session->cursorSampler());
    EXPECT_FALSE(m_session->packageUrl());
    ASSERT_TRUE(waitFor([&] { return m_session->audioTrackCount() && !m_opened->items.empty(); }));
    EXPECT_EQ(m_session->audioTrackCount(), 1);
    const fs::path firstMovie = first.project.source.mediaURL.path();
    EXPECT_EQ(firstMovie.parent_path(), m_session->takesFolder());

    // A person's beat, then a shorter take of one burst: the beat stays, squeezed, and the report says so.
    m_session->addBeat(0.5);
    const ZoomBeat mine = m_session->document()->project.camera.beats.back();
    const double firstDuration = first.project.source.duration;
    m_session->startRetake();
    ASSERT_TRUE(
        waitFor([&] { return m_session->phase() != SessionPhase::editing() || m_session->lastError(); }));
    ASSERT_EQ(m_session->phase(), SessionPhase::recording()) << m_session->lastError().value_or("");
    act(600, 300);
    m_session->stopRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->phase() != SessionPhase::recording(); }));
    ASSERT_EQ(m_session->phase(), SessionPhase::editing()) << m_session->lastError().value_or("");
    ASSERT_TRUE(m_session->retakeReport());
    const RetakeSwap::Report report = *m_session->retakeReport();
    EXPECT_EQ(report.previousDuration, firstDuration);
    EXPECT_LT(report.newDuration, firstDuration);
    EXPECT_EQ(report.remappedBeats, 1);
    EXPECT_GE(report.regeneratedBeats, 1);
    EXPECT_EQ(m_session->clickCount(), 3);
    const std::vector<ZoomBeat>& beats = m_session->document()->project.camera.beats;
    const auto kept =
        std::find_if(beats.begin(), beats.end(), [&](const ZoomBeat& b) { return b.id == mine.id; });
    ASSERT_NE(kept, beats.end());
    EXPECT_FALSE(kept->isGenerated);
    EXPECT_NE(m_session->document()->project.source.mediaURL.path(), firstMovie);
    EXPECT_EQ(m_session->document()->project.name, "Untitled");
    std::error_code ignored;
    fs::remove(firstMovie, ignored);
    fs::remove(m_session->document()->project.source.mediaURL.path(), ignored);
}

TEST_F(EditorSessionTest, ACaptureIsOfTheChosenMonitorAtItsOwnSizeAndAFailureKeepsThePendingRetake) {
    // No monitors to choose from: the primary one, at the size the capture finds, with the sound asked for
    // as chosen.
    EXPECT_TRUE(m_session->monitors().empty());
    m_session->setCapturesSystemAudio(false);
    m_session->setCapturesMicrophone(true);
    m_session->startRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::recording(); }));
    ASSERT_EQ(m_capture->started.size(), 1u);
    const CaptureConfiguration asked = m_capture->started[0];
    EXPECT_EQ(asked.size, Size{});
    EXPECT_EQ(asked.monitor, "");
    EXPECT_EQ(asked.frameRate, 60);
    EXPECT_FALSE(asked.capturesAudio);
    EXPECT_TRUE(asked.capturesMicrophone);
    EXPECT_TRUE(asked.capturesCursor);
    EXPECT_EQ(asked.outputURL.parent_path(), m_session->takesFolder());
    EXPECT_TRUE(asked.outputURL.filename().string().starts_with("take-"));
    EXPECT_EQ(asked.outputURL.extension(), ".mov");
    EXPECT_TRUE(m_session->capturedWithAudio());

    // While the take runs no other take starts, no project opens and nothing exports: the take can still be
    // stopped. A stop that fails goes idle with the message and no project.
    EXPECT_FALSE(m_session->canRecord());
    EXPECT_FALSE(m_session->canOpen());
    EXPECT_FALSE(m_session->canExport());
    EXPECT_FALSE(m_session->startRecording());
    m_panels->packagesToOpen.push_back(package());
    m_session->open();
    EXPECT_EQ(m_panels->shown, 0);
    m_panels->packagesToOpen.clear();
    EXPECT_FALSE(m_session->document());
    EXPECT_EQ(m_session->phase(), SessionPhase::recording());
    EXPECT_EQ(m_capture->started.size(), 1u);
    m_capture->failStop = CaptureError(CaptureError::Kind::writerFailed, "disk gone");
    m_session->stopRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::idle(); }));
    EXPECT_EQ(m_session->lastError(), EditorSession::describe(*m_capture->failStop));
    EXPECT_FALSE(m_session->document());

    // Neither source asked for: a capture without sound, of the monitor picked.
    m_capture->failStart.reset();
    m_capture->failStop.reset();
    m_session->setCapturesMicrophone(false);
    QSignalSpy picks(m_session.get(), &EditorSession::recordedMonitorChanged);
    m_session->setRecordedMonitor("HDMI-1");
    m_session->setRecordedMonitor("HDMI-1");
    EXPECT_EQ(picks.count(), 1);
    m_session->startRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::recording(); }));
    EXPECT_FALSE(m_session->capturedWithAudio());
    EXPECT_EQ(m_capture->started.back().monitor, "HDMI-1");

    // Its end opens the take as a new project.
    m_capture->take.mediaURL = Url::fileUrl(*s_dir / "take.mp4");
    m_capture->take.size = {320, 180};
    m_capture->take.frameRate = 10;
    m_capture->take.duration = 8;
    m_session->stopRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::editing(); }));
    EXPECT_EQ(m_session->document()->project.name, "Untitled");
    EXPECT_FALSE(m_session->retakeReport());

    // A retake whose start fails leaves the project and goes idle; the retake stays pending, so the next
    // capture's take goes under the open project rather than opening a new one.
    openSample();
    const Uuid project = m_session->document()->project.id;
    m_capture->failStart = CaptureError(CaptureError::Kind::noDisplayAvailable);
    EXPECT_TRUE(m_session->startRetake());
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::idle(); }));
    EXPECT_EQ(m_session->lastError(), EditorSession::describe(*m_capture->failStart));
    ASSERT_TRUE(m_session->document());
    m_capture->failStart.reset();
    m_session->startRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::recording(); }));
    m_session->stopRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::editing(); }));
    EXPECT_EQ(m_session->document()->project.id, project);
    ASSERT_TRUE(m_session->retakeReport());
    EXPECT_EQ(m_session->retakeReport()->newDuration, 8);

    // A retake records the sources of the take it replaces, whatever the record screen's ticks say now.
    Recording replaced = m_session->document()->project.source;
    for (const bool microphone : {true, false}) {
        m_session->editProject([&](Project& current) {
            current.source.capturedMicrophone = microphone;
            current.source.capturedSystemAudio = !microphone;
        });
        m_session->setCapturesMicrophone(!microphone);
        m_session->setCapturesSystemAudio(microphone);
        ASSERT_TRUE(m_session->startRetake());
        ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::recording(); }));
        EXPECT_EQ(m_capture->started.back().capturesMicrophone, microphone);
        EXPECT_EQ(m_capture->started.back().capturesAudio, !microphone);
        m_session->stopRecording();
        ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::editing(); }));
    }
}

TEST_F(EditorSessionTest, JobsLandOnlyOnTheProjectTheyWereStartedFor) {
    const TempDir temporary;
    const TemporaryDirectoryOverride override(temporary.path());
    // A second project, over a movie without sound.
    const fs::path other = temporary / "Other.marlowick";
    documentForNewRecording(walkingTake(*s_dir / "retake.mp4", 16, {20, 30}, {3, 10}), "Other").write(other);

    // Jobs started on the first project are still running when the second opens: the silence analysis,
    // the transcription and the first project's waveform land nothing on it, not even a message.
    CaptionTranscriber::setAuthorization(SpeechAuthorization::granted);
    openSample();
    m_session->editProject([](Project& project) { project.audio.silence.isEnabled = true; });
    m_session->analyseSilence();
    m_session->generateCaptions();
    m_session->refreshDerivedState();
    m_panels->packagesToOpen.push_back(other);
    m_session->open();
    ASSERT_EQ(m_session->document()->project.name, "Other");
    ASSERT_TRUE(waitFor([&] {
        return !m_session->isAnalysingSilence() && !m_session->isTranscribing() &&
               m_session->audioTrackCount() == 0;
    }));
    QTest::qWait(300);
    EXPECT_FALSE(m_session->document()->project.trim);
    EXPECT_FALSE(m_session->document()->project.captions);
    EXPECT_FALSE(m_session->lastError()) << *m_session->lastError();
    EXPECT_TRUE(std::all_of(m_session->waveform().begin(), m_session->waveform().end(),
                            [](float peak) { return peak == 0; }));

    // The session ends with jobs of every kind under way: it waits for each, and none of them starts
    // another or leaves a file behind.
    openSample();
    m_session->analyseSilence();
    m_session->generateCaptions();
    m_session->reloadPlayback(true);
    m_session.reset();
    for (const fs::directory_entry& entry : fs::directory_iterator(temporary.path())) {
        EXPECT_EQ(entry.path().extension(), ".marlowick") << entry.path();
    }
}

TEST_F(EditorSessionTest, TheMonitorPickedOutOfTwoIsTheOneRecorded) {
    const TwoMonitorDisplay display;
    MARLOWICK_REQUIRE(xorgDummy(display));
    const TempDir scratch;
    const TemporaryDirectoryOverride temporary(scratch.path());
    recordFrom(display.name(), "unix:/nonexistent");
    m_session->setCapturesSystemAudio(false);
    const std::vector<ScreenMonitor> monitors = m_session->monitors();
    ASSERT_EQ(monitors.size(), 2u);
    EXPECT_EQ(monitors[1].name, "DUMMY1");
    m_session->setRecordedMonitor(monitors[1].name);
    m_session->startRecording();
    ASSERT_TRUE(
        waitFor([&] { return m_session->phase() != SessionPhase::idle() || m_session->lastError(); }));
    ASSERT_EQ(m_session->phase(), SessionPhase::recording()) << m_session->lastError().value_or("");
    QTest::qWait(500);
    m_session->stopRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->phase() != SessionPhase::recording(); }));
    ASSERT_EQ(m_session->phase(), SessionPhase::editing()) << m_session->lastError().value_or("");
    EXPECT_EQ(m_session->document()->project.source.size, (Size{800, 600}));

    // A monitor gone by the next take: the start fails, naming those there are.
    m_session->setRecordedMonitor("DUMMY7");
    m_session->startRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->lastError().has_value(); }));
    EXPECT_EQ(
        m_session->lastError(),
        "No monitor is named DUMMY7; the monitors are DUMMY0 (1280×720, primary) and DUMMY1 (800×600).");
    EXPECT_EQ(m_session->phase(), SessionPhase::idle());
}

TEST_F(EditorSessionTest, CaptionsComeFromTheNarrationAndNeedThePermission) {
    // A sample take with a spoken narration; the session's temporary files go to a folder of this test's.
    const TempDir scratch;
    const fs::path sample = scratch / "Narrated.marlowick";
    const std::string make = std::string(MARLOWICK_CLI) + " sample '" + sample.string() +
                             "' --size 320x180 --rate 10 >/dev/null 2>&1";
    ASSERT_EQ(std::system(make.c_str()), 0) << make;
    const TempDir temporary;
    const TemporaryDirectoryOverride override(temporary.path());
    m_panels->packagesToOpen.push_back(sample);
    m_session->open();
    ASSERT_TRUE(m_session->document());
    ASSERT_FALSE(m_session->document()->project.captions);

    // Denied: the message at once, and no captions.
    CaptionTranscriber::setAuthorization(SpeechAuthorization::denied);
    m_session->generateCaptions();
    CaptionTranscriber::setAuthorization(SpeechAuthorization::granted);
    ASSERT_TRUE(waitFor([&] { return !m_session->isTranscribing(); }));
    ASSERT_TRUE(m_session->lastError());
    EXPECT_TRUE(m_session->lastError()->starts_with("Speech Recognition permission is required."));
    EXPECT_FALSE(m_session->document()->project.captions);

    // Granted: cues of at most eight words over the narration, and the voice file gone afterwards.
    QSignalSpy transcribing(m_session.get(), &EditorSession::isTranscribingChanged);
    m_session->generateCaptions();
    EXPECT_TRUE(m_session->isTranscribing());
    EXPECT_FALSE(m_session->lastError());
    m_session->generateCaptions(); // one at a time
    ASSERT_TRUE(waitFor([&] { return !m_session->isTranscribing(); }));
    EXPECT_EQ(transcribing.count(), 2);
    EXPECT_FALSE(m_session->lastError()) << *m_session->lastError();
    const std::optional<CaptionTrack>& captions = m_session->document()->project.captions;
    ASSERT_TRUE(captions);
    EXPECT_TRUE(captions->isEnabled);
    ASSERT_FALSE(captions->cues.empty());
    for (const CaptionTrack::Cue& cue : captions->cues) {
        EXPECT_FALSE(cue.words.empty());
        EXPECT_LE(cue.words.size(), 8u);
        EXPECT_GE(cue.start(), 0);
        EXPECT_LE(cue.end(), m_session->document()->project.source.duration + 0.1);
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(temporary.path())) {
        EXPECT_FALSE(entry.path().filename().string().starts_with("marlowick-voice-")) << entry.path();
    }
    m_session.reset();
}

TEST_F(EditorSessionTest, AnExportCarriesItsProgressAndEndsInTheEditor) {
    openSample();
    ExportPreset small = ExportPreset::free();
    small.id = "small";
    small.size = {320, 180};
    small.frameRate = 10;

    std::vector<double> progress;
    QObject::connect(m_session.get(), &EditorSession::phaseChanged, [&](SessionPhase phase) {
        if (phase.kind() == SessionPhase::Kind::exporting) {
            progress.push_back(phase.progress());
        }
    });

    // Cancelled: nothing starts.
    m_session->exportMovie(small);
    EXPECT_EQ(m_panels->proposedNames.back(), "Demo.mp4");
    EXPECT_EQ(m_session->phase(), SessionPhase::editing());

    // Stopped on the way: the editor comes back at once without a message, and the file of that name is
    // left as it was.
    const fs::path earlier = *s_dir / "Earlier.mp4";
    std::ofstream(earlier) << "an earlier movie";
    m_panels->filesToSave.push_back(earlier);
    m_session->exportMovie(small);
    ASSERT_EQ(m_session->phase().kind(), SessionPhase::Kind::exporting);
    EXPECT_FALSE(m_session->canOpen());
    EXPECT_FALSE(m_session->canRecord());
    EXPECT_FALSE(m_session->canExport());
    m_session->cancelExport();
    EXPECT_EQ(m_session->phase(), SessionPhase::editing());
    QTest::qWait(1000);
    EXPECT_EQ(m_session->phase(), SessionPhase::editing());
    EXPECT_FALSE(m_session->lastError()) << *m_session->lastError();
    EXPECT_FALSE(m_session->lastExportUrl());
    std::ifstream kept(earlier);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "an earlier movie");
    progress.clear();

    const fs::path target = *s_dir / "Demo.mp4";
    m_panels->filesToSave.push_back(target);
    m_session->exportMovie(small);
    EXPECT_EQ(m_session->phase(), SessionPhase::exporting(0));
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::editing(); }));
    QTest::qWait(100); // a late progress report must not bring the phase back
    EXPECT_EQ(m_session->phase(), SessionPhase::editing());
    EXPECT_FALSE(m_session->lastError()) << *m_session->lastError();
    EXPECT_EQ(m_session->lastExportUrl(), Url::fileUrl(target));
    EXPECT_TRUE(fs::exists(target));
    ASSERT_GE(progress.size(), 3u);
    EXPECT_EQ(progress.front(), 0);
    EXPECT_EQ(progress.back(), 1);
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));

    // A folder can't be written over: the message, back in the editor, the last export kept.
    m_panels->filesToSave.push_back(s_dir->path());
    m_session->exportMovie(small);
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::editing(); }));
    EXPECT_TRUE(m_session->lastError());
    EXPECT_EQ(m_session->lastExportUrl(), Url::fileUrl(target));
}

} // namespace

namespace {

// Everything derived from the open project, as a session shows it once its jobs have landed.
struct DerivedView {
    std::vector<float> waveform;
    std::vector<PlaybackComposition::Segment> segments;
    std::size_t soundEntries = 0;
    bool playsTheMix = false;
    std::vector<std::optional<CursorFrame>> cursor;

    friend bool operator==(const DerivedView&, const DerivedView&) = default;
};

DerivedView derivedView(const EditorSession& session, const OpenedItems& opened) {
    DerivedView view;
    view.waveform = session.waveform();
    if (!opened.items.empty()) {
        const PlaybackComposition& composition = opened.items.back().composition;
        view.segments = composition.segments;
        view.soundEntries = composition.audio.size();
        view.playsTheMix = !composition.audio.empty() && composition.audio.front().preTrimmed;
    }
    if (session.cursorSampler()) {
        for (double t = 0; t <= 8; t += 0.25) {
            view.cursor.push_back(session.cursorSampler()->frameAt(t));
        }
    }
    return view;
}

} // namespace

TEST_F(EditorSessionTest, EditsUndoAndRedoToTheSameProjectsAndDeriveWhatAFreshOpenWould) {
    openSample();
    std::mt19937 random(20261125);
    const auto pick = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    const auto any = [&](std::size_t count) { return static_cast<std::size_t>(random() % count); };

    // The derived state of the session as it is now equals that of a fresh session opening the same state
    // from a package, once both have settled.
    const auto expectAsFreshlyOpened = [&] {
        const TempDir scratch;
        const fs::path saved = scratch / "State.marlowick";
        m_session->document()->write(saved);
        auto panels = std::make_unique<FakePanels>();
        panels->packagesToOpen.push_back(saved);
        auto opened = std::make_shared<OpenedItems>();
        EditorSession fresh(
            std::move(panels), [opened] { return std::make_unique<RecordingPlayer>(opened); },
            [script = m_capture] { return std::make_unique<ScriptedCapturer>(script); }, nullptr);
        fresh.open();
        const bool same = waitFor([&] {
            return !fresh.isRenderingAudioPreview() && !m_session->isRenderingAudioPreview() &&
                   !fresh.waveform().empty() &&
                   derivedView(fresh, *opened) == derivedView(*m_session, *m_opened);
        });
        EXPECT_TRUE(same);
    };

    std::vector<Project> states{m_session->document()->project};
    std::vector<std::string> names;
    for (int step = 0; step < 16; ++step) {
        switch (any(7)) {
        case 0:
            m_session->setZoomStyle(static_cast<CameraTrack::Style>(any(4)));
            break;
        case 1:
            m_session->addBeat(pick(0, 7));
            break;
        case 2:
            if (const auto beats = m_session->document()->project.camera.beats; !beats.empty()) {
                m_session->deleteBeat(beats[any(beats.size())].id);
            }
            break;
        case 3: {
            const double from = pick(0, 6);
            m_session->setSelectionStart(from);
            m_session->setSelectionEnd(from + pick(0.2, 1.5));
            m_session->cutSelection();
            break;
        }
        case 4:
            if (const auto cuts = m_session->manualCuts(); !cuts.empty()) {
                m_session->restoreCut(cuts[any(cuts.size())].id);
            }
            break;
        case 5:
            m_session->setMusic(any(2) == 0
                                    ? std::optional(MusicBed::forFile(Url::fileUrl(*s_dir / "music.m4a")))
                                    : std::nullopt);
            break;
        case 6:
            m_session->editProject("Look", [&](Project& project) {
                project.cursor.scale = pick(0.5, 2.5);
                project.canvas.inset = pick(0, 0.2);
            });
            break;
        }
        if (!(m_session->document()->project == states.back())) {
            states.push_back(m_session->document()->project);
            names.push_back(m_session->undoName().value_or(""));
        }
        if (step == 7) {
            expectAsFreshlyOpened();
        }
    }
    ASSERT_GE(states.size(), 6u);

    // Undone to the start, each step gives back the project before it, exactly; redone to the end, each
    // gives the one after it.
    for (std::size_t i = states.size() - 1; i > 0; --i) {
        EXPECT_EQ(m_session->undoName(), names[i - 1]);
        m_session->undo();
        ASSERT_TRUE(m_session->document()->project == states[i - 1]) << "undoing step " << i;
        if (i == states.size() / 2) {
            expectAsFreshlyOpened();
        }
    }
    EXPECT_FALSE(m_session->undoName());
    EXPECT_FALSE(m_session->isModified());
    expectAsFreshlyOpened();
    for (std::size_t i = 1; i < states.size(); ++i) {
        m_session->redo();
        ASSERT_TRUE(m_session->document()->project == states[i]) << "redoing step " << i;
    }
    EXPECT_FALSE(m_session->redoName());
    expectAsFreshlyOpened();
}

TEST_F(EditorSessionTest, UnsavedChangesAreSavedOrLetGoAsThePersonAnswers) {
    openSample();
    EXPECT_FALSE(m_session->isModified());
    const auto inset = [&] { return m_session->document()->project.canvas.inset; };
    m_session->editProject("Inset", [](Project& project) { project.canvas.inset = 0.15; });
    EXPECT_TRUE(m_session->isModified());
    EXPECT_EQ(m_session->undoName(), "Inset");
    // Undone back to the state on disk, the project is clean again; redone, it isn't.
    m_session->undo();
    EXPECT_FALSE(m_session->isModified());
    EXPECT_EQ(m_session->redoName(), "Inset");
    m_session->redo();
    EXPECT_TRUE(m_session->isModified());

    // The steps of one gesture are one step.
    for (const double depth : {0.16, 0.17, 0.18}) {
        m_session->editProject(
            "Inset", [&](Project& project) { project.canvas.inset = depth; }, "inset-slider");
    }
    m_session->undo();
    EXPECT_EQ(inset(), 0.15);
    m_session->redo();
    EXPECT_EQ(inset(), 0.18);

    // Cancel, and a save whose panel is cancelled, stop the open; nothing is asked of the open panel.
    m_panels->packagesToOpen.push_back(package());
    m_panels->saveAnswers = {FilePanels::SaveAnswer::cancel, FilePanels::SaveAnswer::save};
    m_session->open();
    m_session->open();
    EXPECT_EQ(m_panels->savesAsked, 2);
    EXPECT_EQ(m_panels->packagesToOpen.size(), 1u);
    EXPECT_EQ(inset(), 0.18);
    EXPECT_TRUE(m_session->isModified());

    // Saved through the panel, the project is clean and its history stays: an undo makes it modified.
    const TempDir scratch;
    m_panels->saveAnswers = {FilePanels::SaveAnswer::save};
    m_panels->packagesToSave.push_back(scratch / "Saved.marlowick");
    EXPECT_TRUE(m_session->settleUnsavedChanges());
    EXPECT_FALSE(m_session->isModified());
    EXPECT_EQ(MarlowickDocument::read(scratch / "Saved.marlowick").project.canvas.inset, 0.18);
    m_session->undo();
    EXPECT_TRUE(m_session->isModified());
    m_session->redo();
    EXPECT_FALSE(m_session->isModified());

    // Don't Save lets the action go on and keeps nothing; the open then reads the package as it was.
    m_session->editProject("Inset", [](Project& project) { project.canvas.inset = 0.01; });
    m_panels->saveAnswers = {FilePanels::SaveAnswer::discard};
    m_session->open();
    EXPECT_EQ(m_session->document()->project.name, "Demo");
    EXPECT_FALSE(m_session->isModified());
    EXPECT_FALSE(m_session->undoName());

    // A new take has never been saved.
    m_capture->take = walkingTake(*s_dir / "take.mp4", 8, {20, 30}, {3, 10});
    m_session->startRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::recording(); }));
    m_session->stopRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::editing(); }));
    EXPECT_TRUE(m_session->isModified());
    EXPECT_FALSE(m_session->undoName());
}
