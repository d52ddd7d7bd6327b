// The package on disk: what a save writes, what a read accepts, and that a failure never costs the user
// the package they had.

#include "model/MarlowickDocument.h"
#include "model/ModelCoding.h"
#include "model/TelemetryFile.h"
#include "support/Samples.h"
#include "support/Thrown.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

ino_t inodeOf(const fs::path& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_ino;
}

std::vector<std::string> leftovers(const fs::path& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) {
        const std::string name = entry.path().filename().string();
        if (name.find("marlowick-save-") != std::string::npos || name.ends_with(".old")) {
            names.push_back(name);
        }
    }
    return names;
}

DocumentError::Kind documentErrorOf(const std::function<void()>& action, std::string* payload = nullptr) {
    try {
        action();
    } catch (const DocumentError& e) {
        if (payload) {
            *payload = e.what();
        }
        return e.kind();
    }
    ADD_FAILURE() << "no DocumentError";
    return DocumentError::Kind::notAPackage;
}

class Package : public ::testing::Test {
protected:
    TempDir dir;
    fs::path movie = writeMovie(dir / "take-1.mov", std::string(100000, 'm'));
    fs::path target = dir / "Demo.marlowick";

    MarlowickDocument saved(std::size_t events = 500) {
        MarlowickDocument doc(sampleProject(movie), sampleEvents(events));
        doc.write(target);
        return doc;
    }

    void editEnvelope(const std::function<void(Json&)>& edit) {
        Json json = Json::parse(readText(target / "Document.json"));
        edit(json);
        writeText(target / "Document.json", json.dump(2));
    }
};

} // namespace

TEST_F(Package, ASaveWritesTheLayoutAndReadsBackTheSame) {
    const MarlowickDocument original = saved();
    EXPECT_TRUE(original.telemetryChanged());

    EXPECT_TRUE(fs::is_regular_file(target / "Media" / "take-1.mov"));
    EXPECT_EQ(inodeOf(target / "Media" / "take-1.mov"), inodeOf(movie)); // linked, not copied
    EXPECT_TRUE(fs::is_directory(target / "Cache"));
    EXPECT_TRUE(fs::is_empty(target / "Cache"));
    EXPECT_TRUE(fs::is_regular_file(target / "Telemetry" / "events.json"));
    EXPECT_TRUE(leftovers(dir.path()).empty());

    const MarlowickDocument read = MarlowickDocument::read(target);
    EXPECT_FALSE(read.telemetryChanged());
    EXPECT_EQ(read.telemetry(), original.telemetry());
    EXPECT_EQ(read.project.source.mediaURL.path(), target / "Media" / "take-1.mov");
    Project expected = original.project;
    expected.source.mediaURL = read.project.source.mediaURL;
    EXPECT_EQ(toJson(read.project), toJson(expected));
}

TEST_F(Package, DocumentJsonIsSortedAndPrettyPrinted) {
    saved();
    const std::string text = readText(target / "Document.json");
    const auto version = text.find("\"formatVersion\": 3");
    const auto media = text.find("\"mediaRelativePath\": \"Media/take-1.mov\"");
    const auto project = text.find("\"project\": {");
    ASSERT_NE(version, std::string::npos);
    ASSERT_NE(media, std::string::npos);
    ASSERT_NE(project, std::string::npos);
    EXPECT_LT(version, media);
    EXPECT_LT(media, project);
    // Nested keys are sorted too: in the project, "audio" < "camera" < "canvas" < ... < "source".
    EXPECT_LT(text.find("\"audio\""), text.find("\"camera\""));
    EXPECT_LT(text.find("\"camera\""), text.find("\"canvas\""));
    EXPECT_LT(text.find("\"manualCuts\""), text.find("\"source\""));
    EXPECT_LT(text.find("\"capturedMicrophone\""), text.find("\"duration\""));
    // The stored URL doesn't depend on where the package lives.
    EXPECT_NE(text.find("\"mediaURL\": \"file:///Media/take-1.mov\""), std::string::npos);
}

