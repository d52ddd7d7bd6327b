#include "compositor/Gl.h"

namespace marlowick {

void gl::deleteTexture(GLuint name) {
    glDeleteTextures(1, &name);
}
void gl::deleteBuffer(GLuint name) {
    glDeleteBuffers(1, &name);
}
void gl::deleteFramebuffer(GLuint name) {
    glDeleteFramebuffers(1, &name);
}
void gl::deleteVertexArray(GLuint name) {
    glDeleteVertexArrays(1, &name);
}
void gl::deleteProgram(GLuint name) {
    glDeleteProgram(name);
}

namespace {

GLuint newTexture() {
    GLuint name = 0;
    glGenTextures(1, &name);
    return name;
}

} // namespace

BgraTexture::BgraTexture()
    : m_texture(newTexture()) {
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

RenderTarget::RenderTarget(int width, int height)
    : m_texture(newTexture())
    , m_width(width)
    , m_height(height) {
    glBindTexture(GL_TEXTURE_2D, m_texture.get());
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    GLuint framebuffer = 0;
    glGenFramebuffers(1, &framebuffer);
    m_framebuffer = GlFramebuffer(framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, m_texture.get(), 0);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        throw CompositorError(CompositorError::Kind::noFramebuffer,
                              "no framebuffer of " + std::to_string(width) + "×" + std::to_string(height));
    }
}

void RenderTarget::bind() const {
    glBindFramebuffer(GL_FRAMEBUFFER, m_framebuffer.get());
    glViewport(0, 0, m_width, m_height);
}

std::vector<std::uint8_t> RenderTarget::readBgra() const {
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height) *
                                     4);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, m_framebuffer.get());
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, m_width, m_height, GL_BGRA, GL_UNSIGNED_BYTE, pixels.data());
    return pixels;
}

} // namespace marlowick
