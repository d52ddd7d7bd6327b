#pragma once

// OpenGL 3.3 core through libglvnd: the entry points are linked directly, no loader is needed. One RAII
// type per kind of GL object; each must be destroyed with its context current.

#define GL_GLEXT_PROTOTYPES 1
#include <GL/glcorearb.h>

#include "model/PixelRect.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace marlowick {

// A failure to set up or draw with the GPU. The text says what failed.
class CompositorError : public std::runtime_error {
public:
    enum class Kind { shaderCompilationFailed, noGpuContext, noFramebuffer };
    CompositorError(Kind kind, const std::string& text)
        : std::runtime_error(text)
        , m_kind(kind) {}
    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

// Owns one GL object name and deletes it with the given function.
template <void (*Delete)(GLuint)> class GlName {
public:
    GlName() = default;
    explicit GlName(GLuint name)
        : m_name(name) {}
    ~GlName() {
        if (m_name != 0) {
            Delete(m_name);
        }
    }
    GlName(GlName&& other) noexcept
        : m_name(other.m_name) {
        other.m_name = 0;
    }
    GlName& operator=(GlName&& other) noexcept {
        std::swap(m_name, other.m_name);
        return *this;
    }
    GLuint get() const { return m_name; }

private:
    GLuint m_name = 0;
};

namespace gl {
void deleteTexture(GLuint name);
void deleteBuffer(GLuint name);
void deleteFramebuffer(GLuint name);
void deleteVertexArray(GLuint name);
void deleteProgram(GLuint name);
} // namespace gl

using GlTexture = GlName<gl::deleteTexture>;
using GlBuffer = GlName<gl::deleteBuffer>;
using GlFramebuffer = GlName<gl::deleteFramebuffer>;
using GlVertexArray = GlName<gl::deleteVertexArray>;
using GlProgram = GlName<gl::deleteProgram>;

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
