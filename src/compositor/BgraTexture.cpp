#include "compositor/BgraTexture.h"

namespace marlowick {

BgraTexture::BgraTexture()
    : m_texture(gl::newTexture()) {
    glBindTexture(GL_TEXTURE_2D, m_texture.get());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_SWIZZLE_R, GL_BLUE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_SWIZZLE_B, GL_RED);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
    const std::uint8_t blank[4] = {0, 0, 0, 0};
    upload(blank, 1, 1, 4);
}

void BgraTexture::upload(const std::uint8_t* bgra, int width, int height, int stride) {
    glBindTexture(GL_TEXTURE_2D, m_texture.get());
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, stride / 4);
    if (width != m_width || height != m_height) {
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, bgra);
        m_width = width;
        m_height = height;
    } else {
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, bgra);
    }
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
}

void BgraTexture::update(const std::uint8_t* bgra, int stride, const PixelRect& area) {
    glBindTexture(GL_TEXTURE_2D, m_texture.get());
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, stride / 4);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, area.x);
    glPixelStorei(GL_UNPACK_SKIP_ROWS, area.y);
    glTexSubImage2D(GL_TEXTURE_2D, 0, area.x, area.y, area.width, area.height, GL_RGBA, GL_UNSIGNED_BYTE,
                    bgra);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
    glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
}

} // namespace marlowick
