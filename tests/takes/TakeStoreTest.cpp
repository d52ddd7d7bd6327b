// The takes folder over real files: who may read a take and the files beside it, the recovery copy read
// back whole, which takes count as abandoned (a process killed with SIGKILL included), how a take is
// described and made into a project, and discarding one.

#include "takes/TakeStore.h"

#include "media/MediaError.h"
#include "media/RecordingWriter.h"
#include "messages/Describe.h"
#include "model/ModelCoding.h"
#include "support/TempDir.h"
#include "support/WalkingTake.h"
#include "trajectory/NewRecording.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

// The permissions of `path` in octal, as "600", so that a failure reads as the mode it is.
std::string modeOf(const fs::path& path) {
    char text[8];
    std::snprintf(text, sizeof text, "%o",
                  static_cast<unsigned>(fs::status(path).permissions() & fs::perms::all));
    return text;
}

void ffmpeg(const std::string& arguments, const fs::path& path) {
    const std::string command = "ffmpeg -v error -y " + arguments + " '" + path.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

// The files in `folder`, by name.
std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Writes two seconds of a grey picture as the capture does, then finishes and finalises the movie.
void writeTake(const fs::path& movie) {
    RecordingWriter::Settings settings;
    settings.width = 64;
    settings.height = 48;
    settings.frameRate = 10;
    settings.allowHardware = false;
    RecordingWriter writer(movie, settings);
    const auto picture = writer.makePicture();
    const auto converter = writer.makeConverter();
    std::vector<std::uint8_t> pixels(64 * 48 * 4, 128);
    for (int i = 0; i < 20; ++i) {
        converter->convert(pixels.data(), 64 * 4, 64, 48, *picture);
        writer.writeVideo(*picture, std::int64_t{i} * RecordingWriter::videoTimeScale / 10);
    }
    writer.finish();
    RecordingWriter::finalise(movie);
}

// The process's umask, set for the scope: the private files must not depend on the person's.
class UmaskOverride {
public:
    explicit UmaskOverride(mode_t mask)
        : m_previous(::umask(mask)) {}
    ~UmaskOverride() { ::umask(m_previous); }

private:
    mode_t m_previous;
};

class TakeStoreTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_dir = new TempDir;
        ffmpeg(
            "-f lavfi -i testsrc2=size=320x180:rate=10 -f lavfi -i sine=frequency=300:sample_rate=48000 -t 4 "
            "-c:v libx264 -pix_fmt yuv420p -c:a aac",
            *s_dir / "take.mov");
    }
    static void TearDownTestSuite() {
        delete s_dir;
        s_dir = nullptr;
    }

    // A copy of the sample movie as the take `hold` names.
    static void recordInto(const TakeStore::Hold& hold) {
        fs::copy_file(*s_dir / "take.mov", hold.movie());
        fs::permissions(hold.movie(), fileops::privatePermissions);
    }

    static TempDir* s_dir;
    TempDir m_home;
    TakeStore m_store{m_home / "data/marlowick/takes"};
};

TempDir* TakeStoreTest::s_dir = nullptr;

TEST_F(TakeStoreTest, TheFolderTheTakeAndEveryFileBesideItAreTheOwnersAlone) {
    // Even with a umask that lets everyone read, nothing written here can be read by others.
    const UmaskOverride everyoneReads(0);
    TakeStore::Hold take = m_store.newTake();
    EXPECT_EQ(modeOf(m_store.folder()), "700");
    EXPECT_EQ(take.movie().parent_path(), m_store.folder());
    EXPECT_TRUE(take.movie().filename().string().starts_with("take-"));
    EXPECT_EQ(take.movie().extension(), ".mov");
    EXPECT_FALSE(fs::exists(take.movie())); // the capture's writer creates it

    // The capture's writer creates the movie private and its final rewrite keeps it so.
    writeTake(take.movie());
    EXPECT_EQ(modeOf(take.movie()), "600");
    EXPECT_NEAR(TakeStore::summarise(take.movie()).duration.value_or(0), 2, 0.2);

    MarlowickDocument document =
        documentForNewRecording(walkingTake(take.movie(), 2, {10, 10}, {2, 1}), "Untitled");
    TakeStore::writeRecoveryCopy(take.movie(), document);
    TakeStore::writeRecoveryCopy(take.movie(), document); // and again, over the first
    EXPECT_EQ(modeOf(TakeStore::recoveryCopyOf(take.movie())), "700");
    for (const auto& entry : fs::recursive_directory_iterator(m_store.folder())) {
        EXPECT_EQ(modeOf(entry.path()), entry.is_directory() ? "700" : "600") << entry.path();
    }

    // A folder made by hand with the usual permissions is closed before the next take goes in.
    fs::permissions(m_store.folder(), fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                          fs::perms::others_read | fs::perms::others_exec);
    const TakeStore::Hold next = m_store.newTake();
    EXPECT_EQ(modeOf(m_store.folder()), "700");

    // A file written again through a staged output keeps its private mode.
    const fs::path preview = m_home / "preview.m4a";
    fileops::createPrivateFile(preview);
    {
        fileops::StagedOutput output(preview);
        std::ofstream(output.staging(), std::ios::trunc) << "mix";
        output.commit();
    }
    EXPECT_EQ(modeOf(preview), "600");
    EXPECT_EQ(readText(preview), "mix");
}

