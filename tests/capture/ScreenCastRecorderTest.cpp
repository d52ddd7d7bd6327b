// A screen shared through PipeWire, recorded from a private daemon started by the fixture and a
// synthetic producer made by the test: the pictures on the producer's own times, the pointer's moves from
// the cursor metadata on the movie's clock, the pixel formats, and a producer that goes away mid-take.

#include "capture/ScreenCastRecorder.h"
#include "media/VideoDecoder.h"
#include "support/PipeWireDaemon.h"
#include "support/SyntheticScreen.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <thread>

using namespace marlowick;
using namespace marlowick::test;
using namespace std::chrono_literals;

namespace {

// The top left corner of the bright square in a decoded picture, scaled back by `scale`; none if none.
std::optional<Point> squareIn(const BgraImage& image, double scale) {
    for (int y = 0; y < image.height; ++y) {
        const std::uint8_t* row = image.row(y);
        for (int x = 0; x < image.width; ++x) {
            if (row[4 * x + 2] > 180) { // red is high in the white square and the red one alike
                return Point{std::round(x / scale), std::round(y / scale)};
            }
        }
    }
    return std::nullopt;
}

struct DecodedFrame {
    double time;
    int number; // of the synthetic picture it shows
    BgraImage image;
};

std::vector<DecodedFrame> decode(const std::filesystem::path& movie, double scale) {
    std::vector<DecodedFrame> frames;
    VideoDecoder decoder(movie);
    while (std::optional<VideoDecoder::Frame> frame = decoder.next()) {
        const std::optional<Point> corner = squareIn(frame->image, scale);
        frames.push_back(
            {frame->time, corner ? SyntheticScreen::numberOf(*corner) : -1, std::move(frame->image)});
    }
    return frames;
}

ScreenCastRecorder::Options linkedBy(SyntheticScreen& screen) {
    ScreenCastRecorder::Options options;
    options.allowHardware = false;
    options.minimumFreeBytes = 0;
    options.connected = [&screen](std::uint32_t node) { screen.link(node); };
    return options;
}

CaptureConfiguration configurationIn(const TempDir& dir, Size size = {}) {
    CaptureConfiguration configuration;
    configuration.outputURL = dir / "take.mov";
    configuration.size = size;
    configuration.frameRate = 60;
    return configuration;
}

// The pictures the producer sent, by their number.
std::map<int, SyntheticScreen::Sent> byNumber(const std::vector<SyntheticScreen::Sent>& sent) {
    std::map<int, SyntheticScreen::Sent> numbered;
    for (const SyntheticScreen::Sent& s : sent) {
        numbered[s.number] = s;
    }
    return numbered;
}

// Each decoded picture shows a sent one, in order, at the distance from `firstPts` (the first picture's
// stamp) that the producer's stamps put between them: to the tick, where stamping on arrival would wander
// by milliseconds.
void expectOnTheProducersStamps(const std::vector<DecodedFrame>& frames,
                                const std::map<int, SyntheticScreen::Sent>& numbered,
                                std::uint64_t firstPts) {
    int previous = -1;
    for (const DecodedFrame& frame : frames) {
        const auto found = numbered.find(frame.number);
        ASSERT_NE(found, numbered.end()) << frame.time;
        EXPECT_GT(frame.number, previous);
        previous = frame.number;
        EXPECT_NEAR(frame.time, static_cast<double>(found->second.pts - firstPts) / 1e9, 0.0005)
            << frame.number;
    }
}

// Each pointer position is a sent picture's, at that picture's time on the movie's clock. Returns how many
// there were.
std::size_t expectThePointerAtItsPicturesTimes(const std::vector<InputEvent>& events,
                                               const std::vector<SyntheticScreen::Sent>& sent,
                                               std::uint64_t firstPts) {
    std::size_t matched = 0;
    for (const InputEvent& event : events) {
        EXPECT_EQ(event.kind, InputEvent::Kind::move);
        const auto found = std::find_if(sent.begin(), sent.end(), [&](const SyntheticScreen::Sent& s) {
            return std::abs(static_cast<double>(s.pts - firstPts) / 1e9 - event.time) < 0.0005;
        });
        if (found == sent.end()) {
            ADD_FAILURE() << "no picture at the pointer's time " << event.time;
            continue;
        }
        EXPECT_EQ(event.location, found->cursor) << event.time;
        matched += 1;
    }
    return matched;
}

} // namespace

