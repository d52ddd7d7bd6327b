#pragma once

#include "media/BgraImage.h"
#include "model/PictureChange.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

namespace marlowick {

// The images of the pictures a player hands out. A picture handed out never changes, so each new one goes
// into an image that nobody holds any more. A 1080p picture is 8 MB: a reused image is brought up to date
// by copying only the areas that changed since the picture it last held, a fraction of the whole for a
// screen take, and a picture that changes everywhere is converted whole into it with no copy at all.
//
// Thread: one thread at a time. The images handed out may be let go on any thread.
class PicturePool {
public:
    // The image to convert the next picture into, `change` being where it differs from the latest one: the
    // image holds the latest picture wherever the change doesn't reach. It is the latest from then on.
    BgraImage& next(const PictureChange& change);
    // The latest picture; none before the first.
    std::shared_ptr<const BgraImage> latest() const { return m_latest; }

private:
    struct Slot {
        std::shared_ptr<BgraImage> image;
        std::uint64_t picture = 0; // the number of the picture it holds; 0 for none
    };
    // Makes `image`, which holds picture number `held` (0: none), hold the latest picture.
    void bringUpToDate(BgraImage& image, std::uint64_t held) const;

    // Enough for a player's queue, the picture it holds back, the canvas's and a few in between.
    static constexpr std::size_t capacity = 12;
    std::vector<Slot> m_slots;
    std::shared_ptr<BgraImage> m_latest;
    std::uint64_t m_latestPicture = 0;
    // The changes of the latest pictures, each from the one before, by number.
    std::deque<std::pair<std::uint64_t, PictureChange>> m_changes;
};

} // namespace marlowick
