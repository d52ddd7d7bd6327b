#pragma once

#include <vector>

namespace marlowick {

// A rectangle of a picture's pixels, top-left origin.
struct PictureArea {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    friend bool operator==(const PictureArea&, const PictureArea&) = default;
};

// How a picture differs from the one before it in a sequence. Screen recordings change little from frame
// to frame (a caret, a menu, a line of text), and work done only where they change is most of the speed
// of an export.
struct PictureChange {
    bool whole = true;              // everywhere, or nobody knows where
    std::vector<PictureArea> areas; // when not whole: where it differs; none when it is the same picture

    static PictureChange everywhere() { return {}; }
    static PictureChange nowhere() { return {false, {}}; }
    bool none() const { return !whole && areas.empty(); }
};

} // namespace marlowick
