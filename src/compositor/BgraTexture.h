#pragma once

#include "compositor/GlName.h"
#include "model/PixelRect.h"

#include <cstdint>

namespace marlowick {

// A texture for BGRA bytes (as screens, FFmpeg and Cairo hand them over): stored as RGBA with red and blue
// swapped on sampling, which spares Mesa the CPU conversion that a BGRA upload costs it.
class BgraTexture {
public:
    BgraTexture();
    // Replaces the contents; `stride` is the bytes from one row to the next, row 0 at the top.
    void upload(const std::uint8_t* bgra, int width, int height, int stride);
    // Replaces `area` of the contents with that area of an image of the texture's size at `bgra` (or at that
    // offset of the bound pixel unpack buffer), rows `stride` bytes apart.
    void update(const std::uint8_t* bgra, int stride, const PixelRect& area);
    GLuint get() const { return m_texture.get(); }
    int width() const { return m_width; }
    int height() const { return m_height; }

private:
    GlTexture m_texture;
    int m_width = 0;
    int m_height = 0;
};

} // namespace marlowick
