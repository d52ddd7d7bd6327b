// The whole capture on a real X server and a real PulseAudio daemon, both started by the fixtures:
// pictures at the configured rate, input telemetry on the movie's clock, the system's sound and the
// microphone on tracks of their own, one monitor of two at its own size, the failures of start and stop,
// and a take that outlives a recorder killed part way.

#include "capture/X11ScreenCapturer.h"
#include "capture/MonitorLayout.h"
#include "media/AudioFile.h"
#include "media/MediaInfo.h"
#include "media/RecordingWriter.h"
#include "media/VideoDecoder.h"
#include "model/MarlowickDocument.h"
#include "support/Beeper.h"
#include "support/ColouredWindow.h"
#include "support/FakeUser.h"
#include "support/Prerequisites.h"
#include "support/SoundServer.h"
#include "support/TakeAnalysis.h"
#include "support/TempDir.h"
#include "support/Thrown.h"
#include "support/VirtualDisplay.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <optional>
#include <thread>

using namespace marlowick;
using namespace marlowick::test;
using namespace std::chrono_literals;

namespace {

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The last picture of a movie.
BgraImage lastPicture(const std::filesystem::path& movie) {
    VideoDecoder decoder(movie);
    BgraImage image;
    while (decoder.next(image, [](double) { return true; })) {
    }
    return image;
}

// Whether the picture is close to a colour there, as 0xRRGGBB, within what the movie's coding changes.
bool near(const BgraImage& image, int x, int y, std::uint32_t rgb) {
    const std::uint8_t* p = image.row(y) + x * 4;
    const int want[] = {static_cast<int>(rgb & 0xff), static_cast<int>(rgb >> 8 & 0xff),
                        static_cast<int>(rgb >> 16 & 0xff)};
    for (int i = 0; i < 3; ++i) {
        if (std::abs(p[i] - want[i]) > 24) {
            return false;
        }
    }
    return true;
}

} // namespace

