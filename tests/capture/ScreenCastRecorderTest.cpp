// A screen shared through PipeWire, recorded from a private daemon started by the fixture and a
// synthetic producer made by the test: the pictures on the producer's own times, the pointer's moves from
// the cursor metadata on the movie's clock, the pixel formats and buffer kinds, and a producer that goes
// away mid-take.

#include "capture/ScreenCastRecorder.h"
#include "media/VideoDecoder.h"
#include "support/PipeWireDaemon.h"
#include "support/SyntheticScreen.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

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

// A take of a synthetic screen, stopped once it has sent a number of pictures, and what came of it.
struct Take {
    Size movieSize;
    bool hasCursorMetadata = false;
    Recording recording;
    CaptureStatistics statistics;
    std::optional<CaptureError> interruption;
    std::vector<SyntheticScreen::Sent> sent;
    std::map<int, SyntheticScreen::Sent> byNumber; // the pictures sent, by their number
    std::vector<DecodedFrame> frames;              // the movie's, its square scaled back by `scale`

    Take(const PipeWireDaemon& daemon, SyntheticScreen& screen, std::size_t pictures, Size size = {},
         double scale = 1) {
        const TempDir dir;
        ScreenCastRecorder recorder({daemon.connect(), {}}, screen.nodeId(), configurationIn(dir, size),
                                    linkedBy(screen));
        movieSize = recorder.movieSize();
        hasCursorMetadata = recorder.hasCursorMetadata();
        EXPECT_TRUE(screen.waitForPictures(screen.sent().size() + pictures));
        recording = recorder.stop();
        statistics = recorder.statistics();
        interruption = recorder.interruption();
        sent = screen.sent();
        for (const SyntheticScreen::Sent& s : sent) {
            byNumber[s.number] = s;
        }
        frames = decode(dir / "take.mov", scale);
    }

    // The stamp of the movie's first picture as the producer sent it.
    std::uint64_t firstPts() const {
        const auto found = byNumber.find(frames.at(0).number);
        EXPECT_NE(found, byNumber.end());
        return found == byNumber.end() ? 0 : found->second.pts;
    }

    // Each decoded picture shows a sent one, in order, at the distance from the first picture's stamp that
    // the producer's stamps put between them: to the tick, where stamping on arrival would wander by
    // milliseconds.
    void expectOnTheProducersStamps() const {
        int previous = -1;
        for (const DecodedFrame& frame : frames) {
            const auto found = byNumber.find(frame.number);
            ASSERT_NE(found, byNumber.end()) << frame.time;
            EXPECT_GT(frame.number, previous);
            previous = frame.number;
            EXPECT_NEAR(frame.time, static_cast<double>(found->second.pts - firstPts()) / 1e9, 0.0005)
                << frame.number;
        }
    }

