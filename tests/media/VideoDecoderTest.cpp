// Reading real movies: frame times on the recording's clock, and the frame that shows at a time, also
// across keyframes.

#include "media/VideoDecoder.h"
#include "media/MediaError.h"
#include "support/TempDir.h"

#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;

namespace {

// 20 frames at 10 fps, 64×48, frame i a flat grey of 10 × i, losslessly coded with a keyframe every 5.
std::filesystem::path makeMovie(const TempDir& dir) {
    const auto raw = dir / "frames.bgra";
    {
        std::ofstream out(raw, std::ios::binary);
        for (int i = 0; i < 20; ++i) {
            const std::string frame(64 * 48 * 4, static_cast<char>(10 * i));
            out << frame;
        }
    }
    const auto movie = dir / "grey.mov";
    const std::string command = "ffmpeg -v error -y -f rawvideo -pix_fmt bgra -s 64x48 -r 10 -i '" +
                                raw.string() + "' -c:v libx264 -qp 0 -g 5 -pix_fmt yuv444p '" +
                                movie.string() + "'";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("ffmpeg could not make the test movie");
    }
    return movie;
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
}

TEST(VideoDecoder, TheFrameAtATimeIsTheOneShowing) {
    TempDir dir;
    VideoDecoder decoder(makeMovie(dir));
    for (const auto& [time, index] : std::vector<std::pair<double, int>>{
             {0, 0}, {0.05, 0}, {0.1, 1}, {0.749, 7}, {1.2, 12}, {0.3, 3}, {1.95, 19}, {50, 19}, {-1, 0}}) {
        const auto frame = decoder.frameAt(time);
        ASSERT_TRUE(frame.has_value()) << time;
        EXPECT_NEAR(frame->time, index * 0.1, 1e-9) << time;
        EXPECT_NEAR(grey(*frame), 10 * index, 2) << time;
    }
    // After a seek, reading goes on from there.
    decoder.seek(1.0);
    EXPECT_NEAR(decoder.next()->time, 1.0, 1e-9);
}

TEST(VideoDecoder, AFileThatIsNoMovieIsRefused) {
    TempDir dir;
    writeText(dir / "notes.mov", "not a movie");
    EXPECT_THROW(VideoDecoder(dir / "notes.mov"), MediaError);
    EXPECT_THROW(VideoDecoder(dir / "missing.mov"), MediaError);
}
