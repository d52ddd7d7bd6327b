#pragma once

#include "model/PixelRect.h"

#include <utility>
#include <vector>

namespace marlowick {

// How a picture differs from the one before it in a sequence. Screen recordings change little from frame
// to frame (a caret, a menu, a line of text), and work done only where they change is most of the speed
// of an export: the decoder reports it, and the compositor draws only where it lands.
struct PictureChange {
    bool whole = true;            // everywhere, or nobody knows where
    std::vector<PixelRect> areas; // when not whole: where it differs; none when it is the same picture

    static PictureChange everywhere() { return {}; }
    static PictureChange nowhere() { return {false, {}}; }
    static PictureChange within(std::vector<PixelRect> areas) { return {false, std::move(areas)}; }
    bool none() const { return !whole && areas.empty(); }
};

} // namespace marlowick
