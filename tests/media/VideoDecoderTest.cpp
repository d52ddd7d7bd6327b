// Reading real movies: frame times on the recording's clock, the frame that shows at a time across
// keyframes, B-frames and gaps, and where pictures change.

#include "media/VideoDecoder.h"
#include "media/MediaError.h"
#include "support/TempDir.h"

#include <algorithm>
#include <cstdlib>

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;

namespace {

// A movie of raw BGRA pictures `width` pixels wide at 10 fps, coded losslessly by x264 with `options`.
std::filesystem::path losslessMovie(const std::filesystem::path& movie, int width,
                                    const std::vector<std::string>& pictures, const std::string& options) {
    const auto raw = movie.string() + ".bgra";
    std::string bytes;
    for (const std::string& picture : pictures) {
        bytes += picture;
    }
    writeText(raw, bytes);
    const int height = static_cast<int>(pictures.front().size()) / (width * 4);
    const std::string command = "ffmpeg -v error -y -f rawvideo -pix_fmt bgra -s " + std::to_string(width) +
                                "x" + std::to_string(height) + " -r 10 -i '" + raw + "' -c:v libx264 -qp 0 " +
                                options + " '" + movie.string() + "'";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("ffmpeg could not make the test movie");
    }
    return movie;
}

// 20 frames at 10 fps, 64×48, frame i a flat grey of 10 × i, with a keyframe every 5.
std::filesystem::path makeMovie(const TempDir& dir) {
    std::vector<std::string> pictures;
    for (int i = 0; i < 20; ++i) {
        pictures.emplace_back(64 * 48 * 4, static_cast<char>(10 * i));
    }
    return losslessMovie(dir / "grey.mov", 64, pictures, "-g 5 -pix_fmt yuv444p");
}

int grey(const VideoDecoder::Frame& frame) {
    return frame.image.row(24)[4 * 32 + 1];
}

} // namespace

TEST(VideoDecoder, ReadsEveryFrameWithItsTime) {
    TempDir dir;
    VideoDecoder decoder(makeMovie(dir));
    EXPECT_EQ(decoder.width(), 64);
    EXPECT_EQ(decoder.height(), 48);
    EXPECT_DOUBLE_EQ(decoder.frameRate(), 10);
    EXPECT_NEAR(decoder.duration(), 2, 0.01);
    int count = 0;
    while (const auto frame = decoder.next()) {
        EXPECT_NEAR(frame->time, count * 0.1, 1e-9);
        EXPECT_NEAR(grey(*frame), 10 * count, 2) << count;
        EXPECT_EQ(frame->image.row(0)[3], 255);
        ++count;
    }
    EXPECT_EQ(count, 20);
    // After a seek to a keyframe, reading goes on from there.
    decoder.seek(1.0);
    EXPECT_NEAR(decoder.next()->time, 1.0, 1e-9);
}

TEST(VideoDecoder, SeeksThroughBFramesAndGapsAgreeWithReadingStraightThrough) {
    // 128×72 moving pictures at 10 fps with three B-frames between references (some referred to, some
    // not) and a keyframe every 2 s; after the 25th frame (2.4 s) the next one comes 1.6 s later.
    TempDir dir;
    const auto movie = dir / "pyramid.mov";
    const std::string command =
        "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x72:r=10:d=4 -vf 'setpts=N+gte(N\\,25)*15' "
        "-enc_time_base 1:10 -fps_mode passthrough -c:v libx264 -g 20 -bf 3 -sc_threshold 0 "
        "-x264-params b-adapt=0:b-pyramid=normal -pix_fmt yuv420p -video_track_timescale 10 '" +
        movie.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    VideoDecoder decoder(movie);
    std::vector<VideoDecoder::Frame> frames;
    while (auto frame = decoder.next()) {
        frames.push_back(std::move(*frame));
    }
    ASSERT_EQ(frames.size(), 40U);
    ASSERT_NEAR(frames[25].time, 4.0, 1e-9);

    std::vector<double> times = {3.0, 3.99, -1, 0, 5.9, 50, 2.45};
    for (const auto& frame : frames) {
        times.push_back(frame.time);
        times.push_back(frame.time + 0.05);
        times.push_back(frame.time - 0.01);
    }
    std::reverse(times.begin() + 7, times.end());
    for (const double time : times) {
        // The last frame starting by `time`, or the first one before the start.
        std::size_t expected = 0;
        for (std::size_t i = 0; i < frames.size(); ++i) {
            if (frames[i].time <= time + 1e-6) {
                expected = i;
            }
        }
        const auto frame = decoder.frameAt(time);
        ASSERT_TRUE(frame.has_value()) << time;
        EXPECT_NEAR(frame->time, frames[expected].time, 1e-9) << time;
        EXPECT_TRUE(frame->image.bytes == frames[expected].image.bytes) << "at " << time;
    }
}

