// The session's takes over a real takes folder: a capture recorded into it, the recovery copy that follows
// the edits, a save that moves the take out, a discard, and the takes a session left behind offered again
// at the next start.

#include "session/EditorSession.h"
#include "support/QueuedPanels.h"
#include "support/TempDir.h"
#include "support/WalkingTake.h"
#include "takes/TakeStore.h"
#include "trajectory/NewRecording.h"

#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

class NoFrames : public VideoOutput {
public:
    bool hasNewFrame(double) const override { return false; }
    std::optional<PlayerFrame> frameAt(double) override { return std::nullopt; }
};

class SilentPlayer : public Player {
public:
    void open(PlayerItem, PlayerCallbacks) override {}
    void play() override {}
    void pause() override {}
    void seek(double) override {}
    double currentTime() const override { return 0; }
    VideoOutput& videoOutput() override { return m_output; }

private:
    NoFrames m_output;
};

// Records by copying a movie to where the session asks, with a pointer walk as its telemetry.
class CopyingCapturer : public ScreenCapturer {
public:
    explicit CopyingCapturer(fs::path movie)
        : m_movie(std::move(movie)) {}
    TelemetryAvailability telemetryAvailability() const override { return TelemetryAvailability::full; }
    void start(const CaptureConfiguration& configuration) override { m_target = configuration.outputURL; }
    Recording stop() override {
        fs::copy_file(m_movie, m_target);
        return walkingTake(m_target, 8, {20, 30}, {3, 10});
    }
    std::optional<CaptureError> interruption() const override { return std::nullopt; }
    std::vector<std::string> takeWarnings() override { return {}; }
    CaptureStatistics statistics() const override { return {}; }

private:
    fs::path m_movie;
    fs::path m_target;
};

bool waitFor(const std::function<bool()>& condition, int milliseconds = 60000) {
    return QTest::qWaitFor(condition, milliseconds);
}

// The takes in `folder` by their movies, held or not.
std::vector<fs::path> moviesIn(const fs::path& folder) {
    std::vector<fs::path> movies;
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(folder, missing)) {
        if (entry.path().extension() == ".mov") {
            movies.push_back(entry.path());
        }
    }
    return movies;
}

// The recovery copy's project, or none while there is no copy.
std::optional<Project> recoveredProject(const fs::path& movie) {
    if (!fs::exists(TakeStore::recoveryCopyOf(movie))) {
        return std::nullopt;
    }
    return TakeStore::documentOf(movie).project;
}

class TakeRecoveryTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_dir = new TempDir;
        const std::string command =
            "ffmpeg -v error -y -f lavfi -i testsrc2=size=320x180:rate=10 -f lavfi -i "
            "sine=frequency=300:sample_rate=48000 -t 8 -c:v libx264 -pix_fmt yuv420p "
            "-c:a aac '" +
            (*s_dir / "take.mov").string() + "'";
        ASSERT_EQ(std::system(command.c_str()), 0);
        documentForNewRecording(walkingTake(*s_dir / "take.mov", 8, {20, 30}, {3, 10}), "Demo")
            .write(*s_dir / "Demo.marlowick");
    }
    static void TearDownTestSuite() {
        delete s_dir;
        s_dir = nullptr;
    }

    void SetUp() override {
        // Each test has a home of its own for its takes.
        setenv("XDG_DATA_HOME", m_data.path().c_str(), 1);
        startSession();
    }

    // A new session, as at the next start of the application; the one before ends.
    void startSession() {
        m_session.reset();
        auto panels = std::make_unique<QueuedPanels>();
        m_panels = panels.get();
        m_session = std::make_unique<EditorSession>(
            std::move(panels), [] { return std::make_unique<SilentPlayer>(); },
            [] { return std::make_unique<CopyingCapturer>(*s_dir / "take.mov"); }, nullptr);
    }

    // Records a take and waits for its project to open; answers its movie.
    fs::path record() {
        EXPECT_TRUE(m_session->startRecording());
        EXPECT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::recording(); }));
        m_session->stopRecording();
        EXPECT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::editing(); }))
            << m_session->lastError().value_or("");
        return m_session->document() ? m_session->document()->project.source.mediaURL.path() : fs::path();
    }

    // Cuts `from` to `to` (output seconds) as the window does.
    void cut(double from, double to) {
        m_session->setSelectionStart(from);
        m_session->setSelectionEnd(to);
        m_session->cutSelection();
    }

    fs::path takesFolder() const { return m_data.path() / "marlowick" / "takes"; }

    static TempDir* s_dir;
    TempDir m_data;
    QueuedPanels* m_panels = nullptr;
    std::unique_ptr<EditorSession> m_session;
};

