// Movies we write, read back: frames and their times, levels, and alpha where the codec keeps it.

#include "media/VideoEncoder.h"
#include "media/MediaError.h"
#include "media/PixelConverter.h"
#include "media/VideoDecoder.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;

namespace {

// Frame i is a flat grey of 20 × i; its alpha rises from 0 at the left edge to 255 at the right.
std::vector<std::uint8_t> frame(int i, int width, int height) {
    std::vector<std::uint8_t> bgra(static_cast<std::size_t>(width * height * 4));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            std::uint8_t* p = &bgra[static_cast<std::size_t>((y * width + x) * 4)];
            p[0] = p[1] = p[2] = static_cast<std::uint8_t>(20 * i);
            p[3] = static_cast<std::uint8_t>(255 * x / (width - 1));
        }
    }
    return bgra;
}

VideoEncoder::Settings settingsOf(VideoEncoder::Codec codec, VideoEncoder::Container container, int width,
                                  int height, double rate) {
    VideoEncoder::Settings settings;
    settings.codec = codec;
    settings.container = container;
    settings.width = width;
    settings.height = height;
    settings.frameRate = rate;
    return settings;
}

std::filesystem::path write(const TempDir& dir, const std::string& name, VideoEncoder::Settings settings,
                            int frames) {
    const auto path = dir / name;
    VideoEncoder encoder(path, settings);
    for (int i = 0; i < frames; ++i) {
        const auto bgra = frame(i, settings.width, settings.height);
        encoder.encode(bgra.data(), settings.width * 4, i / settings.frameRate);
    }
    encoder.finish();
    return path;
}

} // namespace

TEST(VideoEncoder, H264AndHevcKeepEveryFrameAtItsTime) {
    TempDir dir;
    for (const auto& [name, codec, container] :
         {std::tuple{"a.mp4", VideoEncoder::Codec::h264, VideoEncoder::Container::mp4},
          std::tuple{"b.mov", VideoEncoder::Codec::hevc, VideoEncoder::Container::mov}}) {
        const auto path = write(dir, name, settingsOf(codec, container, 64, 48, 30), 10);
        VideoDecoder decoder(path);
        EXPECT_EQ(decoder.width(), 64);
        EXPECT_EQ(decoder.height(), 48);
        int count = 0;
        while (const auto f = decoder.next()) {
            EXPECT_NEAR(f->time, count / 30.0, 1e-3) << name;
            EXPECT_NEAR(f->image.row(24)[4 * 32 + 1], 20 * count, 4) << name << " frame " << count;
            EXPECT_EQ(f->image.row(24)[4 * 32 + 3], 255); // no alpha in 4:2:0
            ++count;
        }
        EXPECT_EQ(count, 10) << name;
    }
}

TEST(VideoEncoder, ProRes4444KeepsTheAlpha) {
    TempDir dir;
    const auto path =
        write(dir, "alpha.mov",
              settingsOf(VideoEncoder::Codec::prores4444, VideoEncoder::Container::mov, 64, 48, 60), 3);
    VideoDecoder decoder(path);
    const auto f = decoder.next();
    ASSERT_TRUE(f.has_value());
    EXPECT_LT(f->image.row(10)[3], 8);
    EXPECT_GT(f->image.row(10)[4 * 63 + 3], 247);
    EXPECT_NEAR(f->image.row(10)[4 * 32 + 3], 255 * 32 / 63, 6);
}

TEST(VideoEncoder, RefusesWhatTheCodecCantTake) {
    TempDir dir;
    // 4:2:0 needs even sizes.
    EXPECT_THROW(VideoEncoder(dir / "odd.mp4", settingsOf(VideoEncoder::Codec::h264,
                                                          VideoEncoder::Container::mp4, 65, 49, 30)),
                 MediaError);
    EXPECT_THROW(
        VideoEncoder(dir / "nowhere" / "x.mp4",
                     settingsOf(VideoEncoder::Codec::h264, VideoEncoder::Container::mp4, 64, 48, 30)),
        MediaError);
}

TEST(PixelConverter, BlocksConvertedApartGiveThePictureOfOneConversion) {
    constexpr int width = 96;
    constexpr int height = 200; // six blocks of 32 rows and one of 8
    std::vector<std::uint8_t> bgra(width * height * 4);
    for (std::size_t i = 0; i < bgra.size(); ++i) {
        bgra[i] = static_cast<std::uint8_t>((i * 37 + i / 977) % 256);
    }
    const std::uint8_t* in[4] = {bgra.data()};
    const int inStrides[4] = {width * 4};
    auto convert = [&](int threads, const std::vector<RowSpan>* rows) {
        av::PixelConverter converter(width, height, AV_PIX_FMT_BGRA, AV_PIX_FMT_YUV420P, threads);
        std::vector<std::uint8_t> yuv(width * height * 3 / 2, 3);
        std::uint8_t* out[4] = {yuv.data(), yuv.data() + width * height, yuv.data() + width * height * 5 / 4};
        const int outStrides[4] = {width, width / 2, width / 2};
        if (rows != nullptr) {
            converter.convertRows(in, inStrides, out, outStrides, *rows);
        } else {
            converter.convert(in, inStrides, out, outStrides);
        }
        return yuv;
    };
    const auto one = convert(1, nullptr);
    EXPECT_TRUE(convert(3, nullptr) == one);

    // Rows 40 and 150–170 lie in the blocks from 32 to 64 and from 128 to 192: those are converted, and
    // nothing else is written.
    const std::vector<RowSpan> rows{{150, 21}, {40, 1}};
    EXPECT_EQ(av::PixelConverter::blocksHolding(rows, height), (std::vector<RowSpan>{{32, 32}, {128, 64}}));
    EXPECT_EQ(av::PixelConverter::blocksHolding({{190, 50}, {-5, 6}}, height),
              (std::vector<RowSpan>{{0, 32}, {160, 40}}));
    const auto some = convert(2, &rows);
    for (int y = 0; y < height; ++y) {
        const bool converted = (y >= 32 && y < 64) || (y >= 128 && y < 192);
        const auto luma = static_cast<std::size_t>(y * width);
        const auto chroma = static_cast<std::size_t>(width * height + y / 2 * width / 2);
        for (int x = 0; x < width; ++x) {
            ASSERT_EQ(some[luma + x], converted ? one[luma + x] : 3) << x << "," << y;
        }
        for (int x = 0; x < width / 2; ++x) {
            ASSERT_EQ(some[chroma + x], converted ? one[chroma + x] : 3) << x << "," << y;
        }
    }
}
