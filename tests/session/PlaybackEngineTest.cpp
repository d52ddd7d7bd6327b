// The preview engine over a fake player: what it tells the player on each load and command, which item it
// builds from real movie files, and how the player's reports from its own threads reach it.

#include "session/PlaybackEngine.h"
#include "support/TempDir.h"

#include <QCoreApplication>
#include <QCoroTask>
#include <QThread>

#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <sstream>
#include <thread>

using namespace marlowick;
using namespace marlowick::test;

namespace {

class NoFrames : public VideoOutput {
public:
    bool hasNewFrame(double) const override { return false; }
    std::optional<PlayerFrame> frameAt(double) override { return std::nullopt; }
};

// What each player the engine made was told. It outlives the players, so that a test can still play a
// report of one that is gone.
struct PlayerLog {
    struct Entry {
        PlayerItem item;
        PlayerCallbacks callbacks;
        std::vector<std::string> commands;
        std::uint64_t seeks = 0;
        bool destroyed = false;
    };
    std::deque<Entry> players;
};

class FakePlayer : public Player {
public:
    FakePlayer(std::shared_ptr<PlayerLog> log)
        : m_log(std::move(log))
        , m_index(m_log->players.size()) {
        m_log->players.emplace_back();
    }
    ~FakePlayer() override { entry().destroyed = true; }

    void open(PlayerItem item, PlayerCallbacks callbacks) override {
        entry().item = std::move(item);
        entry().callbacks = std::move(callbacks);
        entry().commands.push_back("open");
    }
    void play() override { entry().commands.push_back("play"); }
    void pause() override { entry().commands.push_back("pause"); }
    void seek(double time) override {
        std::ostringstream out;
        out << "seek " << time;
        entry().commands.push_back(out.str());
        ++entry().seeks;
    }
    double currentTime() const override { return 0; }
    VideoOutput& videoOutput() override { return m_output; }

private:
    PlayerLog::Entry& entry() { return m_log->players[m_index]; }

    std::shared_ptr<PlayerLog> m_log;
    std::size_t m_index;
    NoFrames m_output;
};

using Commands = std::vector<std::string>;

// A count of seeks no player here reaches: a report carrying it is dropped only for another reason.
constexpr std::uint64_t afterEverySeek = 1000;

// Calls `report` on a thread of its own, as a player does, and lets the engine's thread take what it
// posted.
void reportFromAnotherThread(const std::function<void()>& report) {
    std::thread([&report] { report(); }).join();
    QCoreApplication::processEvents();
}

class PlaybackEngineTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_dir = new TempDir;
        const auto make = [](const std::string& arguments, const std::filesystem::path& path) {
            const std::string command = "ffmpeg -v error -y " + arguments + " '" + path.string() + "'";
            ASSERT_EQ(std::system(command.c_str()), 0) << command;
        };
        const std::string video = "-f lavfi -i testsrc2=size=64x48:rate=10 ";
        const std::string tone = "-f lavfi -i sine=frequency=300:sample_rate=48000 ";
        make(video + tone + "-t 2 -c:v libx264 -c:a aac", *s_dir / "one.mp4");
        make(video + tone + tone + "-map 0:v -map 1:a -map 2:a -t 2 -c:v libx264 -c:a aac",
             *s_dir / "two.mp4");
        make(tone + "-t 2 -c:a aac", *s_dir / "mix.m4a");
    }
    static void TearDownTestSuite() {
        delete s_dir;
        s_dir = nullptr;
    }

    static Url file(const std::string& name) { return Url::fileUrl(*s_dir / name); }

    std::unique_ptr<PlaybackEngine> makeEngine() {
        return std::make_unique<PlaybackEngine>([log = m_log] { return std::make_unique<FakePlayer>(log); });
    }

    static void load(PlaybackEngine& engine, const Url& url, double duration,
                     std::optional<TimeMap> trim = std::nullopt,
                     std::optional<Url> processedAudio = std::nullopt) {
        QCoro::waitFor(engine.load(url, duration, std::move(trim), std::move(processedAudio)));
    }

    PlayerLog::Entry& lastPlayer() { return m_log->players.back(); }

    static TempDir* s_dir;
    std::shared_ptr<PlayerLog> m_log = std::make_shared<PlayerLog>();
};

TempDir* PlaybackEngineTest::s_dir = nullptr;