TEST(X11ScreenCapturer, RecordsPicturesTelemetryAndBothSoundsOnOneClock) {
    const VirtualDisplay display;
    const SoundServer sound;
    MARLOWICK_REQUIRE(xvfb(display), pulseAudio(sound));
    const TempDir dir;
    Beeper system(sound.server(), "sysaudio");
    Beeper voice(sound.server(), "micsink");

    X11ScreenCapturer capturer({display.name(), sound.server()});
    EXPECT_EQ(capturer.telemetryAvailability(), TelemetryAvailability::full);
    CaptureConfiguration configuration;
    configuration.outputURL = dir / "take.mov";
    configuration.frameRate = 60;
    configuration.capturesAudio = true;
    configuration.capturesMicrophone = true;
    capturer.start(configuration);
    const auto again = thrown<CaptureError>([&] { capturer.start(configuration); });
    ASSERT_TRUE(again);
    EXPECT_EQ(again->kind(), CaptureError::Kind::alreadyRecording);

    // Every kind of action, and a click of the right button, which is none of ours.
    FakeUser user(display.name());
    std::vector<InputEvent> sent; // on the monotonic clock
    const auto act = [&](InputEvent::Kind kind, int x, int y, auto&& what) {
        std::this_thread::sleep_for(150ms);
        const double before = now();
        what();
        sent.push_back({(before + now()) / 2, kind, {double(x), double(y)}});
    };
    act(InputEvent::Kind::move, 300, 200, [&] { user.moveTo(300, 200); });
    act(InputEvent::Kind::down, 300, 200, [&] { user.press(1); });
    act(InputEvent::Kind::drag, 340, 220, [&] { user.moveTo(340, 220); });
    act(InputEvent::Kind::up, 340, 220, [&] { user.release(1); });
    act(InputEvent::Kind::scroll, 340, 220, [&] { user.press(5), user.release(5); });
    act(InputEvent::Kind::keyPress, 340, 220, [&] { user.key(38); });
    user.press(3);
    user.release(3);

    // A second apart, so that a beep held back a while still doesn't meet the other.
    std::this_thread::sleep_for(300ms);
    const double systemPlayed = now();
    system.beep();
    std::this_thread::sleep_for(1s);
    const double voicePlayed = now();
    voice.beep();
    std::this_thread::sleep_for(700ms);
    const double stopped = now();
    const Recording recording = capturer.stop();
    EXPECT_TRUE(capturer.takeWarnings().empty());

    const double start = capturer.lastMovieStart().value();
    EXPECT_NEAR(recording.duration, stopped - start, 0.1);
    EXPECT_EQ(recording.size, (Size{1280, 720})); // the screen's own
    EXPECT_TRUE(recording.capturedMicrophone);
    EXPECT_TRUE(recording.capturedSystemAudio);

    // Each action once, in order, at its pixel position and within 20 ms of when it was sent, on the
    // movie's clock.
    ASSERT_EQ(recording.inputEvents.size(), sent.size());
    for (std::size_t i = 0; i < sent.size(); ++i) {
        EXPECT_EQ(recording.inputEvents[i].kind, sent[i].kind) << i;
        EXPECT_EQ(recording.inputEvents[i].location, sent[i].location) << i;
        EXPECT_NEAR(recording.inputEvents[i].time, sent[i].time - start, 0.02) << i;
    }

    // N seconds at 60 fps are N × 60 moments, within 2%: each one a picture in the movie, or counted as
    // dropped when the machine was too busy to take it; most of them pictures.
    const std::size_t frames = frameTimes(configuration.outputURL).size();
    const CaptureStatistics statistics = capturer.statistics();
    EXPECT_EQ(static_cast<std::int64_t>(frames), statistics.framesWritten);
    EXPECT_NEAR(static_cast<double>(frames + statistics.framesDropped), recording.duration * 60,
                recording.duration * 60 * 0.02)
        << frames << " written, " << statistics.framesDropped << " dropped";
    EXPECT_GT(static_cast<double>(frames), recording.duration * 60 / 2)
        << statistics.framesDropped << " dropped";

    // The system's beep is on its track only, the voice's on the microphone's only, each when it was
    // played. (How close the sound is to the picture, CaptureSync measures.)
    ASSERT_EQ(MediaInfo::of(configuration.outputURL).audioTracks, 2u);
    const std::vector<float> systemTrack = AudioFile::decodeTrack(configuration.outputURL, 0);
    const std::vector<float> microphoneTrack = AudioFile::decodeTrack(configuration.outputURL, 1);
    const double systemAt = onset(systemTrack, 0.1);
    const double voiceAt = onset(microphoneTrack, 0.1);
    // A playback stream this new may hold its first sound back for half a second here.
    EXPECT_GT(systemAt, systemPlayed - start - 0.02);
    EXPECT_LT(systemAt, systemPlayed - start + 0.8);
    EXPECT_GT(voiceAt, voicePlayed - start - 0.02);
    EXPECT_LT(voiceAt, voicePlayed - start + 0.8);
    EXPECT_LT(level(systemTrack, voiceAt - 0.05, voiceAt + 0.1), 0.01);
    EXPECT_LT(level(microphoneTrack, systemAt - 0.05, systemAt + 0.1), 0.01);
}