TEST(ScreenCastRecorder, RecordsPicturesOnTheProducersTimesAndThePointerOnTheMoviesClock) {
    const PipeWireDaemon daemon;
    MARLOWICK_REQUIRE(pipeWire(daemon));
    const TempDir dir;
    SyntheticScreen screen(daemon.connect(), {});
    ScreenCastRecorder recorder({daemon.connect(), {}}, screen.nodeId(), configurationIn(dir),
                                linkedBy(screen));
    EXPECT_EQ(recorder.streamSize(), (Size{320, 240}));
    EXPECT_EQ(recorder.movieSize(), (Size{320, 240})); // an empty size takes the stream's
    EXPECT_TRUE(recorder.hasCursorMetadata());
    const std::size_t before = screen.sent().size();
    ASSERT_TRUE(screen.waitForPictures(before + 90));
    const Recording recording = recorder.stop();
    EXPECT_FALSE(recorder.interruption());
    const std::vector<SyntheticScreen::Sent> sent = screen.sent();
    std::map<int, SyntheticScreen::Sent> numbered = byNumber(sent);

    const std::vector<DecodedFrame> frames = decode(dir / "take.mov", 1.0);
    ASSERT_GE(frames.size(), 80u);
    EXPECT_EQ(static_cast<std::int64_t>(frames.size()), recorder.statistics().framesWritten);
    ASSERT_TRUE(numbered.contains(frames.front().number));
    const std::uint64_t firstPts = numbered[frames.front().number].pts;
    EXPECT_EQ(frames.front().time, 0.0);
    expectOnTheProducersStamps(frames, numbered, firstPts);
    // Pictures the producer had to skip are counted as dropped.
    const std::int64_t skipped = sent.back().number + 1 - static_cast<std::int64_t>(sent.size());
    EXPECT_GE(recorder.statistics().framesDropped, skipped > 0 ? 1 : 0);

    // The pointer: every picture's position, at its picture's time on the movie's clock, in pixels.
    ASSERT_FALSE(recording.inputEvents.empty());
    EXPECT_EQ(recording.inputEvents.front().time, 0.0);
    EXPECT_GE(expectThePointerAtItsPicturesTimes(recording.inputEvents, sent, firstPts), frames.size());
    EXPECT_EQ(recording.size, (Size{320, 240}));
    EXPECT_NEAR(recording.duration, frames.back().time + 1.0 / 60, 0.02);
}

TEST(ScreenCastRecorder, RedFirstPixelsAndAnotherMovieSizeAreConverted) {
    const PipeWireDaemon daemon;
    MARLOWICK_REQUIRE(pipeWire(daemon));
    for (const spa_video_format format : {SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_BGRA}) {
        SCOPED_TRACE(format == SPA_VIDEO_FORMAT_RGBx ? "RGBx" : "BGRA");
        const TempDir dir;
        SyntheticScreen::Options options;
        options.format = format;
        SyntheticScreen screen(daemon.connect(), options);
        ScreenCastRecorder recorder({daemon.connect(), {}}, screen.nodeId(), configurationIn(dir, {640, 480}),
                                    linkedBy(screen));
        EXPECT_EQ(recorder.movieSize(), (Size{640, 480}));
        ASSERT_TRUE(screen.waitForPictures(screen.sent().size() + 30));
        const Recording recording = recorder.stop();
        const std::vector<DecodedFrame> frames = decode(dir / "take.mov", 2.0);
        ASSERT_GE(frames.size(), 20u);
        const DecodedFrame& last = frames.back();
        ASSERT_GE(last.number, 0);
        // The square is red for red-first pixels and white otherwise; the field is dark blue either way.
        const Point corner = SyntheticScreen::squareOf(last.number);
        const std::uint8_t* inside =
            last.image.row(static_cast<int>(corner.y * 2 + 32)) + 4 * static_cast<int>(corner.x * 2 + 32);
        EXPECT_GT(inside[2], 200);
        if (format == SPA_VIDEO_FORMAT_RGBx) {
            EXPECT_LT(inside[0], 60);
        } else {
            EXPECT_GT(inside[0], 200);
        }
        const std::uint8_t* field = last.image.row(last.image.height - 4) + 4 * 4;
        EXPECT_GT(field[0], 60);
        EXPECT_LT(field[2], 40);
        // The pointer's positions are in the movie's pixels, twice the stream's.
        ASSERT_FALSE(recording.inputEvents.empty());
        const InputEvent& move = recording.inputEvents.back();
        const std::vector<SyntheticScreen::Sent> sent = screen.sent();
        const auto number = std::find_if(sent.begin(), sent.end(), [&](const SyntheticScreen::Sent& s) {
            return s.cursor.x * 2 == move.location.x && s.cursor.y * 2 == move.location.y;
        });
        EXPECT_NE(number, sent.end()) << move.location.x << "," << move.location.y;
    }
}