TEST_F(Package, ReadRefusesWhatIsNotAPackageOrTooNew) {
    fs::create_directories(dir / "Other.marlowick" / "Media");
    writeText(dir / "Other.marlowick" / "Telemetry" / "events.json", "[]");
    std::string payload;
    EXPECT_EQ(documentErrorOf([&] { MarlowickDocument::read(dir / "Other.marlowick"); }, &payload),
              DocumentError::Kind::notAPackage);
    EXPECT_EQ(payload, (dir / "Other.marlowick").string());
    EXPECT_EQ(documentErrorOf([&] { MarlowickDocument::read(dir / "Nowhere.marlowick"); }),
              DocumentError::Kind::notAPackage);

    saved();
    for (int older : {0, 2}) {
        editEnvelope([&](Json& j) { j["formatVersion"] = older; });
        EXPECT_NO_THROW(MarlowickDocument::read(target)) << older;
    }
    editEnvelope([](Json& j) { j["formatVersion"] = 4; });
    EXPECT_EQ(documentErrorOf([&] { MarlowickDocument::read(target); }, &payload),
              DocumentError::Kind::unsupportedFormatVersion);
    EXPECT_EQ(payload, "4");

    // A newer file that doesn't decode reports what broke, not its version.
    editEnvelope([](Json& j) { j["project"].erase("name"); });
    EXPECT_THROW(MarlowickDocument::read(target), CodingError);

    writeText(target / "Document.json", "{\"formatVersion\": 3, ");
    EXPECT_THROW(MarlowickDocument::read(target), CodingError);

    // Nesting is bounded: deep enough for any key a later version may add, and a million levels is refused
    // before it is built.
    const auto nested = [](int depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    saved();
    editEnvelope([&](Json& j) { j["project"]["fromLater"] = Json::parse(nested(maximumJsonDepth - 2)); });
    EXPECT_NO_THROW(MarlowickDocument::read(target));
    writeText(target / "Document.json", nested(1'000'000));
    const auto deep = thrown<CodingError>([&] { MarlowickDocument::read(target); });
    ASSERT_TRUE(deep) << "a million levels read";
    EXPECT_STREQ(deep->what(), "Document.json nests deeper than 64 levels");
}

TEST_F(Package, ReadRefusesAMovieThatIsMissingOrOutsideThePackage) {
    saved();
    fs::remove(target / "Media" / "take-1.mov");
    std::string payload;
    EXPECT_EQ(documentErrorOf([&] { MarlowickDocument::read(target); }, &payload),
              DocumentError::Kind::mediaMissing);
    EXPECT_EQ(payload, "Media/take-1.mov");

    // The movie beside the package exists, but a package never reaches out of itself.
    for (const std::string& escape :
         std::vector<std::string>{"../take-1.mov", "Media/../../take-1.mov", movie.string()}) {
        editEnvelope([&](Json& j) { j["mediaRelativePath"] = escape; });
        EXPECT_EQ(documentErrorOf([&] { MarlowickDocument::read(target); }, &payload),
                  DocumentError::Kind::mediaMissing)
            << escape;
        EXPECT_EQ(payload, escape);
    }
    fs::create_symlink(movie, target / "Media" / "take-1.mov");
    editEnvelope([&](Json& j) { j["mediaRelativePath"] = "Media/take-1.mov"; });
    EXPECT_EQ(documentErrorOf([&] { MarlowickDocument::read(target); }), DocumentError::Kind::mediaMissing);

    // Paths the system refuses to look up at all are missing movies too, not failures of the file system.
    fs::create_symlink("loop", target / "Media" / "loop");
    for (const std::string& unreachable : {"Media/" + std::string(300, 'a'), std::string("Media/loop")}) {
        editEnvelope([&](Json& j) { j["mediaRelativePath"] = unreachable; });
        EXPECT_EQ(documentErrorOf([&] { MarlowickDocument::read(target); }),
                  DocumentError::Kind::mediaMissing)
            << unreachable;
    }
}

TEST_F(Package, MissingTelemetryOpensEmptyAndDamagedOrUnreadableTelemetryIsRefused) {
    saved();
    const fs::path events = target / "Telemetry" / "events.json";
    const std::vector<std::string> damaged{
        "[{\"time\": 1, \"kind\": \"move\", \"location\": {\"x\": 1, \"y\": 2}}",   // cut short
        "[{\"time\": 1, \"kind\": \"hover\", \"location\": {\"x\": 1, \"y\": 2}}]", // unknown kind
        "[{\"time\": 1, \"kind\": \"move\", \"location\": {\"x\": 1}}]",            // missing key
        "[{\"time\": null, \"kind\": \"move\", \"location\": {\"x\": 1, \"y\": 2}}]",
        "[{\"time\": -inf, \"kind\": \"move\", \"location\": {\"x\": 1, \"y\": 2}}]",
        "[{\"time\": 1e400, \"kind\": \"move\", \"location\": {\"x\": 1, \"y\": 2}}]",
        "[{\"time\": 1, \"kind\": \"mo\\qve\", \"location\": {\"x\": 1, \"y\": 2}}]", // bad escape
        "[{\"time\": 1, \"note\": [1, 2, {\"a\": tru}], \"kind\": \"move\", \"location\": {\"x\": 1, \"y\": "
        "2}}]",
        "[{\"time\": 1, \"note\": " + std::string(100, '[') + std::string(100, ']') +
            ", \"kind\": \"move\", \"location\": {\"x\": 1, \"y\": 2}}]", // nested past any sense
        "[{\"time\": 1, \"kind\": \"move\", \"location\": {\"x\": 1, \"y\": 2}},]",
        "[] []",
        "{\"events\": []}",
        "",
    };
    for (const std::string& text : damaged) {
        writeText(events, text);
        std::string payload;
        EXPECT_EQ(documentErrorOf([&] { MarlowickDocument::read(target); }, &payload),
                  DocumentError::Kind::telemetryDamaged)
            << text;
        EXPECT_EQ(payload, "Telemetry/events.json");
    }
    // A file that can't be read at all is no damaged one: the system's reason is what the person reads.
    fs::remove(events);
    fs::create_directory(events);
    const auto unreadable = thrown<fs::filesystem_error>([&] { MarlowickDocument::read(target); });
    ASSERT_TRUE(unreadable) << "read a folder as events";
    EXPECT_EQ(unreadable->path1(), events);
    fs::remove(events);
    EXPECT_TRUE(MarlowickDocument::read(target).telemetry().empty());

    // Keys in another order, unknown keys of any shape, escapes, whitespace and whole numbers are all fine.
    writeText(events,
              R"( [ {"location": {"y": 2.5, "x": 1, "z": null}, "note": {"a\"b": [true, false, "\u00e9"]},
                             "kind": "keyPress", "time": 3},
                            {"time": -0.5e1, "kind": "\u0064own", "location": {"x": 0, "y": 1E2}} ] )");
    const auto read = MarlowickDocument::read(target).telemetry();
    ASSERT_EQ(read.size(), 2u);
    EXPECT_EQ(read[0], (InputEvent{3, InputEvent::Kind::keyPress, {1, 2.5}}));
    EXPECT_EQ(read[1], (InputEvent{-5, InputEvent::Kind::down, {0, 100}}));
    writeText(events, "[]");
    EXPECT_TRUE(MarlowickDocument::read(target).telemetry().empty());
}