TEST(X11ScreenCapturer, TelemetryIsScaledToTheMoviesPixels) {
    const VirtualDisplay display;
    MARLOWICK_REQUIRE(xvfb(display));
    const TempDir dir;
    X11ScreenCapturer capturer({display.name(), "unix:/nonexistent"});
    EXPECT_THROW(capturer.stop(), CaptureError);
    CaptureConfiguration configuration;
    configuration.outputURL = dir / "take.mov";
    configuration.size = {2560, 1440};
    configuration.frameRate = 30;
    capturer.start(configuration);
    EXPECT_EQ(capturer.pointsToPixels(), (Point{2, 2}));
    FakeUser user(display.name());
    std::this_thread::sleep_for(100ms);
    user.moveTo(100, 50);
    user.press(1);
    user.release(1);
    std::this_thread::sleep_for(200ms);
    const Recording recording = capturer.stop();
    const auto down = std::find_if(recording.inputEvents.begin(), recording.inputEvents.end(),
                                   [](const InputEvent& e) { return e.kind == InputEvent::Kind::down; });
    ASSERT_NE(down, recording.inputEvents.end());
    EXPECT_EQ(down->location, (Point{200, 100}));
    VideoDecoder decoder(configuration.outputURL);
    EXPECT_EQ(decoder.width(), 2560);
    EXPECT_EQ(decoder.height(), 1440);
    const auto again = thrown<CaptureError>([&] { capturer.stop(); });
    ASSERT_TRUE(again);
    EXPECT_EQ(again->kind(), CaptureError::Kind::notRecording);
}

TEST(X11ScreenCapturer, RecordsOneMonitorOfTwoAtItsOwnSizeWithItsOwnTelemetry) {
    const TwoMonitorDisplay display;
    MARLOWICK_REQUIRE(xorgDummy(display));
    const TempDir dir;
    // The first monitor all green; a red window on the second, 100 pixels in from its top left.
    const X11Connection drawing(display.name());
    const ColouredWindow green(drawing, 0x00ff00, 0, 0, 1280, 720);
    const ColouredWindow red(drawing, 0xff0000, 1280 + 100, 120 + 100, 200, 100);
    X11ScreenCapturer capturer({display.name(), "unix:/nonexistent"});
    CaptureConfiguration configuration;
    configuration.outputURL = dir / "second.mov";
    configuration.frameRate = 30;

    // A monitor that isn't there is refused before anything is written, naming those that are.
    configuration.monitor = "HDMI-9";
    const auto refused = thrown<CaptureError>([&] { capturer.start(configuration); });
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->kind(), CaptureError::Kind::unknownMonitor);
    EXPECT_STREQ(refused->what(), "HDMI-9; the monitors are DUMMY0 (1280×720, primary) and DUMMY1 (800×600)");
    EXPECT_FALSE(std::filesystem::exists(configuration.outputURL));

    configuration.monitor = "DUMMY1";
    capturer.start(configuration);
    EXPECT_EQ(capturer.recordedMonitor(), (ScreenMonitor{"DUMMY1", 1280, 120, 800, 600, false}));
    EXPECT_EQ(capturer.pointsToPixels(), (Point{1, 1}));
    FakeUser user(display.name());
    std::this_thread::sleep_for(150ms);
    user.moveTo(1280 + 300, 120 + 200); // on the second monitor, at (300, 200) of it
    user.press(1);
    user.release(1);
    std::this_thread::sleep_for(50ms);
    user.moveTo(640, 360); // on the first: left out
    user.press(1);
    user.release(1);
    user.press(5);
    user.release(5);
    std::this_thread::sleep_for(50ms);
    user.moveTo(1280 + 799, 120 + 599); // the second's last pixel
    user.key(38);
    std::this_thread::sleep_for(300ms);
    const Recording recording = capturer.stop();

    EXPECT_EQ(recording.size, (Size{800, 600}));
    const auto all = [&](InputEvent::Kind kind) {
        std::vector<Point> places;
        for (const InputEvent& e : recording.inputEvents) {
            if (e.kind == kind) {
                places.push_back(e.location);
            }
        }
        return places;
    };
    EXPECT_EQ(all(InputEvent::Kind::down), (std::vector<Point>{{300, 200}}));
    EXPECT_EQ(all(InputEvent::Kind::up), (std::vector<Point>{{300, 200}}));
    EXPECT_TRUE(all(InputEvent::Kind::scroll).empty());
    EXPECT_EQ(all(InputEvent::Kind::keyPress), (std::vector<Point>{{799, 599}}));
    for (const InputEvent& e : recording.inputEvents) {
        EXPECT_TRUE(e.location.x >= 0 && e.location.x < 800 && e.location.y >= 0 && e.location.y < 600)
            << e.location.x << "," << e.location.y;
    }

    // The movie is the second monitor at its own size: the red window where it lies on it, none of the
    // first monitor's green.
    BgraImage picture = lastPicture(configuration.outputURL);
    ASSERT_EQ(picture.width, 800);
    ASSERT_EQ(picture.height, 600);
    EXPECT_TRUE(near(picture, 110, 110, 0xff0000));
    EXPECT_TRUE(near(picture, 290, 190, 0xff0000));
    EXPECT_FALSE(near(picture, 90, 90, 0xff0000));
    for (int y = 0; y < 600; y += 10) {
        for (int x = 0; x < 800; x += 10) {
            ASSERT_FALSE(near(picture, x, y, 0x00ff00)) << x << "," << y;
        }
    }

    // Without a name, the primary monitor.
    configuration.monitor.clear();
    configuration.outputURL = dir / "first.mov";
    capturer.start(configuration);
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(capturer.stop().size, (Size{1280, 720}));
    picture = lastPicture(configuration.outputURL);
    ASSERT_EQ(picture.width, 1280);
    EXPECT_TRUE(near(picture, 640, 360, 0x00ff00));
    EXPECT_TRUE(near(picture, 1279, 719, 0x00ff00));
}