TempDir* TakeRecoveryTest::s_dir = nullptr;

TEST_F(TakeRecoveryTest, ATakeIsRecordedIntoTheTakesFolderItsCopyFollowsTheEditsAndASaveMovesItOut) {
    EXPECT_EQ(m_session->takesFolder(), takesFolder());
    const fs::path movie = record();
    EXPECT_EQ(movie.parent_path(), takesFolder());
    // Held while the project is open: nobody else offers it.
    EXPECT_TRUE(TakeStore(takesFolder()).abandonedTakes().empty());

    // The preview mix, the person's voice, is theirs alone too.
    ASSERT_TRUE(waitFor([&] { return m_session->audioPreviewUrl().has_value(); }));
    EXPECT_EQ(fs::status(m_session->audioPreviewUrl()->path()).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);

    // The fresh take's telemetry goes to its copy soon after it opens.
    ASSERT_TRUE(waitFor([&] { return recoveredProject(movie).has_value(); }, 10000));
    EXPECT_EQ(TakeStore::documentOf(movie).telemetry(), m_session->document()->telemetry());
    EXPECT_TRUE(recoveredProject(movie)->manualCuts.empty());

    // Two edits: the copy is written once they have paused, not at each one.
    cut(1, 2);
    m_session->addBeat(5);
    EXPECT_TRUE(recoveredProject(movie)->manualCuts.empty()); // the event loop hasn't run since
    ASSERT_TRUE(waitFor(
        [&] {
            const std::optional<Project> copy = recoveredProject(movie);
            return copy && copy->manualCuts.size() == 1 &&
                   copy->camera.beats == m_session->document()->project.camera.beats;
        },
        10000));
    const MarlowickDocument recovered = TakeStore::documentOf(movie);
    EXPECT_EQ(recovered.storedProjectJson(), m_session->document()->storedProjectJson());

    // A retake in the unsaved project is a take of the folder too; the copy follows it there.
    ASSERT_TRUE(m_session->startRetake());
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::recording(); }));
    m_session->stopRecording();
    ASSERT_TRUE(waitFor([&] { return m_session->phase() == SessionPhase::editing(); }));
    const fs::path retake = m_session->document()->project.source.mediaURL.path();
    EXPECT_NE(retake, movie);
    EXPECT_EQ(retake.parent_path(), takesFolder());
    ASSERT_TRUE(waitFor([&] { return recoveredProject(retake).has_value(); }, 10000));

    // A save brings the take into the package and empties the folder of the project's takes and copies.
    cut(3, 4);
    m_panels->packagesToSave.push_back(m_data.path() / "Tour.marlowick");
    m_session->save();
    ASSERT_FALSE(m_session->lastError()) << *m_session->lastError();
    EXPECT_TRUE(moviesIn(takesFolder()).empty());
    EXPECT_TRUE(fs::is_empty(takesFolder()));
    const fs::path saved = m_data.path() / "Tour.marlowick" / "Media" / retake.filename();
    EXPECT_EQ(m_session->document()->project.source.mediaURL.path(), saved);
    const MarlowickDocument package = MarlowickDocument::read(m_data.path() / "Tour.marlowick");
    EXPECT_EQ(package.project.manualCuts.size(), m_session->document()->project.manualCuts.size());
    // Edits after the save are the package's business: no copy comes back.
    cut(5, 6);
    QTest::qWait(2500);
    EXPECT_TRUE(fs::is_empty(takesFolder()));
}

