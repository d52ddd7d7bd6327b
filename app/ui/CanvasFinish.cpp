#include "ui/CanvasFinish.h"

#include <QVector2D>

#include <stdexcept>

namespace marlowick {

namespace {

// One triangle that covers the viewport, from the vertex's number alone.
const char* const vertexStage = R"(#version 330 core
void main() {
    vec2 corner = vec2((gl_VertexID << 1) & 2, gl_VertexID & 2);
    gl_Position = vec4(corner * 2.0 - 1.0, 0.0, 1.0);
}
)";

// The picture is straight RGBA with its first row at the bottom, as the window's framebuffer is, so each
// pixel reads its own texel. The tiles count from the top-left corner, where a person's eye starts.
const char* const fragmentStage = R"(#version 330 core
uniform sampler2D picture;
uniform vec2 size;
uniform float radius;
uniform float square;
out vec4 colour;
void main() {
    vec2 p = gl_FragCoord.xy;
    vec4 shown = texelFetch(picture, ivec2(p), 0);
    vec3 behind = vec3(0.0);
    if (square > 0.0) {
        ivec2 tile = ivec2(floor(vec2(p.x, size.y - p.y) / square));
        behind = (tile.x + tile.y) % 2 == 0 ? vec3(1.0) : vec3(0.8);
    }
    vec3 over = shown.rgb * shown.a + behind * (1.0 - shown.a);
    // The distance to the rounded rectangle's edge, negative inside; a pixel on the edge is part covered.
    vec2 middle = size * 0.5;
    vec2 q = abs(p - middle) - (middle - vec2(radius));
    float outside = length(max(q, 0.0)) + min(max(q.x, q.y), 0.0) - radius;
    float coverage = clamp(0.5 - outside, 0.0, 1.0);
    colour = vec4(over * coverage, 1.0);
}
)";

} // namespace

CanvasFinish::CanvasFinish() {
    if (!m_program.addShaderFromSourceCode(QOpenGLShader::Vertex, vertexStage) ||
        !m_program.addShaderFromSourceCode(QOpenGLShader::Fragment, fragmentStage) || !m_program.link()) {
        throw std::runtime_error(m_program.log().toStdString());
    }
    glGenVertexArrays(1, &m_vertexArray);
}

CanvasFinish::~CanvasFinish() {
    glDeleteVertexArrays(1, &m_vertexArray);
}

bool CanvasFinish::bindPicture(int width, int height) {
    const bool fresh = !m_picture || m_picture->width() != width || m_picture->height() != height;
    if (fresh) {
        m_picture = std::make_unique<QOpenGLFramebufferObject>(
            width, height, QOpenGLFramebufferObject::NoAttachment, GL_TEXTURE_2D, GL_RGBA8);
    }
    m_picture->bind();
    glViewport(0, 0, width, height);
    return fresh;
}

void CanvasFinish::finish(unsigned framebuffer, double radius, double square) {
    const int width = m_picture->width();
    const int height = m_picture->height();
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glViewport(0, 0, width, height);
    glDisable(GL_BLEND);
    m_program.bind();
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, m_picture->texture());
    m_program.setUniformValue("picture", 0);
    m_program.setUniformValue("size", QVector2D(float(width), float(height)));
    m_program.setUniformValue("radius", float(radius));
    m_program.setUniformValue("square", float(square));
    glBindVertexArray(m_vertexArray);
    glDrawArrays(GL_TRIANGLES, 0, 3);
    glBindVertexArray(0);
    glBindTexture(GL_TEXTURE_2D, 0);
    m_program.release();
}

} // namespace marlowick