TEST_F(Package, TelemetryFileKeepsEveryDoubleExactly) {
    const std::vector<InputEvent> events{{0.1 + 0.2, InputEvent::Kind::scroll, {1e-300, -0.0}},
                                         {12345.678901234567, InputEvent::Kind::drag, {1.0 / 3.0, 2e21}}};
    writeTelemetryFile(dir / "e.json", events);
    EXPECT_EQ(readTelemetryFile(dir / "e.json"), events);
    EXPECT_THROW(writeTelemetryFile(dir / "f.json",
                                    {{std::numeric_limits<double>::infinity(), InputEvent::Kind::move, {}}}),
                 CodingError);
}

TEST_F(Package, InlineEventsInTheProjectStayWhereTheyAre) {
    saved(3);
    editEnvelope([](Json& j) {
        j["project"]["source"]["inputEvents"] =
            Json::parse(R"([{"time": 9, "kind": "down", "location": {"x": 4, "y": 5}}])");
        j["project"]["source"]["mediaURL"] = "file:///somewhere/else.mov";
    });
    const MarlowickDocument doc = MarlowickDocument::read(target);
    EXPECT_EQ(doc.telemetry().size(), 3u);
    EXPECT_EQ(doc.project.source.inputEvents.size(), 1u);
    EXPECT_EQ(doc.project.source.mediaURL.path(), target / "Media" / "take-1.mov");
}

TEST_F(Package, AnUnchangedSaveMovesNoBytes) {
    saved();
    const MarlowickDocument doc = MarlowickDocument::read(target);
    const ino_t eventsInode = inodeOf(target / "Telemetry" / "events.json");
    const std::string eventsBytes = readText(target / "Telemetry" / "events.json");
    const ino_t movieInode = inodeOf(target / "Media" / "take-1.mov");
    writeText(target / "Cache" / "waveform.bin", "stale");

    doc.write(target);
    doc.write(target);
    EXPECT_EQ(inodeOf(target / "Telemetry" / "events.json"), eventsInode);
    EXPECT_EQ(readText(target / "Telemetry" / "events.json"), eventsBytes);
    EXPECT_EQ(inodeOf(target / "Media" / "take-1.mov"), movieInode);
    EXPECT_TRUE(fs::is_empty(target / "Cache"));
    EXPECT_TRUE(leftovers(dir.path()).empty());
}

