#pragma once

// OpenGL 3.3 core through libglvnd: the entry points are linked directly, no loader is needed. One RAII
// type per kind of GL object; each must be destroyed with its context current.

#define GL_GLEXT_PROTOTYPES 1
#include <GL/glcorearb.h>

#include <utility>

namespace marlowick {

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
// A fresh texture name, bound to nothing yet.
GLuint newTexture();
} // namespace gl

using GlTexture = GlName<gl::deleteTexture>;
using GlBuffer = GlName<gl::deleteBuffer>;
using GlFramebuffer = GlName<gl::deleteFramebuffer>;
using GlVertexArray = GlName<gl::deleteVertexArray>;
using GlProgram = GlName<gl::deleteProgram>;

} // namespace marlowick
