// The marlowick tool as a user runs it: its output, its exit status, and that a failure says what is
// wrong in one line and leaves the files alone.

#include "media/VideoDecoder.h"
#include "model/MarlowickDocument.h"
#include "model/ModelCoding.h"
#include "support/Samples.h"
#include "takes/TakeStore.h"

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

std::string quoted(const std::string& s) {
    std::string q = "'";
    for (char c : s) {
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return q + "'";
}

class Cli : public ::testing::Test {
protected:
    TempDir dir;
    fs::path movie = writeMovie(dir / "take-3.mov");

    Result run(const std::vector<std::string>& args) {
        std::string command = quoted(MARLOWICK_CLI);
        for (const auto& a : args) {
            command += " " + quoted(a);
        }
        command += " >" + quoted((dir / "out.txt").string()) + " 2>" + quoted((dir / "err.txt").string());
        const int raw = std::system(command.c_str());
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readText(dir / "out.txt"), readText(dir / "err.txt")};
    }

    fs::path samplePackage() {
        Project p = sampleProject(movie);
        p.manualCuts = {Span(Uuid::random(), 10, 12)};
        p.captions =
            CaptionTrack{CaptionTrack::cuesFromWords({{"Hi", 1, 1.2, 1}, {"there.", 1.3, 1.6, 1}}, 8, 0.6),
                         CaptionStyle{}, true};
        const fs::path package = dir / "Sample.marlowick";
        MarlowickDocument(p, sampleEvents(240)).write(package);
        return package;
    }

    static std::size_t lineCount(const std::string& text) {
        return std::count(text.begin(), text.end(), '\n');
    }

    // Runs `args`, which must end with `status` and say `said` in one line.
    void expectRefused(const std::vector<std::string>& args, int status, const std::string& said) {
        const Result r = run(args);
        EXPECT_EQ(r.status, status) << said << ": " << r.err;
        EXPECT_EQ(lineCount(r.err), 1u) << r.err;
        EXPECT_NE(r.err.find(said), std::string::npos) << r.err;
    }

    static void ffmpeg(const std::string& arguments, const fs::path& path) {
        const std::string command = "ffmpeg -v error " + arguments + " " + quoted(path.string());
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
    }
};

} // namespace

