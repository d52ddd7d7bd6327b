// Moving pixels to and from the GPU, directly and streamed through pixel buffers, on the machine's GL.

#include "compositor/PixelTransfer.h"
#include "compositor/RenderTarget.h"

#include <algorithm>
#include <array>

#include <gtest/gtest.h>

#include "support/SmallCanvas.h"

using namespace marlowick;
using namespace marlowick::testing;

TEST(PixelTransfer, StreamingThroughBuffersGivesThePixelsOfTheDirectWay) {
    Gpu& g = gpu();
    const Project p = project(bare(0.1));
    RenderTarget target(160, 90);
    std::vector<std::uint8_t> recording(64 * 36 * 4);
    for (std::size_t i = 0; i < recording.size(); ++i) {
        recording[i] = static_cast<std::uint8_t>(i * 7 % 251);
    }
    std::array<std::vector<std::uint8_t>, 2> out;
    for (const bool streaming : {false, true}) {
        PixelTransfer transfer(streaming);
        BgraTexture texture;
        std::vector<std::vector<std::uint8_t>> frames(3, std::vector<std::uint8_t>(160 * 90 * 4));
        std::vector<std::uint64_t> done;
        for (std::uint64_t i = 0; i < 3; ++i) {
            transfer.upload(texture, recording.data(), 64, 36, 64 * 4);
            target.bind();
            g.compositor.render(texture, 160, 90, p, 0, std::nullopt, true);
            for (const std::uint64_t tag : transfer.read(160, 90, frames[i].data(), i)) {
                done.push_back(tag);
            }
        }
        for (const std::uint64_t tag : transfer.flush()) {
            done.push_back(tag);
        }
        EXPECT_EQ(done, (std::vector<std::uint64_t>{0, 1, 2})) << (streaming ? "streaming" : "direct");
        EXPECT_EQ(frames[0], frames[2]);
        out[streaming ? 1 : 0] = frames[2];
    }
    EXPECT_EQ(out[0], out[1]);
    // Read in the framebuffer's own order: red first.
    const std::vector<std::uint8_t> bgra = target.readBgra();
    EXPECT_EQ(out[0][4 * (45 * 160 + 80) + 0], bgra[4 * (45 * 160 + 80) + 2]);
}

TEST(PixelTransfer, AreasAreReadIntoTheirOwnPlacesAndNothingElse) {
    Gpu& g = gpu();
    const Project p = project(bare(0.1));
    RenderTarget target(160, 90);
    target.bind();
    g.compositor.render(g.source, 160, 90, p, 0, std::nullopt, true);
    std::vector<std::uint8_t> whole(160 * 90 * 4);
    PixelTransfer(false).read(160, 90, whole.data(), 0);
    const std::vector<PixelRect> areas{{0, 0, 160, 3}, {20, 40, 50, 10}, {159, 89, 1, 1}};
    for (const bool streaming : {false, true}) {
        PixelTransfer transfer(streaming);
        std::vector<std::uint8_t> parts(whole.size(), 7);
        std::vector<std::uint64_t> done = transfer.readAreas(160, 90, areas, parts.data(), 1);
        for (const std::uint64_t tag : transfer.flush()) {
            done.push_back(tag);
        }
        EXPECT_EQ(done, std::vector<std::uint64_t>{1});
        for (int y = 0; y < 90; ++y) {
            for (int x = 0; x < 160; ++x) {
                const bool inside = std::any_of(areas.begin(), areas.end(), [&](const PixelRect& r) {
                    return x >= r.x && x < r.right() && y >= r.y && y < r.bottom();
                });
                const auto at = static_cast<std::size_t>((y * 160 + x) * 4);
                for (std::size_t c = 0; c < 4; ++c) {
                    ASSERT_EQ(parts[at + c], inside ? whole[at + c] : 7)
                        << (streaming ? "streaming" : "direct") << " at " << x << "," << y;
                }
            }
        }
    }
}
