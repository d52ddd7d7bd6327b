#pragma once

#include "compositor/GlName.h"

#include <cstdint>
#include <vector>

namespace marlowick {

// An offscreen colour buffer of RGBA8 to draw into and read back.
class RenderTarget {
public:
    RenderTarget(int width, int height);
    void bind() const;
    int width() const { return m_width; }
    int height() const { return m_height; }
    // The pixels as straight BGRA, row 0 first as drawn (a frame drawn with its top row first reads
    // top-down).
    std::vector<std::uint8_t> readBgra() const;

private:
    GlTexture m_texture;
    GlFramebuffer m_framebuffer;
    int m_width;
    int m_height;
};

} // namespace marlowick