TEST_F(Cli, HelpAndUsage) {
    for (const std::vector<std::string>& args : {std::vector<std::string>{"--help"},
                                                 {"info", "--help"},
                                                 {"resave", "--help"},
                                                 {"recover", "--help"}}) {
        const Result r = run(args);
        EXPECT_EQ(r.status, 0);
        EXPECT_NE(r.out.find("Usage: marlowick"), std::string::npos);
    }
    EXPECT_EQ(run({}).status, 2);
    const Result unknown = run({"render"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(lineCount(unknown.err), 1u);
    EXPECT_EQ(run({"resave", "only-one.marlowick"}).status, 2);
    EXPECT_EQ(run({"info", "a", "b"}).status, 2);
    EXPECT_EQ(run({"info", "--yaml", "a"}).status, 2);
}

TEST_F(Cli, InfoSummarisesThePackage) {
    const Result r = run({"info", samplePackage().string()});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Name        Demo\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Duration    0:30.0 (30.00 s)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Frame       1920 × 1080 at 60 fps"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Zoom        Dynamic, 1 beat (1 generated, 0 edited)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Cuts        1 by hand (2.0 s); silence not analysed"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Output      0:28.0 after cuts"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Captions    1 cue, 2 words, on"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Telemetry   240 events: 236 move, 2 down, 2 up, 0 drag, 0 scroll, 0 keyPress"),
              std::string::npos)
        << r.out;
}

TEST_F(Cli, InfoJsonIsTheStoredProject) {
    const fs::path package = samplePackage();
    const Result r = run({"info", package.string(), "--json"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Json stored = Json::parse(readText(package / "Document.json"))["project"];
    EXPECT_EQ(Json::parse(r.out), stored);
}

TEST_F(Cli, ResaveBringsAnOldPackageUpToDate) {
    const fs::path old = dir / "Old.marlowick";
    writeMovie(old / "Media" / "clip.mov");
    writeText(old / "Telemetry" / "events.json",
              R"([{"time": 0.5, "kind": "down", "location": {"x": 3, "y": 4}}])");
    writeText(old / "Document.json", R"({
      "formatVersion": 1, "mediaRelativePath": "Media/clip.mov",
      "project": {"id": "0B7E5A2C-1111-4222-8333-944455556666", "name": "Old one",
                  "source": {"mediaURL": "file:///Users/someone/clip.mov", "size": {"width": 1280, "height": 720},
                             "frameRate": 30, "duration": 8},
                  "camera": {"keyframes": [{"time": 1, "center": {"x": 0.2, "y": 0.3}, "scale": 1},
                                           {"time": 2, "center": {"x": 0.2, "y": 0.3}, "scale": 1.6},
                                           {"time": 4, "center": {"x": 0.2, "y": 0.3}, "scale": 1}]}}})");
    const fs::path out = dir / "New.marlowick";
    const Result r = run({"resave", old.string(), out.string()});
    ASSERT_EQ(r.status, 0) << r.err;

    const Json doc = Json::parse(readText(out / "Document.json"));
    EXPECT_EQ(doc["formatVersion"], 3);
    EXPECT_EQ(doc["project"]["camera"]["beats"].size(), 1u);
    EXPECT_FALSE(doc["project"]["camera"].contains("keyframes"));
    EXPECT_EQ(doc["project"]["canvas"]["contentMode"], "fill");
    EXPECT_EQ(MarlowickDocument::read(out).telemetry().size(), 1u);

    // Saving what we wrote gives the very same bytes.
    const fs::path again = dir / "Again.marlowick";
    ASSERT_EQ(run({"resave", out.string(), again.string()}).status, 0);
    EXPECT_EQ(readText(again / "Document.json"), readText(out / "Document.json"));
    ASSERT_EQ(run({"resave", again.string(), again.string()}).status, 0);
    EXPECT_EQ(readText(again / "Document.json"), readText(out / "Document.json"));
}

TEST_F(Cli, FailuresAreOneLineAndTouchNothing) {
    fs::create_directories(dir / "Empty.marlowick");
    expectRefused({"info", (dir / "Empty.marlowick").string()}, 1,
                  (dir / "Empty.marlowick").string() + ": not a Marlowick package");

    const fs::path package = samplePackage();
    Json doc = Json::parse(readText(package / "Document.json"));
    doc["formatVersion"] = 9;
    writeText(package / "Document.json", doc.dump());
    expectRefused({"info", package.string()}, 1, "format version 9");

    doc["formatVersion"] = 3;
    doc["project"]["canvas"]["ratio"] = {{"square", Json::object()}, {"classic", Json::object()}};
    writeText(package / "Document.json", doc.dump());
    expectRefused({"resave", package.string(), (dir / "Out.marlowick").string()}, 1,
                  "Document.json is damaged: project.canvas.ratio: Invalid number of keys found");
    EXPECT_FALSE(fs::exists(dir / "Out.marlowick"));

    // Saving over something that isn't a package leaves it alone.
    const fs::path good = dir / "Good.marlowick";
    MarlowickDocument(sampleProject(movie), {}).write(good);
    writeText(dir / "Folder" / "keep.txt", "keep");
    expectRefused({"resave", good.string(), (dir / "Folder").string()}, 1,
                  "is not a Marlowick package; it was left as it is");
    EXPECT_EQ(readText(dir / "Folder" / "keep.txt"), "keep");

    fs::remove(good / "Media" / "take-3.mov");
    expectRefused({"info", good.string()}, 1, "the movie Media/take-3.mov is missing from the package");
}

TEST_F(Cli, ZoomRedirectsFromTheTelemetryKeepingEditedBeats) {
    Project p = sampleProject(movie); // one generated beat from 2 to 5
    const ZoomBeat mine(Uuid::random(), 20, 24, {0.1, 0.9}, 1.3, 0.5, 0.5, Easing::linear, false);
    p.camera.beats.push_back(mine);
    const fs::path package = dir / "Zoom.marlowick";
    MarlowickDocument(p,
                      {{1, InputEvent::Kind::down, {480, 270}}, {10, InputEvent::Kind::keyPress, {960, 540}}})
        .write(package);
    const std::string before = readText(package / "Document.json");

    Result r = run({"zoom", package.string(), "--style", "cinematic", "--json"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Json track = Json::parse(r.out);
    EXPECT_EQ(track["style"], "cinematic");
    ASSERT_EQ(track["beats"].size(), 3u);
    EXPECT_EQ(track["beats"][0]["scale"], 2.6);
    EXPECT_EQ(track["beats"][0]["center"], Json::parse(R"({"x": 0.25, "y": 0.25})"));
    EXPECT_EQ(track["beats"][2]["id"], mine.id.toString());
    EXPECT_EQ(readText(package / "Document.json"), before); // nothing written without --write

    r = run({"zoom", package.string(), "--style=subtle", "--write"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("3 beats (2 by the director, 1 edited)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("person"), std::string::npos) << r.out;
    const MarlowickDocument saved = MarlowickDocument::read(package);
    EXPECT_EQ(saved.project.camera.style, CameraTrack::Style::subtle);
    EXPECT_EQ(saved.project.camera.beats.size(), 3u);
    EXPECT_EQ(saved.project.camera.beats[0].scale, 1.4);
    EXPECT_EQ(saved.telemetry().size(), 2u);

    EXPECT_EQ(run({"zoom", package.string(), "--style"}).status, 2);
    EXPECT_EQ(run({"zoom", (dir / "Missing.marlowick").string()}).status, 1);
}

TEST_F(Cli, FrameDrawsTheFinishedPicture) {
    const fs::path clip = dir / "clip.mov";
    ffmpeg("-f lavfi -i testsrc2=size=128x72:rate=10 -t 1 -pix_fmt yuv420p", clip);
    Project p = sampleProject(clip);
    p.source.size = {128, 72};
    p.source.frameRate = 10;
    p.source.duration = 1;
    const fs::path package = dir / "Frame.marlowick";
    MarlowickDocument(p, sampleEvents(120)).write(package);

    const fs::path png = dir / "frame.png";
    const Result r = run({"frame", package.string(), "--at", "0.5", "--size", "160x90", "-o", png.string()});
    ASSERT_EQ(r.status, 0) << r.err;
    VideoDecoder picture(png);
    EXPECT_EQ(picture.width(), 160);
    EXPECT_EQ(picture.height(), 90);
    const auto image = picture.next();
    ASSERT_TRUE(image.has_value());
    // The fresh-recording canvas: a violet gradient around the recording.
    const std::uint8_t* corner = image->image.row(2) + 4 * 2;
    EXPECT_GT(corner[0], corner[1]);

    fs::remove(clip.string());
    fs::remove(package / "Media" / "clip.mov");
    writeText(package / "Media" / "clip.mov", "not a movie");
    const Result broken = run({"frame", package.string(), "--at", "0.5", "-o", (dir / "x.png").string()});
    EXPECT_EQ(broken.status, 1);
    EXPECT_EQ(lineCount(broken.err), 1u);
    EXPECT_FALSE(fs::exists(dir / "x.png"));
}

TEST_F(Cli, BadOptionValuesAreRefusedInOneLineNamingTheOptionAndTheValue) {
    const std::string package = samplePackage().string(); // 30 s with a 2 s cut: 28 s when finished
    const std::string png = (dir / "x.png").string();
    const std::string fresh = (dir / "New.marlowick").string();
    const struct {
        std::vector<std::string> args;
        std::string said;
    } cases[] = {
        {{"frame", package, "--at", "abc", "-o", png}, "frame: --at takes seconds, got 'abc'"},
        {{"frame", package, "--at", "28.5", "-o", png},
         "--at 28.5 lies outside the finished video, which runs from 0 to 28.00 s"},
        {{"frame", package, "--at", "-1", "-o", png}, "--at -1 lies outside the finished video"},
        {{"frame", package, "--at", "1", "--size", "160by90", "-o", png},
         "--size takes WIDTHxHEIGHT, as 1280x720, got '160by90'"},
        {{"frame", package, "--at", "1"}, "frame needs --at SECONDS and -o FILE.png"},
        {{"silence", package, "--threshold", "loud"},
         "--threshold takes a fraction of the voice's level from 0 to 1, got 'loud'"},
        {{"silence", package, "--minimum", "-2"}, "--minimum takes seconds of zero or more, got '-2'"},
        {{"sample", fresh, "--size", "321x181"},
         "--size takes an even WIDTHxHEIGHT, as 1280x720, got '321x181'"},
        {{"sample", fresh, "--rate", "0"}, "--rate takes frames a second from 1 to 240, got '0'"},
        {{"record", "-o", fresh, "--countdown", "soon"},
         "record: --countdown takes seconds from 0 to 60, got 'soon'"},
        {{"record", "-o", fresh, "--backend", "wayland", "--monitor", "HDMI-1"},
         "record: --monitor chooses among an X display's monitors; on Wayland the desktop's screen-sharing "
         "dialog asks which screen to share"},
        {{"zoom", package, "--style", "wild"}, "zoom: unknown style 'wild'"},
        {{"export", package, "--preset", "8k", "-o", (dir / "x.mp4").string()}, "export: no preset '8k'"},
        {{"export", package, "--preset", "free-720p", "-o", (dir / "x.mp4").string(), "--subtitles", "ass"},
         "--subtitles takes srt, vtt or none, got 'ass'"},
    };
    for (const auto& c : cases) {
        expectRefused(c.args, 2, c.said);
    }
    EXPECT_FALSE(fs::exists(png));
    EXPECT_FALSE(fs::exists(fresh));
}

TEST_F(Cli, WritingCommandsRefuseTargetsThatWouldLoseSomething) {
    const fs::path package = samplePackage();
    const std::string document = readText(package / "Document.json");
    const fs::path folder = dir / "folder.mp4";
    fs::create_directory(folder);
    fs::create_directory_symlink(package, dir / "link");
    const std::string p = package.string();
    const struct {
        std::vector<std::string> args;
        std::string said;
    } cases[] = {
        {{"export", p, "--preset", "free-720p", "-o", folder.string()}, "is a folder"},
        {{"mix", p, "-o", (dir / "Sample.marlowick").string()}, "is a folder"},
        {{"export", p, "--preset", "free-720p", "-o", (package / "Media" / "out.mp4").string()},
         "lies inside the package"},
        {{"mix", p, "-o", (package / "Document.json").string()}, "lies inside the package"},
        {{"mix", p, "-o", (dir / "elsewhere" / ".." / "Sample.marlowick" / "x.m4a").string()},
         "lies inside the package"},
        {{"frame", p, "--at", "1", "-o", (dir / "link" / "Cache" / "f.png").string()},
         "lies inside the package"},
        {{"export", p, "--preset", "free-720p", "-o", (dir / "x.webm").string()},
         "what is written is a mp4 file; name it"},
        {{"mix", p, "-o", (dir / "x.wav").string()}, "name it " + (dir / "x.m4a").string()},
        {{"frame", p, "--at", "1", "-o", (dir / "x.jpg").string()}, "name it " + (dir / "x.png").string()},
    };
    for (const auto& c : cases) {
        expectRefused(c.args, 2, c.said);
    }
    EXPECT_EQ(readText(package / "Document.json"), document);
    EXPECT_TRUE(fs::is_empty(folder));
    EXPECT_FALSE(fs::exists(dir / "x.webm") || fs::exists(dir / "x.wav") || fs::exists(dir / "x.jpg"));
}

TEST_F(Cli, SilenceFindsThePauseAndMixRendersTheCutSound) {
    const fs::path clip = dir / "talk.mov";
    // Video, a quiet system track, and a voice with a pause from 1 s to 2.5 s.
    ffmpeg(
        "-f lavfi -i testsrc2=size=64x48:rate=10 -f lavfi -i sine=frequency=200:sample_rate=48000 -f lavfi "
        "-i "
        "\"aevalsrc='if(between(t,1,2.5),0,0.5*sin(2*PI*440*t))':s=48000:d=3.5\" -t 3.5 -map 0 -map 1 -map 2 "
        "-filter:a:0 volume=0.1 -c:v libx264 -c:a aac",
        clip);
    Project p = sampleProject(clip);
    p.source.duration = 3.5;
    p.source.capturedMicrophone = true;
    const fs::path package = dir / "Talk.marlowick";
    // A click before the pause, and a key press and a click inside it that a cut would take away.
    MarlowickDocument(p, {{0.5, InputEvent::Kind::down, {10, 10}},
                          {1.8, InputEvent::Kind::keyPress, {10, 10}},
                          {2.0, InputEvent::Kind::down, {10, 10}}})
        .write(package);

    Result r = run({"mix", package.string(), "-o", (dir / "whole.m4a").string()});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("(3.5"), std::string::npos) << r.out;

    r = run({"silence", package.string(), "--minimum", "0.5"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("quieter than 0.08 of the voice's usual level for at least 0.50 s, keeping 0.12 s"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.err.find("would remove a click at 2.00 s and a key press at 1.80 s"), std::string::npos)
        << r.err;
    EXPECT_NE(r.out.find("Nothing was saved"), std::string::npos) << r.out;
    EXPECT_FALSE(MarlowickDocument::read(package).project.audio.silence.isEnabled);

    r = run({"silence", package.string(), "--minimum", "0.5", "--write"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("1 cut · 1.3s removed (36%) · exports at 2.2s"), std::string::npos) << r.out;
    const MarlowickDocument saved = MarlowickDocument::read(package);
    EXPECT_TRUE(saved.project.audio.silence.isEnabled);
    ASSERT_TRUE(saved.project.trim.has_value());
    EXPECT_NEAR(saved.project.trim->removals()[0].lower, 1.12, 0.03);

    r = run({"mix", package.string(), "-o", (dir / "cut.m4a").string()});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("(2.2"), std::string::npos) << r.out;

    EXPECT_EQ(run({"mix", package.string()}).status, 2);
}

TEST_F(Cli, PresetsMarkThoseThatSuitTheProject) {
    Result r = run({"presets"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lineCount(r.out), 11u); // a header, the eight presets, a blank line and the frame rate rule
    EXPECT_EQ(r.out.find('*'), std::string::npos);
    EXPECT_NE(r.out.find("hevcWithAlpha  (unavailable here: use prores-4444-alpha)"), std::string::npos)
        << r.out;

    Project p = sampleProject(movie);
    p.canvas.ratio = AspectRatio::vertical;
    const fs::path package = dir / "Tall.marlowick";
    MarlowickDocument(p, {}).write(package);
    r = run({"presets", package.string()});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '*'), 2); // the two 1080×1920 rows
    EXPECT_NE(r.out.find("* reels-1080x1920"), std::string::npos) << r.out;
}

TEST_F(Cli, ExportWritesTheMovieAndCtrlCStopsItCleanly) {
    const fs::path clip = dir / "long.mov";
    ffmpeg("-f lavfi -i testsrc2=size=320x180:rate=30 -t 20 -c:v libx264 -preset ultrafast -pix_fmt yuv420p",
           clip);
    Project p = sampleProject(clip);
    p.source.size = {320, 180};
    p.source.frameRate = 30;
    p.source.duration = 20;
    p.manualCuts = {Span(Uuid::random(), 1, 19)};
    // A caption before the cut, one inside it and one after it.
    p.captions =
        CaptionTrack{CaptionTrack::cuesFromWords(
                         {{"Hello", 0.2, 0.6, 1}, {"lost", 5, 6, 1}, {"Bye.", 19.2, 19.8, 1}}, 8, 0.6),
                     CaptionStyle{}, true};
    const fs::path package = dir / "Long.marlowick";
    MarlowickDocument(p, sampleEvents(2400)).write(package);

    // The cut leaves two seconds: 60 frames, and the subtitles beside them on the same clock.
    const fs::path finished = dir / "short.mp4";
    Result r = run({"export", package.string(), "--preset", "free-720p", "-o", finished.string()});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("(60 frames"), std::string::npos) << r.out;
    EXPECT_EQ(readText(dir / "short.srt"), "1\n00:00:00,200 --> 00:00:00,600\nHello\n\n"
                                           "2\n00:00:01,200 --> 00:00:01,800\nBye.\n\n");
    // An output that is a symbolic link is written through: the link stays, its file is the movie.
    fs::create_directory(dir / "published");
    fs::create_symlink(fs::path("published") / "web-final.mp4", dir / "web.mp4");
    r = run({"export", package.string(), "--preset", "free-720p", "-o", (dir / "web.mp4").string(),
             "--subtitles", "vtt"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::is_symlink(dir / "web.mp4"));
    EXPECT_EQ(VideoDecoder(dir / "published" / "web-final.mp4").width(), 1280);
    EXPECT_EQ(readText(dir / "web.vtt").substr(0, 8), "WEBVTT\n\n");
    EXPECT_FALSE(fs::exists(dir / "web.srt"));
    EXPECT_NE(r.err.find("60/60 frames"), std::string::npos) << r.err;
    VideoDecoder exported(finished);
    EXPECT_EQ(exported.width(), 1280);
    EXPECT_EQ(exported.height(), 720);

    EXPECT_EQ(run({"export", package.string(), "-o", finished.string()}).status, 2);
    expectRefused({"export", package.string(), "--preset", "hevc-alpha", "-o", finished.string()}, 1,
                  "(prores-4444-alpha) keeps the transparency");

    // Ctrl-C part way through the whole take: the process ends with 130 and leaves no file.
    p.manualCuts.clear();
    MarlowickDocument(p, sampleEvents(2400)).write(package);
    const fs::path target = dir / "stopped.mp4";
    const fs::path log = dir / "export.log";
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::freopen(log.c_str(), "w", stderr);
        std::freopen("/dev/null", "w", stdout);
        execl(MARLOWICK_CLI, MARLOWICK_CLI, "export", package.c_str(), "--preset", "free-720p", "-o",
              target.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    for (int i = 0; i < 600 && readText(log).find("0/600 frames") == std::string::npos; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(child, SIGINT);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130) << readText(log);
    EXPECT_NE(readText(log).find("export stopped"), std::string::npos) << readText(log);
    EXPECT_FALSE(fs::exists(target));
}

TEST_F(Cli, SampleMakesATakeAsAFreshRecordingWould) {
    const fs::path package = dir / "Sample" / "take.marlowick";
    const Result r = run({"sample", package.string(), "--size", "320x180", "--seconds", "6", "--no-voice"});
    ASSERT_EQ(r.status, 0) << r.err;
    const MarlowickDocument document = MarlowickDocument::read(package);
    const Project& p = document.project;
    EXPECT_EQ(p.source.size, (Size{320, 180}));
    EXPECT_DOUBLE_EQ(p.source.duration, 6);
    EXPECT_EQ(p.canvas.ratio, Canvas::freshRecording().ratio);
    EXPECT_EQ(p.canvas.inset, Canvas::freshRecording().inset);
    EXPECT_EQ(p.camera.style, CameraTrack::Style::dynamic);
    EXPECT_FALSE(p.camera.beats.empty());
    // Clicks, typing and scrolls within the six seconds, at recorded pixels.
    const auto& events = document.telemetry();
    EXPECT_EQ(std::count_if(events.begin(), events.end(),
                            [](const InputEvent& e) { return e.kind == InputEvent::Kind::down; }),
              2);
    for (const InputEvent& e : events) {
        EXPECT_LE(e.location.x, 320);
        EXPECT_LE(e.time, 6);
    }
    VideoDecoder take(p.source.mediaURL.path());
    EXPECT_EQ(take.width(), 320);
    EXPECT_NEAR(take.duration(), 6, 0.05);

    // Never over something that exists.
    EXPECT_EQ(run({"sample", package.string()}).status, 1);
}

// The look from the command line: `style` copies one package's look into another, `set` changes a
// setting by its key, and either saves through the package writer or leaves the package as it was.

TEST_F(Cli, StyleCopiesTheCanvasCursorAndSoundAndNothingElse) {
    const fs::path package = samplePackage();
    Project look = sampleProject(movie, "Look");
    look.canvas.deviceFrame = DeviceFrame::studioDisplay();
    look.canvas.tilt = {14, -20};
    look.canvas.contentMode = ContentMode::fit;
    look.canvas.background = Background::solid("#202024");
    look.cursor.scale = 1.5;
    look.cursor.hideWhenIdle.reset();
    look.audio.ducking = 0.2;
    look.audio.music = MusicBed::forFile(Url{"file:///music/elsewhere/bed.m4a"});
    const fs::path other = dir / "Look.marlowick";
    MarlowickDocument(look, {}).write(other);
    const MarlowickDocument before = MarlowickDocument::read(package);
    const std::string bytes = readText(package / "Document.json");

    Result r = run({"style", package.string(), "--from", other.string(), "--dry-run"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("canvas.deviceFrame: none → studio-display\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("cursor.hideWhenIdle: 3 → never\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("audio.music: none → file:///music/elsewhere/bed.m4a\n"), std::string::npos)
        << r.out;
    EXPECT_EQ(r.out.find("audio.music.gain"), std::string::npos) << r.out; // the bed's own line says it
    EXPECT_EQ(readText(package / "Document.json"), bytes);

    r = run({"style", package.string(), "--from", other.string()});
    ASSERT_EQ(r.status, 0) << r.err;
    const MarlowickDocument after = MarlowickDocument::read(package);
    EXPECT_EQ(toJson(after.project.canvas), toJson(look.canvas));
    EXPECT_EQ(toJson(after.project.cursor), toJson(look.cursor));
    EXPECT_EQ(after.project.audio, look.audio); // the bed's file named where it lies, not copied
    // Everything else is the package's own.
    Project rest = after.project;
    rest.canvas = before.project.canvas;
    rest.cursor = before.project.cursor;
    rest.audio = before.project.audio;
    EXPECT_EQ(toJson(rest), toJson(before.project));
    EXPECT_EQ(after.telemetry().size(), before.telemetry().size());

    r = run({"style", package.string(), "--from", other.string()});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("nothing was saved"), std::string::npos) << r.out;
    EXPECT_EQ(run({"style", package.string()}).status, 2);
    EXPECT_EQ(run({"style", package.string(), "--from", (dir / "Missing.marlowick").string()}).status, 1);
}

TEST_F(Cli, SetAppliesKeysTogetherOrNotAtAll) {
    const fs::path package = samplePackage();
    const MarlowickDocument before = MarlowickDocument::read(package);
    const fs::path bed = dir / "Calm Bed.m4a";
    writeText(bed, "any file: the bed is named, not read");

    Result r =
        run({"set", package.string(), "canvas.deviceFrame=laptop", "canvas.contentMode=fit",
             "canvas.tilt.x=14", "canvas.tilt.y=-20", "canvas.background=#202024", "captions.isEnabled=false",
             "captions.style.fontName=DejaVu Sans", "cursor.scale=1.5", "cursor.hideWhenIdle=never",
             "audio.ducking=0.5", "audio.music=" + bed.string(), "audio.music.gain=0.2"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("canvas.tilt.y: 0 → -20\n"), std::string::npos) << r.out;
    Project p = MarlowickDocument::read(package).project;
    EXPECT_EQ(p.canvas.deviceFrame, DeviceFrame::macBookPro()); // the catalogue's first laptop
    EXPECT_EQ(p.canvas.contentMode, ContentMode::fit);
    EXPECT_EQ(p.canvas.tilt.x, 14);
    EXPECT_EQ(p.canvas.tilt.y, -20);
    EXPECT_EQ(toJson(p.canvas.background), toJson(Background::solid("#202024")));
    ASSERT_TRUE(p.captions.has_value());
    EXPECT_FALSE(p.captions->isEnabled);
    EXPECT_EQ(p.captions->style.fontName, "DejaVu Sans");
    EXPECT_EQ(p.captions->cues, before.project.captions->cues);
    EXPECT_EQ(p.cursor.scale, 1.5);
    EXPECT_FALSE(p.cursor.hideWhenIdle.has_value());
    EXPECT_EQ(p.audio.ducking, 0.5);
    ASSERT_TRUE(p.audio.music.has_value());
    EXPECT_EQ(p.audio.music->url, Url::fileUrl(bed));
    EXPECT_EQ(p.audio.music->name, "Calm Bed");
    EXPECT_EQ(p.audio.music->gain, 0.2);
    EXPECT_EQ(toJson(p.camera), toJson(before.project.camera));

    // --list shows each key's present value.
    r = run({"set", package.string(), "--list"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\ncanvas.deviceFrame  "), std::string::npos) << r.out;
    for (const std::string key : {"canvas.tilt.y", "canvas.deviceFrame", "audio.music.gain"}) {
        const auto at = r.out.find("\n" + key + " ");
        ASSERT_NE(at, std::string::npos) << key;
        const std::string line = r.out.substr(at + 1, r.out.find('\n', at + 1) - at - 1);
        std::istringstream words(line);
        std::string name, value;
        words >> name >> value;
        EXPECT_EQ(value, key == "canvas.tilt.y"      ? "-20"
                         : key == "audio.music.gain" ? "0.2"
                                                     : "macbook-pro-16")
            << line;
    }

    // A refusal saves nothing, the good settings beside it included, and says why in one line.
    const std::string document = readText(package / "Document.json");
    const std::string events = readText(package / "Telemetry" / "events.json");
    const auto refused = [&](const std::vector<std::string>& settings, const std::string& why) {
        std::vector<std::string> args{"set", package.string()};
        args.insert(args.end(), settings.begin(), settings.end());
        expectRefused(args, 2, why);
        EXPECT_EQ(readText(package / "Document.json"), document) << why;
        EXPECT_EQ(readText(package / "Telemetry" / "events.json"), events) << why;
    };
    // The reader's own words, as a damaged Document.json would get them, naming the key.
    refused({"canvas.inset=0.1", "canvas.tilt.x=steep"},
            "set: canvas.tilt.x: expected a number, found a string");
    refused({"canvas.inset=0.1", "canvas.contentMode=stretch"},
            "canvas.contentMode: unknown value \"stretch\"");
    refused({"canvas.ratio=tall"}, "canvas.ratio: unknown case \"tall\"");
    refused({"captions.isEnabled=yes"}, "captions.isEnabled: expected a boolean, found a string");
    refused({"canvas.deviceFrame=television"}, "canvas.deviceFrame: unknown device \"television\"");
    refused({"cursor.size=2", "canvas.inset=0.1"}, "unknown key 'cursor.size' (did you mean cursor.scale?)");
    refused({"canvas.tilt.enabled=true"}, "did you mean canvas.tilt.x?");
    refused({"canvas.tilt=14"}, "canvas.tilt is a group of keys: canvas.tilt.x, canvas.tilt.y");
    refused({"audio.music=none", "audio.music.gain=0.4"}, "the project has no audio.music");
    refused({"canvas.inset"}, "'canvas.inset' is no KEY=VALUE");

    EXPECT_EQ(run({"set", package.string()}).status, 2);
    EXPECT_EQ(run({"set", package.string(), "canvas.inset=0.1", "--list"}).status, 2);
    r = run({"set", package.string(), "canvas.inset=0.1", "--dry-run"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("canvas.inset: 0.08 → 0.1\n"), std::string::npos) << r.out;
    EXPECT_EQ(readText(package / "Document.json"), document);
}

TEST_F(Cli, ImportMakesAProjectFromAMovieMadeElsewhere) {
    const fs::path cast = dir / "cast.mp4";
    ffmpeg("-f lavfi -i testsrc2=size=320x240:rate=24 -f lavfi -i sine -t 2 -c:v libx264 -preset ultrafast "
           "-pix_fmt yuv420p -c:a aac",
           cast);
    const fs::path package = dir / "Cast.marlowick";
    Result r = run({"import", cast.string(), "-o", package.string()});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("(320×240, 24 fps, 2.0 s, 1 sound track)"), std::string::npos) << r.out;
    const MarlowickDocument imported = MarlowickDocument::read(package);
    EXPECT_EQ(imported.project.name, "Cast");
    EXPECT_EQ(imported.project.source.size, (Size{320, 240}));
    EXPECT_DOUBLE_EQ(imported.project.source.frameRate, 24);
    EXPECT_NEAR(imported.project.source.duration, 2, 0.05);
    EXPECT_TRUE(imported.telemetry().empty());
    EXPECT_TRUE(imported.project.camera.beats.empty());
    // The package holds the movie itself, and the original stays where it was.
    EXPECT_TRUE(fileops::isInside(imported.project.source.mediaURL.path(), package));
    EXPECT_TRUE(fs::exists(cast));

    const fs::path sound = dir / "voice.m4a";
    ffmpeg("-f lavfi -i sine -t 1", sound);
    const struct {
        std::vector<std::string> args;
        int status;
        std::string said;
    } refused[] = {
        {{"import", sound.string(), "-o", (dir / "Voice.marlowick").string()},
         1,
         "that file has no video track"},
        {{"import", cast.string(), "-o", package.string()}, 1, "already exists; import makes a new package"},
        {{"import", (dir / "gone.mp4").string(), "-o", (dir / "Gone.marlowick").string()},
         1,
         "gone.mp4: no such file or folder"},
        {{"import", cast.string(), "-o", (package / "Inner.marlowick").string()}, 2, "lies inside a package"},
    };
    for (const auto& c : refused) {
        expectRefused(c.args, c.status, c.said);
    }
    EXPECT_FALSE(fs::exists(dir / "Voice.marlowick") || fs::exists(package / "Inner.marlowick"));
}

TEST_F(Cli, CaptionsComeBackFromASubtitleFileAcrossACut) {
    const fs::path package = dir / "Subtitled.marlowick";
    ASSERT_EQ(run({"sample", package.string(), "--size", "320x180", "--rate", "10", "--no-voice"}).status, 0);
    // Two cues a person wrote, one on each side of a second cut at 3 s.
    MarlowickDocument document = MarlowickDocument::read(package);
    CaptionTrack captions;
    captions.cues = {{Uuid::random(), CaptionTrack::spreadWords("Open the editor.", 1.0, 2.5)},
                     {Uuid::random(), CaptionTrack::spreadWords("Then save the page", 4.5, 6.0)}};
    document.project.captions = captions;
    document.project.manualCuts = {Span(Range{3.0, 4.0})};
    document.write(package);

    // Written on the finished video's clock and read back, the subtitles are the same cues.
    ASSERT_EQ(run({"captions", package.string(), "--srt", (dir / "first.srt").string()}).status, 0);
    const std::string first = readText(dir / "first.srt");
    EXPECT_NE(first.find("00:00:03,500 --> 00:00:05,000"), std::string::npos) << first;
    Result r = run({"captions", package.string(), "--from", (dir / "first.srt").string(), "--write"});
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(run({"captions", package.string(), "--srt", (dir / "again.srt").string()}).status, 0);
    EXPECT_EQ(readText(dir / "again.srt"), first);
    // The second cue is back on the recording's clock, after the cut.
    const auto reread = MarlowickDocument::read(package).project.captions;
    ASSERT_TRUE(reread);
    ASSERT_EQ(reread->cues.size(), 2u);
    EXPECT_NEAR(reread->cues[1].start(), 4.5, 0.002);
    EXPECT_EQ(reread->cues[1].text(), "Then save the page");

    // A corrected WebVTT file with markup and settings: the words a person typed, timed within the cue.
    std::ofstream(dir / "fixed.vtt") << "WEBVTT\n\nNOTE corrected by hand\n\n1\n00:01.000 --> 00:02.500 align:start\n"
                                        "Open the <i>recorder</i> now.\n";
    r = run({"captions", package.string(), "--from", (dir / "fixed.vtt").string(), "--json"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::ofstream(dir / "track.json") << r.out;
    ASSERT_EQ(run({"set", package.string(), "captions=" + (dir / "track.json").string()}).status, 0);
    const auto set = MarlowickDocument::read(package).project.captions;
    ASSERT_TRUE(set);
    ASSERT_EQ(set->cues.size(), 1u);
    EXPECT_EQ(set->cues[0].text(), "Open the recorder now.");
    EXPECT_NEAR(set->cues[0].start(), 1.0, 1e-9);
    EXPECT_NEAR(set->cues[0].end(), 2.5, 1e-9);

    // A file that isn't subtitles is refused in one line naming it, and the captions stay.
    std::ofstream(dir / "notes.srt") << "just some notes\n";
    r = run({"captions", package.string(), "--from", (dir / "notes.srt").string(), "--write"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("notes.srt: holds no subtitles"), std::string::npos) << r.err;
    EXPECT_EQ(MarlowickDocument::read(package).project.captions, set);
}

TEST_F(Cli, CaptionsTranscribeTheVoiceOnThisMachine) {
    const fs::path package = dir / "Tour.marlowick";
    ASSERT_EQ(run({"sample", package.string(), "--size", "320x180", "--rate", "10"}).status, 0);

    Result r = run({"captions", package.string(), "--write"});
    ASSERT_EQ(r.status, 0) << r.err;
    const MarlowickDocument captioned = MarlowickDocument::read(package);
    ASSERT_TRUE(captioned.project.captions.has_value());
    EXPECT_TRUE(captioned.project.captions->isEnabled);
    std::string said;
    for (const CaptionTrack::Cue& c : captioned.project.captions->cues) {
        EXPECT_LE(c.words.size(), 8u);
        said += c.text() + " ";
    }
    // The narration speaks of the editor, the browser and the menu in the corner.
    for (const char* word : {"editor", "browser", "menu", "corner."}) {
        EXPECT_NE(said.find(word), std::string::npos) << word << " in: " << said;
    }
    EXPECT_NE(r.out.find(said.substr(0, 12)), std::string::npos) << r.out;

    // Subtitles of captions the project has are written without listening again.
    r = run({"captions", package.string(), "--vtt", (dir / "tour.vtt").string()});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err.find("Listening"), std::string::npos) << r.err;
    EXPECT_NE(readText(dir / "tour.vtt").find(captioned.project.captions->cues.front().text()),
              std::string::npos);

    // A language without models is refused in one line that names it, and the captions stay.
    r = run({"captions", package.string(), "--locale", "fr-FR", "--write"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("On-device recognition is not installed for French (France)"), std::string::npos)
        << r.err;
    EXPECT_EQ(MarlowickDocument::read(package).project.captions->cues, captioned.project.captions->cues);
}

TEST_F(Cli, RecoverListsTheTakesLeftUnsavedAndMakesAPackageOfOneDeletingNothing) {
    // The takes folder is the run's own.
    const char* previous = std::getenv("XDG_DATA_HOME");
    const std::optional<std::string> restore = previous ? std::optional<std::string>(previous) : std::nullopt;
    setenv("XDG_DATA_HOME", (dir / "data").c_str(), 1);
    struct Restore {
        std::optional<std::string> value;
        ~Restore() {
            value ? (void)setenv("XDG_DATA_HOME", value->c_str(), 1) : (void)unsetenv("XDG_DATA_HOME");
        }
    } restored{restore};

    Result r = run({"recover"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("No takes to recover in " + (dir / "data/marlowick/takes").string()),
              std::string::npos)
        << r.err;

    // Two takes a window left: one edited, recorded last; one stopped by the end of its window, before.
    // And one a running window (this process) holds.
    const fs::path shot = dir / "shot.mov";
    ffmpeg("-f lavfi -i testsrc2=size=320x240:rate=30 -t 3 -c:v libx264 -preset ultrafast -pix_fmt yuv420p",
           shot);
    const TakeStore store(TakeStore::defaultFolder());
    const auto leave = [&](std::chrono::hours ago) {
        TakeStore::Hold take = store.newTake();
        fs::copy_file(shot, take.movie());
        fs::last_write_time(take.movie(), fs::file_time_type::clock::now() - ago);
        return take.movie(); // the hold ends: left behind
    };
    const fs::path edited = leave(std::chrono::hours(1));
    const fs::path bare = leave(std::chrono::hours(2));
    Project project = sampleProject(edited, "Untitled");
    project.manualCuts = {Span(Uuid::random(), 1, 1.5)};
    TakeStore::writeRecoveryCopy(edited, MarlowickDocument(project, sampleEvents(240)));
    const TakeStore::Hold held = store.newTake();
    fs::copy_file(shot, held.movie());

    r = run({"recover"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::istringstream lines(r.out);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> fields;
        std::istringstream split(line);
        for (std::string field; std::getline(split, field, '\t');) {
            fields.push_back(field);
        }
        rows.push_back(fields);
    }
    ASSERT_EQ(rows.size(), 2u) << r.out;
    EXPECT_EQ(rows[0], (std::vector<std::string>{edited.string(), TakeStore::summarise(edited).startText(),
                                                 "0:03", "edits"}));
    EXPECT_EQ(rows[1][0], bare.string());
    EXPECT_EQ(rows[1][2], "0:03");
    EXPECT_EQ(rows[1][3], "no edits");

    // A package of the edited one, named by its file name alone: the edits and the telemetry come along.
    const fs::path tour = dir / "Tour.marlowick";
    r = run({"recover", edited.filename().string(), "-o", tour.string()});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Wrote " + tour.string() + " from the take of "), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(", 0:03 long, with its edits"), std::string::npos) << r.out;
    const MarlowickDocument recovered = MarlowickDocument::read(tour);
    EXPECT_EQ(recovered.project.name, "Untitled");
    EXPECT_EQ(recovered.project.manualCuts, project.manualCuts);
    EXPECT_EQ(recovered.telemetry().size(), 240u);
    // The one without a copy: the movie alone.
    const fs::path alone = dir / "Alone.marlowick";
    r = run({"recover", bare.string(), "-o", alone.string()});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find(", the movie alone"), std::string::npos) << r.out;
    EXPECT_EQ(MarlowickDocument::read(alone).project.name, "Recovered take");
    EXPECT_EQ(MarlowickDocument::read(alone).project.source.size, (Size{320, 240}));

    // A damaged copy is named, and the movie can still be had without it.
    writeText(TakeStore::recoveryCopyOf(edited) / "Document.json", "{\"formatVersion\": 3, \"project\": []}");
    expectRefused({"recover", edited.string(), "-o", (dir / "Damaged.marlowick").string()}, 1,
                  "recovery copy is damaged");
    r = run({"recover", edited.string(), "-o", (dir / "Damaged.marlowick").string(), "--without-edits"});
    EXPECT_EQ(r.status, 0) << r.err;
    expectRefused({"recover", "take-none.mov", "-o", (dir / "None.marlowick").string()}, 1, "no such take");
    expectRefused({"recover", bare.string(), "-o", alone.string()}, 1, "already exists");
    expectRefused({"recover", bare.string()}, 2, "needs -o PACKAGE");

    // Nothing was deleted.
    for (const fs::path& take : {edited, bare, held.movie()}) {
        EXPECT_TRUE(fs::exists(take)) << take;
    }
    EXPECT_TRUE(fs::exists(TakeStore::recoveryCopyOf(edited)));
}
