#include "ui/CanvasFinish.h"

#include <QVector2D>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <utility>

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

// Black over what lies outside the rounded rectangle, as much as the pixel lies outside it: blended over
// an opaque frame, this is what the whole finish gives it, without reading the frame from a picture.
const char* const cornerStage = R"(#version 330 core
uniform vec2 size;
uniform float radius;
out vec4 colour;
void main() {
    vec2 p = gl_FragCoord.xy;
    vec2 middle = size * 0.5;
    vec2 q = abs(p - middle) - (middle - vec2(radius));
    float outside = length(max(q, 0.0)) + min(max(q.x, q.y), 0.0) - radius;
    colour = vec4(0.0, 0.0, 0.0, 1.0 - clamp(0.5 - outside, 0.0, 1.0));
}
)";

} // namespace

CanvasFinish::CanvasFinish() {
    if (!m_program.addShaderFromSourceCode(QOpenGLShader::Vertex, vertexStage) ||
        !m_program.addShaderFromSourceCode(QOpenGLShader::Fragment, fragmentStage) || !m_program.link()) {
        throw std::runtime_error(m_program.log().toStdString());
    }
    if (!m_corners.addShaderFromSourceCode(QOpenGLShader::Vertex, vertexStage) ||
        !m_corners.addShaderFromSourceCode(QOpenGLShader::Fragment, cornerStage) || !m_corners.link()) {
        throw std::runtime_error(m_corners.log().toStdString());
    }
    glGenVertexArrays(1, &m_vertexArray);
}

namespace {

// The side of the square at each corner that the rounding reaches.
int cornerSide(int width, int height, double radius) {
    return std::min(static_cast<int>(std::ceil(radius)) + 1, std::min(width, height) / 2);
}

// The corners' squares in a framebuffer of `width` × `height`, and where each lies in the store of all four.
struct CornerPlace {
    int x, y, storeX, storeY;
};
std::array<CornerPlace, 4> cornerPlaces(int width, int height, int side) {
    return {CornerPlace{0, 0, 0, 0}, CornerPlace{width - side, 0, side, 0},
            CornerPlace{0, height - side, 0, side}, CornerPlace{width - side, height - side, side, side}};
}

} // namespace

void CanvasFinish::keepCorners(unsigned framebuffer, int width, int height, double radius) {
    const int side = cornerSide(width, height, radius);
    if (side <= 0) {
        return;
    }
    if (!m_cornerStore || m_cornerStore->width() != 2 * side) {
        m_cornerStore = std::make_unique<QOpenGLFramebufferObject>(
            2 * side, 2 * side, QOpenGLFramebufferObject::NoAttachment, GL_TEXTURE_2D, GL_RGBA8);
    }
    glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, m_cornerStore->handle());
    for (const CornerPlace& c : cornerPlaces(width, height, side)) {
        glBlitFramebuffer(c.x, c.y, c.x + side, c.y + side, c.storeX, c.storeY, c.storeX + side,
                          c.storeY + side, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    }
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
}

void CanvasFinish::restoreCorners(unsigned framebuffer, int width, int height, double radius) {
    const int side = cornerSide(width, height, radius);
    if (side <= 0 || !m_cornerStore || m_cornerStore->width() != 2 * side) {
        return;
    }
    glBindFramebuffer(GL_READ_FRAMEBUFFER, m_cornerStore->handle());
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer);
    for (const CornerPlace& c : cornerPlaces(width, height, side)) {
        glBlitFramebuffer(c.storeX, c.storeY, c.storeX + side, c.storeY + side, c.x, c.y, c.x + side,
                          c.y + side, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    }
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
}

void CanvasFinish::maskCorners(int width, int height, double radius) {
    const int side = cornerSide(width, height, radius);
    if (side <= 0) {
        return;
    }
    glViewport(0, 0, width, height);
    glEnable(GL_BLEND);
    // The frame's colour fades to black; its alpha stays.
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ZERO, GL_ONE);
    m_corners.bind();
    m_corners.setUniformValue("size", QVector2D(float(width), float(height)));
    m_corners.setUniformValue("radius", float(radius));
    glBindVertexArray(m_vertexArray);
    glEnable(GL_SCISSOR_TEST);
    for (const CornerPlace& c : cornerPlaces(width, height, side)) {
        glScissor(c.x, c.y, side, side);
        glDrawArrays(GL_TRIANGLES, 0, 3);
    }
    glDisable(GL_SCISSOR_TEST);
    glBindVertexArray(0);
    m_corners.release();
    glDisable(GL_BLEND);
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