TEST(X11ScreenCapturer, TheToolRecordsTheMonitorItIsToldAndRefusesOneThatIsntThere) {
    const TwoMonitorDisplay display;
    MARLOWICK_REQUIRE(xorgDummy(display));
    const TempDir dir;
    const auto record = [&](const std::string& monitor, const std::filesystem::path& package) {
        const std::string command =
            "DISPLAY=" + display.name() + " TMPDIR='" + dir.path().string() + "' '" + MARLOWICK_CLI +
            "' record --countdown 0 --seconds 1 --no-system-audio -o '" + package.string() + "' --monitor " +
            monitor + " >/dev/null 2>'" + (dir / "said.txt").string() + "'";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(record("HDMI-9", dir / "none.marlowick"), 2);
    EXPECT_EQ(readText(dir / "said.txt"), "marlowick: No monitor is named HDMI-9; the monitors are DUMMY0 "
                                          "(1280×720, primary) and DUMMY1 (800×600).\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "none.marlowick"));

    ASSERT_EQ(record("DUMMY1", dir / "second.marlowick"), 0) << readText(dir / "said.txt");
    const Recording source = MarlowickDocument::read(dir / "second.marlowick").project.source;
    EXPECT_EQ(source.size, (Size{800, 600}));
    VideoDecoder movie(source.mediaURL.path());
    EXPECT_EQ(movie.width(), 800);
    EXPECT_EQ(movie.height(), 600);
}

TEST(X11ScreenCapturer, TenShortTakesInARowAllSucceed) {
    const VirtualDisplay display;
    MARLOWICK_REQUIRE(xvfb(display));
    const TempDir dir;
    std::vector<std::string> failures;
    for (int take = 0; take < 10; ++take) {
        // As `marlowick record` goes about it: the monitor first, then the take.
        try {
            X11ScreenCapturer capturer({display.name(), "unix:/nonexistent"});
            CaptureConfiguration configuration;
            configuration.outputURL = dir / ("take-" + std::to_string(take) + ".mov");
            configuration.monitor = MonitorLayout::read(display.name()).choose("").name;
            configuration.frameRate = 30;
            capturer.start(configuration);
            EXPECT_EQ(capturer.telemetryAvailability(), TelemetryAvailability::full) << "take " << take;
            std::this_thread::sleep_for(400ms);
            const Recording recording = capturer.stop();
            EXPECT_GT(recording.duration, 0.2) << "take " << take;
            EXPECT_FALSE(frameTimes(configuration.outputURL).empty()) << "take " << take;
        } catch (const CaptureError& e) {
            failures.push_back("take " + std::to_string(take) + ": " + e.what());
        }
    }
    EXPECT_TRUE(failures.empty()) << failures.size() << " failed, the first: " << failures.front();
}

TEST(X11ScreenCapturer, AMissingMicrophoneFailsBeforeAnythingIsWritten) {
    const VirtualDisplay display;
    const SoundServer sound;
    MARLOWICK_REQUIRE(xvfb(display), pulseAudio(sound));
    const TempDir dir;
    CaptureConfiguration configuration;
    configuration.outputURL = dir / "take.mov";
    configuration.size = {1280, 720};
    configuration.capturesAudio = true;
    configuration.capturesMicrophone = true;
    const auto refusal = [&](const std::string& server) -> std::optional<CaptureError::Kind> {
        X11ScreenCapturer capturer({display.name(), server});
        try {
            capturer.start(configuration);
            capturer.stop();
            return std::nullopt;
        } catch (const CaptureError& e) {
            return e.kind();
        }
    };
    EXPECT_EQ(refusal("unix:/nonexistent"), CaptureError::Kind::noSoundServer);
    // A default source that is only the monitor of a sink is no microphone.
    ASSERT_TRUE(sound.run("pactl set-default-source sysaudio.monitor"));
    EXPECT_EQ(refusal(sound.server()), CaptureError::Kind::microphoneDenied);
    EXPECT_FALSE(std::filesystem::exists(configuration.outputURL));
}

TEST(X11ScreenCapturer, ATakeOutlivesARecorderKilledPartWay) {
    const TempDir dir;
    const VirtualDisplay display(true, dir / "audit.log");
    const SoundServer sound;
    MARLOWICK_REQUIRE(xvfb(display), pulseAudio(sound));
    // The connections a process opened to the display, as the server's audit names their process.
    const auto connectionsOf = [&](pid_t process) {
        std::ifstream log(dir / "audit.log");
        const std::string mark = "pid=" + std::to_string(process) + " ";
        std::size_t count = 0;
        for (std::string line; std::getline(log, line);) {
            count +=
                line.find(" connected from") != std::string::npos && line.find(mark) != std::string::npos;
        }
        return count;
    };
    const pid_t recorder = fork();
    if (recorder == 0) {
        setenv("DISPLAY", display.name().c_str(), 1);
        setenv("PULSE_SERVER", sound.server().c_str(), 1);
        setenv("TMPDIR", dir.path().c_str(), 1);
        std::freopen("/dev/null", "w", stdout);
        std::freopen("/dev/null", "w", stderr);
        execl(MARLOWICK_CLI, MARLOWICK_CLI, "record", "-o", (dir / "never.marlowick").c_str(), "--mic",
              "--countdown", "0", static_cast<char*>(nullptr));
        _exit(127);
    }
    // The take begins when its file appears in the temporary directory.
    std::filesystem::path take;
    for (int i = 0; i < 200 && take.empty(); ++i) {
        std::this_thread::sleep_for(20ms);
        for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
            if (entry.path().filename().string().starts_with("take-")) {
                take = entry.path();
            }
        }
    }
    ASSERT_FALSE(take.empty());
    const double began = now();
    std::this_thread::sleep_for(4s);
    const double killed = now();
    kill(recorder, SIGKILL);
    waitpid(recorder, nullptr, 0);
    // The recorder opened the display twice: once for the monitors, the pictures and the tap's requests,
    // once for the tap's stream of events.
    EXPECT_EQ(connectionsOf(recorder), 2u) << readText(dir / "audit.log");

    const std::vector<double> times = frameTimes(take);
    ASSERT_FALSE(times.empty());
    const double last = times.back();
    const std::size_t frames = times.size();
    EXPECT_GE(last, killed - began - 2.0);
    EXPECT_EQ(MediaInfo::of(take).audioTracks, 2u);
    // And it can still be made into an ordinary movie with the same pictures.
    RecordingWriter::finalise(take);
    EXPECT_EQ(frameTimes(take).size(), frames);
}