TEST_F(TakeStoreTest, TheRecoveryCopyHoldsTheEditsAndTheTelemetryAndIsReplacedWhole) {
    TakeStore::Hold take = m_store.newTake();
    recordInto(take);
    MarlowickDocument document =
        documentForNewRecording(walkingTake(take.movie(), 4, {20, 30}, {3, 10}), "Untitled");
    document.project.manualCuts.emplace_back(Uuid::random(), 1.0, 1.5);
    TakeStore::writeRecoveryCopy(take.movie(), document);
    // A second edit replaces the copy; no scratch file is left beside it.
    document.project.manualCuts.emplace_back(Uuid::random(), 2.5, 3.0);
    document.project.name = "Tour";
    TakeStore::writeRecoveryCopy(take.movie(), document);
    EXPECT_EQ(
        namesIn(m_store.folder()),
        (std::vector<std::string>{take.movie().stem().string() + ".lock", take.movie().filename().string(),
                                  TakeStore::recoveryCopyOf(take.movie()).filename().string()}));

    const MarlowickDocument recovered = TakeStore::documentOf(take.movie());
    EXPECT_EQ(recovered.storedProjectJson(), document.storedProjectJson());
    EXPECT_EQ(recovered.project.source.mediaURL, Url::fileUrl(take.movie()));
    EXPECT_TRUE(recovered.project.source.inputEvents.empty());
    EXPECT_EQ(recovered.telemetry(), document.telemetry());
    EXPECT_EQ(recovered.project.manualCuts.size(), 2u);
    EXPECT_TRUE(TakeStore::summarise(take.movie()).hasEdits);

    // A copy that doesn't read as a project says so, and the movie alone still makes one.
    const fs::path copy = TakeStore::recoveryCopyOf(take.movie()) / "Document.json";
    const std::string good = readText(copy);
    writeText(copy, "{\"formatVersion\": 3, \"project\": {\"name\": 5}}");
    try {
        TakeStore::documentOf(take.movie());
        ADD_FAILURE() << "a damaged copy was read";
    } catch (const TakeError& error) {
        EXPECT_EQ(error.kind(), TakeError::Kind::recoveryCopyDamaged);
        EXPECT_TRUE(describe(error).starts_with("the take's recovery copy is damaged")) << describe(error);
    }
    EXPECT_EQ(TakeStore::documentOfMovie(take.movie()).project.name, TakeStore::recoveredName);
    // So do events that aren't events.
    writeText(copy, good);
    EXPECT_NO_THROW(TakeStore::documentOf(take.movie()));
    writeText(TakeStore::recoveryCopyOf(take.movie()) / "events.json", "{}");
    EXPECT_THROW(TakeStore::documentOf(take.movie()), TakeError);
    // One from a newer version is refused as a newer package is.
    writeText(copy, "{\"formatVersion\": 99, \"project\": " + toJson(document.project).dump() + "}");
    EXPECT_THROW(TakeStore::documentOf(take.movie()), DocumentError);
}

TEST_F(TakeStoreTest, OnlyTakesNobodyHoldsAreAbandonedAKilledHolderIncluded) {
    EXPECT_TRUE(m_store.abandonedTakes().empty()); // no folder yet

    std::optional<TakeStore::Hold> mine = m_store.newTake();
    recordInto(*mine);
    const fs::path movie = mine->movie();
    // Held here: another look, even from this process, finds it held and can't hold it.
    EXPECT_TRUE(m_store.abandonedTakes().empty());
    EXPECT_FALSE(TakeStore(m_store.folder()).hold(movie));
    mine->release();
    EXPECT_EQ(m_store.abandonedTakes(), std::vector<fs::path>{movie});
    mine = m_store.hold(movie);
    ASSERT_TRUE(mine);
    EXPECT_TRUE(m_store.abandonedTakes().empty());
    mine.reset(); // the hold's end keeps the take
    EXPECT_EQ(m_store.abandonedTakes(), std::vector<fs::path>{movie});

    // A process that holds a take and is killed lets go of it with its end.
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        TakeStore::Hold held = m_store.newTake();
        fs::copy_file(*s_dir / "take.mov", held.movie());
        const char done = 1;
        [[maybe_unused]] const ssize_t written = ::write(ready[1], &done, 1);
        ::pause();
        ::_exit(0);
    }
    char done = 0;
    ASSERT_EQ(::read(ready[0], &done, 1), 1);
    ::close(ready[0]);
    ::close(ready[1]);
    EXPECT_EQ(m_store.abandonedTakes(), std::vector<fs::path>{movie}); // the child's is held
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    const std::vector<fs::path> abandoned = m_store.abandonedTakes();
    ASSERT_EQ(abandoned.size(), 2u);
    // The most recent first.
    EXPECT_EQ(abandoned[1], movie);
    EXPECT_TRUE(m_store.hold(abandoned[0]));
}

