// Movies we write, read back: frames and their times, levels, and alpha where the codec keeps it.

#include "media/VideoEncoder.h"
#include "media/MediaError.h"
#include "media/PixelConverter.h"
#include "media/VideoDecoder.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>

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

TEST(PixelConverter, TilesConvertedApartGiveThePictureOfOneConversion) {
    constexpr int width = 600;  // tiles 256, 256 and 88 wide
    constexpr int height = 200; // twelve rows of tiles 16 high and one of 8
    std::vector<std::uint8_t> bgra(width * height * 4);
    for (std::size_t i = 0; i < bgra.size(); ++i) {
        bgra[i] = static_cast<std::uint8_t>((i * 37 + i / 977) % 256);
    }
    const std::uint8_t* in[4] = {bgra.data()};
    const int inStrides[4] = {width * 4};
    // Planes with room past each row, as FFmpeg's frames have.
    constexpr int stride = 640;
    constexpr std::size_t chromaStart = stride * height;
    constexpr std::size_t size = chromaStart + stride * height / 2;
    std::uint8_t* out[4] = {};
    const int outStrides[4] = {stride, stride / 2, stride / 2};
    auto planes = [&](std::vector<std::uint8_t>& yuv) {
        out[0] = yuv.data();
        out[1] = yuv.data() + chromaStart;
        out[2] = yuv.data() + chromaStart + stride / 2 * height / 2;
    };
    auto convert = [&](int threads, const std::vector<PixelRect>* areas) {
        av::PixelConverter converter(width, height, AV_PIX_FMT_BGRA, AV_PIX_FMT_YUV420P, threads);
        std::vector<std::uint8_t> yuv(size, 3);
        planes(yuv);
        if (areas != nullptr) {
            converter.convertAreas(in, inStrides, out, outStrides, *areas);
        } else {
            converter.convert(in, inStrides, out, outStrides);
        }
        return yuv;
    };
    // The reference: one context for the whole picture.
    std::vector<std::uint8_t> one(size, 3);
    {
        const av::ScaleContext whole(sws_getContext(width, height, AV_PIX_FMT_BGRA, width, height,
                                                    AV_PIX_FMT_YUV420P, SWS_POINT, nullptr, nullptr,
                                                    nullptr));
        planes(one);
        sws_scale(whole.get(), in, inStrides, 0, height, out, outStrides);
    }
    auto samePictures = [&](const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
        for (int y = 0; y < height; ++y) {
            const auto luma = static_cast<std::size_t>(y * stride);
            const auto chroma = chromaStart + static_cast<std::size_t>(y / 2 * stride / 2);
            if (!std::equal(&a[luma], &a[luma] + width, &b[luma]) ||
                !std::equal(&a[chroma], &a[chroma] + width / 2, &b[chroma])) {
                return false;
            }
        }
        return true;
    };
    EXPECT_TRUE(samePictures(convert(1, nullptr), one));
    EXPECT_TRUE(samePictures(convert(3, nullptr), one));

    // A pixel at (300, 40) and a band across rows 150–170 meet these tiles; those are converted, and nothing
    // else is written.
    const std::vector<PixelRect> areas{{300, 40, 1, 1}, {-10, 150, 700, 21}};
    const std::vector<PixelRect> tiles = av::PixelConverter::tilesMeeting(areas, width, height);
    EXPECT_EQ(tiles, (std::vector<PixelRect>{{256, 32, 256, 16}, {0, 144, 600, 32}}));
    EXPECT_EQ(
        av::PixelConverter::tilesMeeting({{590, 190, 50, 50}, {0, 0, 600, 200}, {5, 5, 0, 9}}, width, height),
        (std::vector<PixelRect>{{0, 0, 600, 200}}));
    EXPECT_EQ(
        av::PixelConverter::tilesMeeting({{0, 0, 10, 10}, {0, 20, 10, 10}, {300, 20, 10, 10}}, width, height),
        (std::vector<PixelRect>{{0, 0, 256, 16}, {0, 16, 512, 16}}));
    const auto some = convert(2, &areas);
    auto converted = [&](int x, int y) {
        return std::any_of(tiles.begin(), tiles.end(), [&](const PixelRect& t) {
            return x >= t.x && x < t.x + t.width && y >= t.y && y < t.y + t.height;
        });
    };
    for (int y = 0; y < height; ++y) {
        const auto luma = static_cast<std::size_t>(y * stride);
        const auto chroma = chromaStart + static_cast<std::size_t>(y / 2 * stride / 2);
        for (int x = 0; x < width; ++x) {
            ASSERT_EQ(some[luma + x], converted(x, y) ? one[luma + x] : 3) << x << "," << y;
            if (x % 2 == 0) {
                ASSERT_EQ(some[chroma + x / 2], converted(x, y) ? one[chroma + x / 2] : 3) << x << "," << y;
            }
        }
    }
}