// A producer makes room in the metadata for the largest cursor picture it may send, as it likes (a desktop
// here asks for 384 pixels square); metadata whose size the consumer doesn't allow is dropped from the
// buffers without a word, and the take would have no pointer.
TEST(ScreenCastRecorder, ThePointerComesWhateverRoomTheProducerMakesForItsPicture) {
    const PipeWireDaemon daemon;
    MARLOWICK_REQUIRE(pipeWire(daemon));
    for (const int side : {64, 384, 1024}) {
        SCOPED_TRACE(side);
        const TempDir dir;
        SyntheticScreen::Options options;
        options.cursorSide = side;
        SyntheticScreen screen(daemon.connect(), options);
        ScreenCastRecorder recorder({daemon.connect(), {}}, screen.nodeId(), configurationIn(dir),
                                    linkedBy(screen));
        EXPECT_TRUE(recorder.hasCursorMetadata());
        ASSERT_TRUE(screen.waitForPictures(screen.sent().size() + 10));
        const Recording recording = recorder.stop();
        ASSERT_FALSE(recording.inputEvents.empty());
        const std::vector<SyntheticScreen::Sent> sent = screen.sent();
        const Point last = recording.inputEvents.back().location;
        EXPECT_TRUE(std::any_of(sent.begin(), sent.end(),
                                [&](const SyntheticScreen::Sent& s) { return s.cursor == last; }))
            << last.x << "," << last.y;
    }
}

TEST(ScreenCastRecorder, AProducerThatStopsEndsTheTakeWithWhatWasRecorded) {
    const PipeWireDaemon daemon;
    MARLOWICK_REQUIRE(pipeWire(daemon));
    const TempDir dir;
    SyntheticScreen screen(daemon.connect(), {});
    ScreenCastRecorder recorder({daemon.connect(), {}}, screen.nodeId(), configurationIn(dir),
                                linkedBy(screen));
    ASSERT_TRUE(screen.waitForPictures(screen.sent().size() + 40));
    screen.stop();
    const std::vector<SyntheticScreen::Sent> sent = screen.sent();
    std::optional<CaptureError> interruption;
    for (int i = 0; i < 300 && !(interruption = recorder.interruption()); ++i) {
        std::this_thread::sleep_for(10ms);
    }
    ASSERT_TRUE(interruption);
    EXPECT_EQ(interruption->kind(), CaptureError::Kind::captureUnavailable);
    EXPECT_NE(std::string(interruption->what()), "");

    const Recording recording = recorder.stop();
    const std::vector<DecodedFrame> frames = decode(dir / "take.mov", 1.0);
    ASSERT_GE(frames.size(), 30u);
    // The movie ends on the last picture sent, or one of the last few the consumer had yet to take.
    EXPECT_LE(frames.back().number, sent.back().number);
    EXPECT_GE(frames.back().number, sent.back().number - 3);
    EXPECT_NEAR(recording.duration, frames.back().time + 1.0 / 60, 0.02);
}

TEST(ScreenCastRecorder, StreamsThatCantBeHadAreCaptureUnavailable) {
    const TempDir dir;
    // No daemon at all.
    try {
        ScreenCastRecorder recorder({-1, (dir / "no-such-socket").string()}, 42, configurationIn(dir), {});
        ADD_FAILURE() << "a recorder started without PipeWire";
    } catch (const CaptureError& error) {
        EXPECT_EQ(error.kind(), CaptureError::Kind::captureUnavailable);
        EXPECT_NE(std::string(error.what()).find("PipeWire"), std::string::npos) << error.what();
    }

    const PipeWireDaemon daemon;
    MARLOWICK_REQUIRE(pipeWire(daemon));
    // A node that never sends anything.
    ScreenCastRecorder::Options options;
    options.formatTimeout = 1;
    try {
        ScreenCastRecorder recorder({daemon.connect(), {}}, 9999, configurationIn(dir), options);
        ADD_FAILURE() << "a recorder started on a node that isn't there";
    } catch (const CaptureError& error) {
        EXPECT_EQ(error.kind(), CaptureError::Kind::captureUnavailable);
    }

    // A producer without cursor metadata: pictures, and no pointer.
    SyntheticScreen::Options plain;
    plain.cursorMetadata = false;
    SyntheticScreen screen(daemon.connect(), plain);
    ScreenCastRecorder recorder({daemon.connect(), {}}, screen.nodeId(), configurationIn(dir),
                                linkedBy(screen));
    EXPECT_FALSE(recorder.hasCursorMetadata());
    ASSERT_TRUE(screen.waitForPictures(screen.sent().size() + 20));
    const Recording recording = recorder.stop();
    EXPECT_GT(recorder.statistics().framesWritten, 10);
    EXPECT_TRUE(recording.inputEvents.empty());
}