TEST_F(PlaybackEngineTest, AReloadKeepsThePlayheadAndThePlayState) {
    auto engine = makeEngine();
    EXPECT_EQ(engine->videoOutput(), nullptr);
    load(*engine, file("one.mp4"), 30);
    EXPECT_EQ(lastPlayer().commands, Commands{"open"});
    engine->play();
    reportFromAnotherThread([&] { lastPlayer().callbacks.time(12, lastPlayer().seeks); });
    ASSERT_EQ(engine->currentTime(), 12);

    // Playing at 12 s: the old player is paused and gone, the new one goes on from there.
    load(*engine, file("one.mp4"), 30);
    ASSERT_EQ(m_log->players.size(), 2u);
    EXPECT_TRUE(m_log->players[0].destroyed);
    EXPECT_EQ(m_log->players[0].commands, (Commands{"open", "play", "pause"}));
    EXPECT_EQ(lastPlayer().commands, (Commands{"open", "seek 12", "play"}));
    EXPECT_EQ(engine->currentTime(), 12);
    EXPECT_TRUE(engine->isPlaying());
    EXPECT_NE(engine->videoOutput(), nullptr);

    // A fresh player starts at 0 anyway: a resume this close to it sends no seek.
    engine->pause();
    engine->seek(0.04);
    load(*engine, file("one.mp4"), 30);
    EXPECT_EQ(lastPlayer().commands, Commands{"open"});
    EXPECT_EQ(engine->currentTime(), 0);
    EXPECT_FALSE(engine->isPlaying());

    // A cut that shortens the timeline below the playhead brings it to the new end.
    engine->seek(20);
    load(*engine, file("one.mp4"), 30, TimeMap({{5, 20}}, 30));
    EXPECT_EQ(engine->duration(), 15);
    EXPECT_EQ(lastPlayer().commands, (Commands{"open", "seek 15"}));
    EXPECT_EQ(engine->currentTime(), 15);
    EXPECT_FALSE(engine->isPlaying());
}

TEST_F(PlaybackEngineTest, SeekAndPlayStayInsideTheTimeline) {
    auto engine = makeEngine();
    // Nothing loaded: nothing to move or play.
    engine->seek(5);
    engine->play();
    EXPECT_EQ(engine->currentTime(), 0);
    EXPECT_FALSE(engine->isPlaying());

    load(*engine, file("one.mp4"), 10);
    engine->seek(-3);
    EXPECT_EQ(engine->currentTime(), 0);
    engine->seek(1000);
    EXPECT_EQ(engine->currentTime(), 10);
    EXPECT_EQ(lastPlayer().commands, (Commands{"open", "seek 0", "seek 10"}));

    // Play at the end, or within 0.05 s of it, starts again from the beginning; a little before, it
    // doesn't.
    engine->play();
    EXPECT_EQ(engine->currentTime(), 0);
    EXPECT_TRUE(engine->isPlaying());
    engine->pause();
    engine->seek(9.97);
    engine->play();
    EXPECT_EQ(engine->currentTime(), 0);
    engine->pause();
    engine->seek(9.9);
    engine->play();
    EXPECT_EQ(engine->currentTime(), 9.9);
    EXPECT_EQ(lastPlayer().commands, (Commands{"open", "seek 0", "seek 10", "seek 0", "play", "pause",
                                               "seek 9.97", "seek 0", "play", "pause", "seek 9.9", "play"}));

    // A time the player read before the newest seek was carried out moves nothing: the playhead stays
    // where the user put it, until the player reports from there.
    reportFromAnotherThread([&] { lastPlayer().callbacks.time(4, lastPlayer().seeks - 1); });
    EXPECT_EQ(engine->currentTime(), 9.9);
    reportFromAnotherThread([&] { lastPlayer().callbacks.time(9.92, lastPlayer().seeks); });
    EXPECT_EQ(engine->currentTime(), 9.92);

    // The player stops at the end by itself: the engine is paused there, the playhead stays at the end.
    reportFromAnotherThread([&] {
        lastPlayer().callbacks.time(9.99, lastPlayer().seeks);
        lastPlayer().callbacks.ended();
    });
    EXPECT_FALSE(engine->isPlaying());
    EXPECT_EQ(engine->currentTime(), 9.99);
}

