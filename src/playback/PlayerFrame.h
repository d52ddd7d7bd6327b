#pragma once

#include "media/BgraImage.h"
#include "model/PictureChange.h"

#include <cstdint>
#include <memory>

namespace marlowick {

// One picture a player hands to the canvas. The image is shared and never changed once handed out, so the
// canvas may keep it while the player decodes the next.
struct PlayerFrame {
    std::shared_ptr<const BgraImage> image;
    double time = 0;    // seconds on the item's timeline where this picture starts to show
    double endTime = 0; // where the next picture starts (the segment's end for its last picture)
    // Where this picture differs from the one handed out before it. Whole for the first picture after an
    // open or a seek, so that a canvas that uploads only the changed areas never shows a stale one.
    PictureChange change;
    std::uint64_t generation = 0; // rises with every open and seek: frames of an older one are stale
};

} // namespace marlowick
