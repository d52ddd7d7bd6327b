#pragma once

#include "compositor/FrameUniforms.h"
#include "model/PixelRect.h"

#include <vector>

namespace marlowick {

// The passes of the compositor program that a variant may leave out.
namespace CompositorFeature {
constexpr unsigned tilt = 1;    // mapping pixels onto the tilted plane
constexpr unsigned under = 2;   // background, and what lies beneath the recording
constexpr unsigned shadow = 4;  // the drop shadow (beneath)
constexpr unsigned device = 8;  // the device frame (beneath) and its camera housing (above)
constexpr unsigned ripple = 16; // the click ripple
constexpr unsigned cursor = 32; // the cursor arrow
constexpr unsigned caption = 64;
// Not a pass but their absence: the inside of an untilted recording, where the frame shows as it is.
constexpr unsigned interior = 128;
constexpr unsigned surface = 256; // the recording, with the ripple and cursor that lie on it
constexpr unsigned all = tilt | under | shadow | device | ripple | cursor | caption | surface;
} // namespace CompositorFeature

struct DrawStep {
    PixelRect region;
    unsigned features; // CompositorFeature bits
    bool overlay =
        false; // the neighbourhood of something drawn over the canvas: cursor, ripple, caption, housing
};

// How to draw a frame so that no pixel runs passes that can't touch it: the inside of the recording
// (fully covered, so nothing beneath shows) with the surface alone, a ring two pixels either side of its
// edge with the surface and what lies beneath, the rest of the canvas without the surface, and then the
// neighbourhoods of the cursor, the ripple, the caption and the camera housing again with everything. Later
// steps overwrite earlier ones; every pixel ends with the value the whole program gives it. A tilted frame is
// one step with everything.
std::vector<DrawStep> planDraws(const FrameUniforms& u, int width, int height);

// The canvas pixels an untilted frame's sampling can carry `area` of a `sourceWidth` × `sourceHeight` source
// to: the area grown by the texel that filtering blends in on each side, placed through the crop and the
// camera, and a pixel more; on a side where the area meets the source's edge, which sampling repeats beyond
// it, out to the canvas's edge. Clipped to the canvas.
PixelRect canvasReach(const FrameUniforms& u, const PixelRect& area, int sourceWidth, int sourceHeight,
                      int width, int height);

} // namespace marlowick