    // Each pointer position is a sent picture's, at that picture's time on the movie's clock. Returns how
    // many there were.
    std::size_t expectThePointerAtItsPicturesTimes() const {
        std::size_t matched = 0;
        for (const InputEvent& event : recording.inputEvents) {
            EXPECT_EQ(event.kind, InputEvent::Kind::move);
            const auto found = std::find_if(sent.begin(), sent.end(), [&](const SyntheticScreen::Sent& s) {
                return std::abs(static_cast<double>(s.pts - firstPts()) / 1e9 - event.time) < 0.0005;
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

    // The last picture's square is red for red-first pixels and white otherwise, the field dark blue
    // either way: pixels read the right way round.
    void expectTheColours(bool redFirst, double scale = 1) const {
        const DecodedFrame& last = frames.back();
        ASSERT_GE(last.number, 0);
        const Point corner = SyntheticScreen::squareOf(last.number);
        const std::uint8_t* inside = last.image.row(static_cast<int>((corner.y + 16) * scale)) +
                                     4 * static_cast<int>((corner.x + 16) * scale);
        EXPECT_GT(inside[2], 200);
        if (redFirst) {
            EXPECT_LT(inside[0], 60);
        } else {
            EXPECT_GT(inside[0], 200);
        }
        const std::uint8_t* field = last.image.row(last.image.height - 4) + 4 * 4;
        EXPECT_GT(field[0], 60);
        EXPECT_LT(field[2], 40);
    }
};

} // namespace

TEST(ScreenCastRecorder, RecordsPicturesOnTheProducersTimesAndThePointerOnTheMoviesClock) {
    const PipeWireDaemon daemon;
    MARLOWICK_REQUIRE(pipeWire(daemon));
    SyntheticScreen screen(daemon.connect(), {});
    const Take take(daemon, screen, 90);
    EXPECT_EQ(take.movieSize, (Size{320, 240})); // an empty size takes the stream's
    EXPECT_TRUE(take.hasCursorMetadata);
    EXPECT_FALSE(take.interruption);

    ASSERT_GE(take.frames.size(), 80u);
    EXPECT_EQ(static_cast<std::int64_t>(take.frames.size()), take.statistics.framesWritten);
    EXPECT_EQ(take.frames.front().time, 0.0);
    take.expectOnTheProducersStamps();
    // Pictures the producer had to skip are counted as dropped.
    const std::int64_t skipped = take.sent.back().number + 1 - static_cast<std::int64_t>(take.sent.size());
    EXPECT_GE(take.statistics.framesDropped, skipped > 0 ? 1 : 0);

    // The pointer: every picture's position, at its picture's time on the movie's clock, in pixels.
    ASSERT_FALSE(take.recording.inputEvents.empty());
    EXPECT_EQ(take.recording.inputEvents.front().time, 0.0);
    EXPECT_GE(take.expectThePointerAtItsPicturesTimes(), take.frames.size());
    EXPECT_EQ(take.recording.size, (Size{320, 240}));
    EXPECT_NEAR(take.recording.duration, take.frames.back().time + 1.0 / 60, 0.02);
}

TEST(ScreenCastRecorder, RedFirstPixelsAndAnotherMovieSizeAreConverted) {
    const PipeWireDaemon daemon;
    MARLOWICK_REQUIRE(pipeWire(daemon));
    for (const spa_video_format format : {SPA_VIDEO_FORMAT_RGBx, SPA_VIDEO_FORMAT_BGRA}) {
        SCOPED_TRACE(format == SPA_VIDEO_FORMAT_RGBx ? "RGBx" : "BGRA");
        SyntheticScreen::Options options;
        options.format = format;
        SyntheticScreen screen(daemon.connect(), options);
        const Take take(daemon, screen, 30, {640, 480}, 2);
        EXPECT_EQ(take.movieSize, (Size{640, 480}));
        ASSERT_GE(take.frames.size(), 20u);
        take.expectTheColours(format == SPA_VIDEO_FORMAT_RGBx, 2);
        // The pointer's positions are in the movie's pixels, twice the stream's.
        ASSERT_FALSE(take.recording.inputEvents.empty());
        const Point last = take.recording.inputEvents.back().location;
        EXPECT_TRUE(
            std::any_of(take.sent.begin(), take.sent.end(),
                        [&](const auto& s) { return s.cursor.x * 2 == last.x && s.cursor.y * 2 == last.y; }))
            << last.x << "," << last.y;
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
        SyntheticScreen::Options options;
        options.cursorSide = side;
        SyntheticScreen screen(daemon.connect(), options);
        const Take take(daemon, screen, 10);
        EXPECT_TRUE(take.hasCursorMetadata);
        ASSERT_FALSE(take.recording.inputEvents.empty());
        const Point last = take.recording.inputEvents.back().location;
        EXPECT_TRUE(
            std::any_of(take.sent.begin(), take.sent.end(), [&](const auto& s) { return s.cursor == last; }))
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
    const auto unavailable = [&](PipeWireStream::Remote remote, std::uint32_t node,
                                 const ScreenCastRecorder::Options& options) {
        const auto e = thrown<CaptureError>(
            [&] { const ScreenCastRecorder recorder(remote, node, configurationIn(dir), options); });
        EXPECT_TRUE(e && e->kind() == CaptureError::Kind::captureUnavailable);
        return e ? std::string(e->what()) : "";
    };
    // No daemon at all.
    EXPECT_NE(unavailable({-1, (dir / "no-such-socket").string()}, 42, {}).find("PipeWire"),
              std::string::npos);

    const PipeWireDaemon daemon;
    MARLOWICK_REQUIRE(pipeWire(daemon));
    // A node that never sends anything.
    ScreenCastRecorder::Options options;
    options.formatTimeout = 1;
    unavailable({daemon.connect(), {}}, 9999, options);

    // DMA-BUFs of a layout that can't be read (Intel's Y-tiled, and nothing else): no buffer is even made.
    SyntheticScreen::Options tiled;
    tiled.dmaBuf = true;
    tiled.modifiers = {(1ull << 56) | 2};
    SyntheticScreen unreadable(daemon.connect(), tiled);
    options = linkedBy(unreadable);
    options.formatTimeout = 5;
    EXPECT_NE(unavailable({daemon.connect(), {}}, unreadable.nodeId(), options).find("no picture format"),
              std::string::npos);
    EXPECT_EQ(unreadable.dmaBuffers(), 0);

    // A producer without cursor metadata: pictures, and no pointer.
    SyntheticScreen::Options plain;
    plain.cursorMetadata = false;
    SyntheticScreen screen(daemon.connect(), plain);
    const Take take(daemon, screen, 20);
    EXPECT_FALSE(take.hasCursorMetadata);
    EXPECT_GT(take.statistics.framesWritten, 10);
    EXPECT_TRUE(take.recording.inputEvents.empty());
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
        SyntheticScreen::Options options;
        options.dmaBuf = true;
        if (choice) {
            options.modifiers = {tiled, 0};
            options.format = SPA_VIDEO_FORMAT_RGBx;
        }
        SyntheticScreen screen(daemon.connect(), options);
        const Take take(daemon, screen, 60);
        EXPECT_GT(screen.dmaBuffers(), 0);
        EXPECT_TRUE(take.hasCursorMetadata);
        EXPECT_FALSE(take.interruption);
        // The pictures in order on the producer's stamps, their pixels the right way round, and the pointer
        // from the same buffers' metadata.
        ASSERT_GE(take.frames.size(), 40u);
        take.expectOnTheProducersStamps();
        take.expectTheColours(choice);
        ASSERT_FALSE(take.recording.inputEvents.empty());
        take.expectThePointerAtItsPicturesTimes();
    }
}