TEST(VideoDecoder, AFileThatIsNoMovieIsRefused) {
    TempDir dir;
    writeText(dir / "notes.mov", "not a movie");
    EXPECT_THROW(VideoDecoder(dir / "notes.mov"), MediaError);
    EXPECT_THROW(VideoDecoder(dir / "missing.mov"), MediaError);
}

namespace {

// Six 280×64 frames (a width FFmpeg's converter overruns), losslessly coded: grey; the same; a red box at
// (20, 10, 8×6); a blue one at (262, 50, 4×4), past the first 256 columns, besides; another grey everywhere;
// the same.
std::filesystem::path makeChangingMovie(const TempDir& dir) {
    constexpr int width = 280;
    constexpr int height = 64;
    auto box = [&](std::string& frame, int x0, int y0, int w, int h, char b, char g, char r) {
        for (int y = y0; y < y0 + h; ++y) {
            for (int x = x0; x < x0 + w; ++x) {
                const auto at = static_cast<std::size_t>((y * width + x) * 4);
                frame[at] = b;
                frame[at + 1] = g;
                frame[at + 2] = r;
            }
        }
    };
    std::string frame(width * height * 4, static_cast<char>(90));
    std::vector<std::string> pictures{frame, frame};
    box(frame, 20, 10, 8, 6, 0, 0, static_cast<char>(220));
    pictures.push_back(frame);
    box(frame, 262, 50, 4, 4, static_cast<char>(220), 0, 0);
    pictures.push_back(frame);
    frame.assign(frame.size(), static_cast<char>(140));
    pictures.insert(pictures.end(), {frame, frame});
    return losslessMovie(dir / "changing.mov", width, pictures, "-pix_fmt yuv420p");
}

bool holds(const PixelRect& outer, const PixelRect& inner) {
    return inner.x >= outer.x && inner.y >= outer.y && inner.x + inner.width <= outer.x + outer.width &&
           inner.y + inner.height <= outer.y + outer.height;
}

} // namespace

TEST(VideoDecoder, SaysWherePicturesChangeAndConvertsOnlyThere) {
    TempDir dir;
    const auto movie = makeChangingMovie(dir);
    VideoDecoder whole(movie);
    VideoDecoder decoder(movie);
    BgraImage image;
    BgraImage shown; // the pictures as a consumer of the changed areas alone sees them
    std::vector<PictureChange> changes;
    while (true) {
        PictureChange change;
        const auto time = decoder.next(
            image, [](double) { return true; }, &change);
        const auto reference = whole.next();
        ASSERT_EQ(time.has_value(), reference.has_value());
        if (!time) {
            break;
        }
        if (change.whole) {
            shown = image;
        }
        for (const PixelRect& a : change.areas) {
            for (int y = a.y; y < a.y + a.height; ++y) {
                std::copy(image.row(y) + a.x * 4, image.row(y) + (a.x + a.width) * 4, shown.row(y) + a.x * 4);
            }
        }
        for (int y = 0; y < image.height; ++y) {
            ASSERT_TRUE(std::equal(shown.row(y), shown.row(y) + image.width * 4, reference->image.row(y)))
                << "frame " << changes.size() << ", row " << y;
        }
        changes.push_back(change);
    }
    ASSERT_EQ(changes.size(), 6u);
    EXPECT_TRUE(changes[0].whole);
    EXPECT_TRUE(changes[1].none());
    EXPECT_TRUE(changes[5].none());
    // Each box is found where it was drawn, give or take what the 4:2:0 conversion spread it to.
    const std::vector<std::pair<PixelRect, std::size_t>> boxes{{{20, 10, 8, 6}, 2}, {{262, 50, 4, 4}, 3}};
    for (const auto& [box, frame] : boxes) {
        ASSERT_EQ(changes[frame].areas.size(), 1u) << frame;
        const PixelRect& found = changes[frame].areas.front();
        EXPECT_TRUE(holds(found, box)) << frame;
        EXPECT_TRUE(holds({box.x - 8, box.y - 8, box.width + 16, box.height + 16}, found)) << frame;
    }
    // A picture that changed over most of its area is whole: it is converted whole, with no copy.
    EXPECT_TRUE(changes[4].whole);
}
