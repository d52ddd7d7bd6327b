#pragma once

// A headless GL context with a compositor and a small recording to draw: red on the left half, blue on
// the right, 64×36; and the projects the GPU tests draw it into. One per test process.

#include "compositor/BgraTexture.h"
#include "compositor/EglContext.h"
#include "compositor/FrameCompositor.h"
#include "model/Project.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace marlowick::testing {

struct Gpu {
    EglContext context;
    FrameCompositor compositor;
    BgraTexture source;

    // A 64×36 recording: red on the left half, blue on the right.
    Gpu() {
        std::vector<std::uint8_t> bgra(64 * 36 * 4);
        for (int y = 0; y < 36; ++y) {
            for (int x = 0; x < 64; ++x) {
                std::uint8_t* p = &bgra[static_cast<std::size_t>((y * 64 + x) * 4)];
                p[0] = x < 32 ? 0 : 255;
                p[1] = 0;
                p[2] = x < 32 ? 255 : 0;
                p[3] = 255;
            }
        }
        source.upload(bgra.data(), 64, 36, 64 * 4);
    }
};

inline Gpu& gpu() {
    static Gpu instance;
    return instance;
}

inline Project project(Canvas canvas) {
    Project p;
    p.source.size = {64, 36};
    p.source.duration = 10;
    p.canvas = std::move(canvas);
    return p;
}

// A transparent canvas without shadow or rounding, the recording inset by 20% of each side.
inline Canvas bare(double inset = 0.2) {
    Canvas c;
    c.background = Background::transparent();
    c.inset = inset;
    c.cornerRadius = 0;
    c.shadow = {0, 0, {0, 0}};
    c.contentMode = ContentMode::fit;
    return c;
}

} // namespace marlowick::testing