TEST_F(TakeRecoveryTest, AnUnsavedTakeStaysWhenItsProjectIsReplacedAndIsRecoveredWithItsEdits) {
    const fs::path movie = record();
    cut(1, 2);
    cut(4, 5);
    // A session that ends without a save (a window killed) leaves the take, with its copy as of the last
    // edit once the edits have paused.
    ASSERT_TRUE(waitFor(
        [&] {
            const std::optional<Project> copy = recoveredProject(movie);
            return copy && copy->manualCuts.size() == 2;
        },
        10000));
    m_session.reset();
    EXPECT_EQ(TakeStore(takesFolder()).abandonedTakes(), std::vector<fs::path>{movie});

    // The next start offers it, naming its date and length, and recovering opens it with both cuts.
    startSession();
    m_panels->recoverAnswers = {true};
    m_session->recoverAbandonedTakes();
    ASSERT_EQ(m_panels->askedToRecover.size(), 1u);
    const std::string& asked = m_panels->askedToRecover[0];
    EXPECT_TRUE(asked.starts_with("the take of ")) << asked;
    EXPECT_TRUE(asked.ends_with(", 0:08 long")) << asked;
    EXPECT_TRUE(m_panels->askedToDelete.empty());
    ASSERT_TRUE(m_session->document());
    EXPECT_EQ(m_session->phase(), SessionPhase::editing());
    EXPECT_FALSE(m_session->packageUrl());
    EXPECT_EQ(m_session->document()->project.name, "Untitled");
    EXPECT_EQ(m_session->document()->project.manualCuts.size(), 2u);
    EXPECT_EQ(m_session->document()->project.source.mediaURL.path(), movie);
    EXPECT_FALSE(m_session->document()->telemetry().empty());
    ASSERT_TRUE(waitFor([&] { return m_session->audioTrackCount().has_value(); }));
    EXPECT_EQ(m_session->audioTrackCount(), 1);
    // Held again, and edited on: its copy follows as before.
    EXPECT_TRUE(TakeStore(takesFolder()).abandonedTakes().empty());
    cut(0.5, 1);
    ASSERT_TRUE(waitFor(
        [&] {
            const std::optional<Project> copy = recoveredProject(movie);
            return copy && copy->manualCuts.size() == 3;
        },
        10000));

    // "Don't Save" deletes the project's take and its copy.
    m_session->discardTake();
    EXPECT_TRUE(fs::is_empty(takesFolder()));
}

TEST_F(TakeRecoveryTest, DecliningAsksOnceMoreAndOnlyThenDeletesAndATakeHeldElsewhereIsNotOffered) {
    // Three abandoned takes, the newest first: one with edits, two without; and one another window holds.
    const TakeStore store(takesFolder());
    std::vector<fs::path> movies;
    for (int i = 0; i < 3; ++i) {
        TakeStore::Hold take = store.newTake();
        fs::copy_file(*s_dir / "take.mov", take.movie());
        fs::last_write_time(take.movie(), fs::file_time_type::clock::now() - std::chrono::hours(3 - i));
        movies.push_back(take.movie());
        if (i == 0) {
            MarlowickDocument edited =
                documentForNewRecording(walkingTake(take.movie(), 8, {20, 30}, {3, 10}), "Untitled");
            edited.project.manualCuts.emplace_back(Uuid::random(), 2.0, 3.0);
            TakeStore::writeRecoveryCopy(take.movie(), edited);
        }
    }
    TakeStore::Hold elsewhere = store.newTake();
    fs::copy_file(*s_dir / "take.mov", elsewhere.movie());

    // Declined and deleted; declined and kept; declined and kept again.
    m_panels->deleteAnswers = {true, false};
    m_session->recoverAbandonedTakes();
    EXPECT_EQ(m_panels->askedToRecover.size(), 3u);
    EXPECT_EQ(m_panels->askedToDelete, m_panels->askedToRecover);
    EXPECT_FALSE(m_session->document());
    EXPECT_FALSE(fs::exists(movies[2]));
    EXPECT_TRUE(fs::exists(movies[1]));
    EXPECT_TRUE(fs::exists(movies[0]));
    EXPECT_TRUE(fs::exists(TakeStore::recoveryCopyOf(movies[0])));
    EXPECT_TRUE(fs::exists(elsewhere.movie()));

    // At the next start the two kept ones are offered again; the first recovered opens and the last waits
    // unasked.
    startSession();
    m_panels->recoverAnswers = {true};
    m_session->recoverAbandonedTakes();
    EXPECT_EQ(m_panels->askedToRecover.size(), 1u);
    ASSERT_TRUE(m_session->document());
    EXPECT_EQ(m_session->document()->project.source.mediaURL.path(), movies[1]);
    EXPECT_EQ(m_session->document()->project.name, "Recovered take");
    EXPECT_TRUE(m_session->document()->telemetry().empty());
    EXPECT_EQ(TakeStore(takesFolder()).abandonedTakes(), std::vector<fs::path>{movies[0]});

    // With a project open nothing is offered.
    m_session->recoverAbandonedTakes();
    EXPECT_EQ(m_panels->askedToRecover.size(), 1u);
}

} // namespace