TEST(ScreenCastRecorder, LinearDmaBufsAreRecordedAsSharedMemoryIs) {
    const PipeWireDaemon daemon;
    MARLOWICK_REQUIRE(pipeWire(daemon));
    // The producer offers DMA-BUFs alone: one linear layout, then a choice of a tiled one and the linear
    // one, which the link narrows to the linear one and the producer then fixes; red-first pixels the
    // second time.
    constexpr std::uint64_t tiled = (1ull << 56) | 1; // DRM's X-tiled layout of Intel's GPUs
    for (const bool choice : {false, true}) {
        SCOPED_TRACE(choice ? "a choice of layouts, RGBx" : "linear, BGRx");
        const TempDir dir;
        SyntheticScreen::Options options;
        options.dmaBuf = true;
        if (choice) {
            options.modifiers = {tiled, 0};
            options.format = SPA_VIDEO_FORMAT_RGBx;
        }
        SyntheticScreen screen(daemon.connect(), options);
        ScreenCastRecorder recorder({daemon.connect(), {}}, screen.nodeId(), configurationIn(dir),
                                    linkedBy(screen));
        EXPECT_GT(screen.dmaBuffers(), 0);
        EXPECT_TRUE(recorder.hasCursorMetadata());
        ASSERT_TRUE(screen.waitForPictures(screen.sent().size() + 60));
        const Recording recording = recorder.stop();
        EXPECT_FALSE(recorder.interruption());
        const std::vector<SyntheticScreen::Sent> sent = screen.sent();
        std::map<int, SyntheticScreen::Sent> numbered = byNumber(sent);

        // The pictures in order on the producer's stamps, their pixels the right way round.
        const std::vector<DecodedFrame> frames = decode(dir / "take.mov", 1.0);
        ASSERT_GE(frames.size(), 40u);
        ASSERT_TRUE(numbered.contains(frames.front().number));
        const std::uint64_t firstPts = numbered[frames.front().number].pts;
        expectOnTheProducersStamps(frames, numbered, firstPts);
        const DecodedFrame& last = frames.back();
        const Point corner = SyntheticScreen::squareOf(last.number);
        const std::uint8_t* inside =
            last.image.row(static_cast<int>(corner.y + 16)) + 4 * static_cast<int>(corner.x + 16);
        EXPECT_GT(inside[2], 200);
        if (choice) {
            EXPECT_LT(inside[0], 60); // red
        } else {
            EXPECT_GT(inside[0], 200); // white
        }
        const std::uint8_t* field = last.image.row(last.image.height - 4) + 4 * 4;
        EXPECT_GT(field[0], 60);
        EXPECT_LT(field[2], 40);

        // The pointer from the same buffers' metadata, at its pictures' times.
        ASSERT_FALSE(recording.inputEvents.empty());
        expectThePointerAtItsPicturesTimes(recording.inputEvents, sent, firstPts);
    }
}

TEST(ScreenCastRecorder, DmaBufsOfALayoutThatCantBeReadAreCaptureUnavailable) {
    const PipeWireDaemon daemon;
    MARLOWICK_REQUIRE(pipeWire(daemon));
    const TempDir dir;
    SyntheticScreen::Options options;
    options.dmaBuf = true;
    options.modifiers = {(1ull << 56) | 2}; // Intel's Y-tiled layout, and nothing else
    SyntheticScreen screen(daemon.connect(), options);
    ScreenCastRecorder::Options recorderOptions = linkedBy(screen);
    recorderOptions.formatTimeout = 5;
    try {
        ScreenCastRecorder recorder({daemon.connect(), {}}, screen.nodeId(), configurationIn(dir),
                                    recorderOptions);
        ADD_FAILURE() << "a recorder started on pictures it can't read";
    } catch (const CaptureError& error) {
        EXPECT_EQ(error.kind(), CaptureError::Kind::captureUnavailable);
        EXPECT_NE(std::string(error.what()).find("no picture format"), std::string::npos) << error.what();
    }
    EXPECT_EQ(screen.dmaBuffers(), 0);
}