TEST_F(Package, ChangedTelemetryIsWrittenFromMemory) {
    saved();
    MarlowickDocument doc = MarlowickDocument::read(target);
    const ino_t before = inodeOf(target / "Telemetry" / "events.json");
    doc.mutableTelemetry().resize(2);
    EXPECT_TRUE(doc.telemetryChanged());
    doc.write(target);
    EXPECT_NE(inodeOf(target / "Telemetry" / "events.json"), before);
    EXPECT_EQ(MarlowickDocument::read(target).telemetry().size(), 2u);

    // Unchanged, but the target has no events file: written from memory.
    const MarlowickDocument reread = MarlowickDocument::read(target);
    fs::remove(target / "Telemetry" / "events.json");
    reread.write(target);
    EXPECT_EQ(MarlowickDocument::read(target).telemetry().size(), 2u);
}

TEST_F(Package, AnUnchangedSaveOverAnotherPackageKeepsItsOwnEvents) {
    saved(10);
    const MarlowickDocument ten = MarlowickDocument::read(target);
    const fs::path other = dir / "Other.marlowick";
    MarlowickDocument(sampleProject(movie, "Other"), sampleEvents(99)).write(other);

    ten.write(other);
    EXPECT_EQ(MarlowickDocument::read(other).telemetry().size(), 10u);
    EXPECT_EQ(MarlowickDocument::read(other).project.name, "Demo");
}

TEST_F(Package, ASaveFindsTheMovieInThePreviousSaveWhenItsSourceIsGone) {
    MarlowickDocument doc(sampleProject(movie), sampleEvents(5));
    doc.write(target);
    fs::remove(movie);
    doc.write(target); // the take in the temporary directory is gone, the package still has it
    EXPECT_TRUE(fs::is_regular_file(target / "Media" / "take-1.mov"));

    std::string payload;
    EXPECT_EQ(documentErrorOf([&] { doc.write(dir / "Elsewhere.marlowick"); }, &payload),
              DocumentError::Kind::mediaMissing);
    EXPECT_EQ(payload, movie.string());
    EXPECT_FALSE(fs::exists(dir / "Elsewhere.marlowick"));
    EXPECT_TRUE(leftovers(dir.path()).empty());
}

TEST_F(Package, AFailedSaveLeavesThePackageAsItWas) {
    saved();
    const std::string before = readText(target / "Document.json");
    MarlowickDocument doc = MarlowickDocument::read(target);

    doc.project.canvas.inset = std::numeric_limits<double>::infinity(); // can't be written
    EXPECT_THROW(doc.write(target), CodingError);
    EXPECT_EQ(readText(target / "Document.json"), before);
    EXPECT_TRUE(leftovers(dir.path()).empty());

    doc = MarlowickDocument::read(target);
    doc.setTelemetry({{std::nan(""), InputEvent::Kind::move, {}}});
    EXPECT_THROW(doc.write(target), CodingError);
    EXPECT_EQ(readText(target / "Document.json"), before);
    EXPECT_EQ(MarlowickDocument::read(target).telemetry().size(), 500u);
    EXPECT_TRUE(leftovers(dir.path()).empty());
}

TEST_F(Package, ASaveReplacesOnlyAPackage) {
    const MarlowickDocument doc(sampleProject(movie), {});
    const fs::path folder = dir / "Documents";
    writeText(folder / "letter.txt", "dear");
    writeText(dir / "notes.marlowick", "not a directory");
    EXPECT_EQ(documentErrorOf([&] { doc.write(folder); }), DocumentError::Kind::notAPackage);
    EXPECT_EQ(documentErrorOf([&] { doc.write(dir / "notes.marlowick"); }), DocumentError::Kind::notAPackage);
    EXPECT_EQ(readText(folder / "letter.txt"), "dear");
    EXPECT_EQ(readText(dir / "notes.marlowick"), "not a directory");

    // A target in folders that don't exist yet is made with them; a trailing slash names the package.
    const fs::path deep = dir / "a" / "b" / "Deep.marlowick";
    doc.write(deep.string() + "/");
    EXPECT_NO_THROW(MarlowickDocument::read(deep));
    EXPECT_EQ(MarlowickDocument::cacheDirectory(deep), deep / "Cache");
}