TEST_F(PlaybackEngineTest, TheSourceDecidesBetweenTheMovieAndAComposition) {
    auto engine = makeEngine();
    using Segment = PlaybackComposition::Segment;
    using AudioEntry = PlaybackComposition::AudioEntry;
    const auto one = *s_dir / "one.mp4";
    const auto two = *s_dir / "two.mp4";

    // One track, nothing cut, its own sound: the movie as it is, as long as the session says.
    load(*engine, file("one.mp4"), 4.5);
    EXPECT_EQ(lastPlayer().item.movie, one);
    EXPECT_EQ(lastPlayer().item.composition.segments, (std::vector<Segment>{{0, 4.5, 0}}));
    EXPECT_EQ(lastPlayer().item.composition.audio, (std::vector<AudioEntry>{{one, 0, false}}));
    EXPECT_EQ(lastPlayer().item.composition.videoTracks, 1u);
    EXPECT_EQ(engine->duration(), 4.5);

    // A trim without cuts is no trim.
    load(*engine, file("one.mp4"), 4.5, TimeMap::identity(2));
    EXPECT_EQ(lastPlayer().item.composition.segments, (std::vector<Segment>{{0, 4.5, 0}}));
    EXPECT_EQ(engine->duration(), 4.5);

    // Cuts: a composition, as long as what they keep.
    load(*engine, file("one.mp4"), 2, TimeMap({{0.5, 1}}, 2));
    EXPECT_EQ(lastPlayer().item.composition.segments, (std::vector<Segment>{{0, 0.5, 0}, {1, 1, 0.5}}));
    EXPECT_EQ(engine->duration(), 1.5);

    // Two tracks with nothing cut still need a composition, so that both are heard.
    load(*engine, file("two.mp4"), 2.5);
    EXPECT_EQ(lastPlayer().item.movie, two);
    EXPECT_EQ(lastPlayer().item.composition.audio,
              (std::vector<AudioEntry>{{two, 0, false}, {two, 1, false}}));
    EXPECT_EQ(engine->duration(), 2.5);

    // The processed mix replaces the movie's sound.
    load(*engine, file("one.mp4"), 2, std::nullopt, file("mix.m4a"));
    EXPECT_EQ(lastPlayer().item.composition.audio, (std::vector<AudioEntry>{{*s_dir / "mix.m4a", 0, true}}));

    // A movie that can't be read makes no composition: the file is handed to the player as it is, the
    // session's length kept even with cuts, and no sound since no track could be counted.
    load(*engine, file("missing.mp4"), 7, TimeMap({{1, 2}}, 7));
    EXPECT_EQ(lastPlayer().item.movie, *s_dir / "missing.mp4");
    EXPECT_EQ(lastPlayer().item.composition.segments, (std::vector<Segment>{{0, 7, 0}}));
    EXPECT_TRUE(lastPlayer().item.composition.audio.empty());
    EXPECT_EQ(engine->duration(), 7);
}

TEST_F(PlaybackEngineTest, ReportsLandOnTheEnginesThreadAndOnlyWhileTheirPlayerAndEngineLast) {
    auto engine = makeEngine();
    load(*engine, file("one.mp4"), 10);

    QThread* landedOn = nullptr;
    QObject::connect(engine.get(), &PlaybackEngine::currentTimeChanged,
                     [&landedOn] { landedOn = QThread::currentThread(); });
    QThread* reporter = nullptr;
    reportFromAnotherThread([&] {
        reporter = QThread::currentThread();
        lastPlayer().callbacks.time(3, lastPlayer().seeks);
    });
    EXPECT_EQ(engine->currentTime(), 3);
    EXPECT_EQ(landedOn, engine->thread());
    EXPECT_NE(landedOn, reporter);

    // A report of the replaced player, even one already queued when the new load began, moves nothing.
    const PlayerCallbacks first = lastPlayer().callbacks;
    std::thread([&] { first.time(4, afterEverySeek); }).join();
    load(*engine, file("one.mp4"), 10);
    reportFromAnotherThread([&] {
        first.time(5, afterEverySeek);
        first.ended();
    });
    EXPECT_EQ(engine->currentTime(), 3);
    engine->play();
    reportFromAnotherThread([&] { first.ended(); });
    EXPECT_TRUE(engine->isPlaying());

    // Reports queued before the engine went, and reports after it, do nothing.
    const PlayerCallbacks second = lastPlayer().callbacks;
    std::thread([&] { second.time(6, afterEverySeek); }).join();
    engine.reset();
    reportFromAnotherThread([&] {
        second.time(7, afterEverySeek);
        second.ended();
    });
    EXPECT_TRUE(m_log->players.back().destroyed);
}

TEST_F(PlaybackEngineTest, ALoadOutlivedByItsEngineOrSupersededLeavesOnlyTheNewest) {
    auto engine = makeEngine();
    QCoro::Task<> orphan = engine->load(file("two.mp4"), 2, std::nullopt, std::nullopt);
    engine.reset();
    QCoro::waitFor(orphan);
    EXPECT_TRUE(m_log->players.empty());

    engine = makeEngine();
    QCoro::Task<> older = engine->load(file("two.mp4"), 2, TimeMap({{0, 1}}, 2), std::nullopt);
    QCoro::Task<> newer = engine->load(file("one.mp4"), 3, std::nullopt, std::nullopt);
    QCoro::waitFor(older);
    QCoro::waitFor(newer);
    ASSERT_EQ(m_log->players.size(), 1u);
    EXPECT_EQ(lastPlayer().item.movie, *s_dir / "one.mp4");
    EXPECT_EQ(engine->duration(), 3);

    // Two quick edits reload twice: the second load still goes on from where the first found the playhead,
    // playing, not from the start.
    engine->seek(1.5);
    engine->play();
    QCoro::Task<> first = engine->load(file("one.mp4"), 3, std::nullopt, std::nullopt);
    QCoro::Task<> second = engine->load(file("one.mp4"), 3, std::nullopt, std::nullopt);
    QCoro::waitFor(first);
    QCoro::waitFor(second);
    ASSERT_EQ(m_log->players.size(), 2u);
    EXPECT_EQ(lastPlayer().commands, (Commands{"open", "seek 1.5", "play"}));
    EXPECT_EQ(engine->currentTime(), 1.5);
    EXPECT_TRUE(engine->isPlaying());
}

} // namespace