TEST_F(TakeStoreTest, ATakeIsNamedByItsDateAndLengthAndMadeIntoAProjectWithOrWithoutItsEdits) {
    TakeStore::Hold take = m_store.newTake();
    recordInto(take);
    // Written at 15:04:42 local time on 25 Nov 2026, four seconds long: it started at 15:04:38.
    std::tm local{};
    local.tm_year = 2026 - 1900;
    local.tm_mon = 10;
    local.tm_mday = 25;
    local.tm_hour = 15;
    local.tm_min = 4;
    local.tm_sec = 42;
    local.tm_isdst = -1;
    const auto written = std::chrono::system_clock::from_time_t(std::mktime(&local));
    fs::last_write_time(take.movie(), std::chrono::file_clock::from_sys(written));
    const TakeSummary summary = TakeStore::summarise(take.movie());
    EXPECT_EQ(summary.description(), "the take of 25 Nov 2026 at 15:04, 0:04 long");
    EXPECT_FALSE(summary.hasEdits);
    EXPECT_NEAR(std::chrono::duration<double>(written - summary.started).count(), 4, 0.1);
    EXPECT_EQ((TakeSummary{{}, written, 3723.4, false}.durationText()), "1:02:03");

    // Without a recovery copy: a new project over the movie alone, named so, without telemetry.
    const MarlowickDocument bare = TakeStore::documentOf(take.movie());
    EXPECT_EQ(bare.project.name, "Recovered take");
    EXPECT_EQ(bare.project.source.size, (Size{320, 180}));
    EXPECT_EQ(bare.project.source.frameRate, 10);
    EXPECT_NEAR(bare.project.source.duration, 4, 0.1);
    EXPECT_TRUE(bare.project.source.capturedSystemAudio);
    EXPECT_FALSE(bare.project.source.capturedMicrophone);
    EXPECT_TRUE(bare.telemetry().empty());
    // It saves as a package like any other.
    bare.write(m_home / "Recovered.marlowick");
    EXPECT_EQ(MarlowickDocument::read(m_home / "Recovered.marlowick").project.name, "Recovered take");

    // A take cut short while it was written, its last fragment torn, reads up to there.
    const fs::path fragmented = m_home / "fragmented.mov";
    ffmpeg("-f lavfi -i testsrc2=size=320x180:rate=10 -t 6 -c:v libx264 -g 10 -pix_fmt yuv420p "
           "-movflags frag_keyframe+empty_moov+default_base_moof",
           fragmented);
    fs::resize_file(fragmented, fs::file_size(fragmented) * 2 / 3);
    const MarlowickDocument cut = TakeStore::documentOfMovie(fragmented);
    EXPECT_GT(cut.project.source.duration, 2);
    EXPECT_LT(cut.project.source.duration, 6);

    // A take killed before its first fragment holds nothing to read; a movie without a picture is no take.
    const fs::path empty = m_home / "empty.mov";
    writeText(empty, "");
    EXPECT_FALSE(TakeStore::summarise(empty).duration);
    EXPECT_EQ(TakeStore::summarise(empty).description().find("long"), std::string::npos);
    EXPECT_THROW(TakeStore::documentOfMovie(empty), MediaError);
    const fs::path sound = m_home / "sound.m4a";
    ffmpeg("-f lavfi -i sine -t 1 -c:a aac", sound);
    try {
        TakeStore::documentOfMovie(sound);
        ADD_FAILURE() << "a movie without a picture was made into a project";
    } catch (const TakeError& error) {
        EXPECT_EQ(error.kind(), TakeError::Kind::noPicture);
    }
}

TEST_F(TakeStoreTest, DiscardingDeletesTheTakeAndItsCopyAndAReleasedTakeStays) {
    TakeStore::Hold kept = m_store.newTake();
    recordInto(kept);
    TakeStore::Hold dropped = m_store.newTake();
    recordInto(dropped);
    const MarlowickDocument document = TakeStore::documentOfMovie(dropped.movie());
    TakeStore::writeRecoveryCopy(dropped.movie(), document);
    TakeStore::writeRecoveryCopy(kept.movie(), document);
    // A package the take was saved into keeps its own link to the movie.
    document.write(m_home / "Saved.marlowick");

    const fs::path keptMovie = kept.movie();
    const fs::path droppedMovie = dropped.movie();
    kept.release();
    dropped.discard();
    dropped.discard(); // twice is once
    EXPECT_FALSE(fs::exists(droppedMovie));
    EXPECT_FALSE(fs::exists(TakeStore::recoveryCopyOf(droppedMovie)));
    EXPECT_EQ(namesIn(m_store.folder()),
              (std::vector<std::string>{keptMovie.filename().string(),
                                        TakeStore::recoveryCopyOf(keptMovie).filename().string()}));
    EXPECT_EQ(m_store.abandonedTakes(), std::vector<fs::path>{keptMovie});
    EXPECT_NO_THROW(MarlowickDocument::read(m_home / "Saved.marlowick"));
}

} // namespace
