#include "compositor/RenderTarget.h"

#include "compositor/CompositorError.h"

#include <string>

namespace marlowick {

RenderTarget::RenderTarget(int width, int height)
    : m_texture(gl::newTexture())
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
