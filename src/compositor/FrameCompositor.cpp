#include "compositor/FrameCompositor.h"

#include "compositor/CaptionRenderer.h"
#include "compositor/CompositorShader.h"

#include <cstdio>

namespace marlowick {

namespace {

constexpr GLuint uniformBinding = 0;

std::string shaderLog(GLuint shader) {
    GLint length = 0;
    glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &length);
    std::string text(static_cast<std::size_t>(std::max(length, 1)), '\0');
    glGetShaderInfoLog(shader, length, nullptr, text.data());
    return text.c_str();
}

GLuint compile(GLenum stage, const char* source, const char* name) {
    const GLuint shader = glCreateShader(stage);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    GLint ok = GL_FALSE;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
    if (ok != GL_TRUE) {
        const std::string log = shaderLog(shader);
        glDeleteShader(shader);
        throw CompositorError(CompositorError::Kind::shaderCompilationFailed,
                              std::string("the ") + name + " stage doesn't compile: " + log);
    }
    return shader;
}

// Both statuses are checked: a wrong version line passes Mesa's compile and fails only at link.
GLuint link() {
    const GLuint vertex = compile(GL_VERTEX_SHADER, compositorVertexSource, "vertex");
    GLuint fragment = 0;
    try {
        fragment = compile(GL_FRAGMENT_SHADER, compositorFragmentSource, "fragment");
    } catch (...) {
        glDeleteShader(vertex);
        throw;
    }
    const GLuint program = glCreateProgram();
    glAttachShader(program, vertex);
    glAttachShader(program, fragment);
    glLinkProgram(program);
    glDeleteShader(vertex);
    glDeleteShader(fragment);
    GLint ok = GL_FALSE;
    glGetProgramiv(program, GL_LINK_STATUS, &ok);
    if (ok != GL_TRUE) {
        GLint length = 0;
        glGetProgramiv(program, GL_INFO_LOG_LENGTH, &length);
        std::string log(static_cast<std::size_t>(std::max(length, 1)), '\0');
        glGetProgramInfoLog(program, length, nullptr, log.data());
        glDeleteProgram(program);
        throw CompositorError(CompositorError::Kind::shaderCompilationFailed,
                              "the compositor program doesn't link: " + std::string(log.c_str()));
    }
    return program;
}

} // namespace

FrameCompositor::FrameCompositor()
    : m_program(link())
    , m_captions(std::make_unique<CaptionRenderer>()) {
    const GLuint program = m_program.get();
    glUniformBlockBinding(program, glGetUniformBlockIndex(program, "FrameUniforms"), uniformBinding);
    glUseProgram(program);
    glUniform1i(glGetUniformLocation(program, "source"), 0);
    glUniform1i(glGetUniformLocation(program, "caption"), 1);
    m_topRowFirst = glGetUniformLocation(program, "topRowFirst");

    GLuint vertexArray = 0;
    glGenVertexArrays(1, &vertexArray);
    m_vertexArray = GlVertexArray(vertexArray);
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);
    m_uniforms = GlBuffer(buffer);
    glBindBuffer(GL_UNIFORM_BUFFER, buffer);
    glBufferData(GL_UNIFORM_BUFFER, sizeof(FrameUniforms), nullptr, GL_DYNAMIC_DRAW);
}

FrameCompositor::~FrameCompositor() = default;

void FrameCompositor::render(const BgraTexture& source, int canvasWidth, int canvasHeight,
                             const Project& project, double t, const std::optional<CursorFrame>& cursor,
                             bool topRowFirst) {
    const Size canvas{static_cast<double>(canvasWidth), static_cast<double>(canvasHeight)};
    FrameUniforms u = frameUniforms(project, t, canvas, cursor);

    const BgraTexture* caption = &m_blank;
    if (project.captions) {
        if (const auto layout = m_captions->layout(*project.captions, t, canvas)) {
            u.captionOrigin = {static_cast<float>(layout->origin.x), static_cast<float>(layout->origin.y)};
            u.captionSize = {static_cast<float>(layout->size.width), static_cast<float>(layout->size.height)};
            caption = layout->texture;
        }
    }

    glViewport(0, 0, canvasWidth, canvasHeight);
    glDisable(GL_BLEND);
    glUseProgram(m_program.get());
    glUniform1f(m_topRowFirst, topRowFirst ? 1.0f : 0.0f);
    glBindBuffer(GL_UNIFORM_BUFFER, m_uniforms.get());
    glBufferSubData(GL_UNIFORM_BUFFER, 0, sizeof u, &u);
    glBindBufferBase(GL_UNIFORM_BUFFER, uniformBinding, m_uniforms.get());
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, source.get());
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, caption->get());
    glBindVertexArray(m_vertexArray.get());
    glDrawArrays(GL_TRIANGLES, 0, 3);
    glBindVertexArray(0);
    glActiveTexture(GL_TEXTURE0);
}

void FrameCompositor::invalidateCaptions() {
    m_captions->invalidate();
}

std::vector<std::size_t> FrameCompositor::uniformBlockOffsets() const {
    std::vector<std::size_t> offsets;
    for (const UniformField& field : frameUniformFields()) {
        const std::string name(field.name);
        const char* names[] = {name.c_str()};
        GLuint index = GL_INVALID_INDEX;
        glGetUniformIndices(m_program.get(), 1, names, &index);
        GLint offset = -1;
        if (index != GL_INVALID_INDEX) {
            glGetActiveUniformsiv(m_program.get(), 1, &index, GL_UNIFORM_OFFSET, &offset);
        }
        offsets.push_back(static_cast<std::size_t>(offset));
    }
    return offsets;
}

} // namespace marlowick
