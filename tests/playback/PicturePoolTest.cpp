// The player's pictures: each new one, converted only where it changed into an image reused from the pool,
// is the whole picture, and an image handed out never changes while someone holds it.

#include "playback/PicturePool.h"

#include <deque>
#include <random>

#include <gtest/gtest.h>

using namespace marlowick;

namespace {

constexpr int width = 64;
constexpr int height = 32;

BgraImage blankPicture() {
    return {width, height, width * 4, std::vector<std::uint8_t>(width * height * 4)};
}

} // namespace

TEST(PicturePool, EachPictureIsWholeAndWhatIsHeldNeverChanges) {
    std::mt19937 random(11);
    auto below = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
    PicturePool pool;
    BgraImage picture = blankPicture(); // the decoder's picture of the moment
    // What a canvas and a queue hold, each with the picture it should show.
    std::deque<std::pair<std::shared_ptr<const BgraImage>, std::vector<std::uint8_t>>> held;

    for (int step = 0; step < 400; ++step) {
        PictureChange change = PictureChange::nowhere();
        const int kind = below(10);
        if (kind == 0 || step == 0) {
            // A new picture everywhere, as after a seek.
            for (auto& byte : picture.bytes) {
                byte = static_cast<std::uint8_t>(below(256));
            }
            change = PictureChange::everywhere();
        } else if (kind < 9) {
            // A few places change, as on a screen.
            for (int n = below(3) + 1; n > 0; --n) {
                const int x = below(width - 1);
                const int y = below(height - 1);
                const PixelRect area{x, y, 1 + below(width - x), 1 + below(height - y)};
                const auto value = static_cast<std::uint8_t>(below(256));
                for (int row = area.y; row < area.bottom(); ++row) {
                    std::fill_n(picture.row(row) + area.x * 4, area.width * 4, value);
                }
                change.areas.push_back(area);
            }
        }
        // The same picture again asks for no image.
        if (!change.none()) {
            BgraImage& image = pool.next(change);
            if (change.whole) {
                image = picture; // converted whole
            } else {
                for (const PixelRect& area : change.areas) {
                    for (int row = area.y; row < area.bottom(); ++row) {
                        std::copy_n(picture.row(row) + area.x * 4, area.width * 4,
                                    image.row(row) + area.x * 4);
                    }
                }
            }
        }
        ASSERT_TRUE(pool.latest()->bytes == picture.bytes) << "picture " << step;

        // Consumers take some pictures and let go of them after a while, in no fixed order.
        if (below(3) != 0) {
            held.emplace_back(pool.latest(), picture.bytes);
        }
        while (held.size() > 9 || (!held.empty() && below(4) == 0)) {
            const std::size_t which = static_cast<std::size_t>(below(static_cast<int>(held.size())));
            ASSERT_TRUE(held[which].first->bytes == held[which].second) << "a held picture changed";
            held.erase(held.begin() + static_cast<std::ptrdiff_t>(which));
        }
    }
    for (const auto& [image, bytes] : held) {
        EXPECT_TRUE(image->bytes == bytes);
    }
}
