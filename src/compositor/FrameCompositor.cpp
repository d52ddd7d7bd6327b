#include "compositor/FrameCompositor.h"

#include "compositor/CaptionRenderer.h"
#include "compositor/CompositorShader.h"
#include "compositor/DrawPlan.h"

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

// The fragment program with the passes of `features` switched on: their defines go right after the
// version line, which must stay first.
std::string fragmentSource(unsigned features) {
    namespace F = CompositorFeature;
    const std::string source = compositorFragmentSource;
    const auto firstLineEnd = source.find('\n') + 1;
    std::string defines;
    for (const auto& [bit, name] :
         {std::pair{F::tilt, "MW_TILT"}, std::pair{F::under, "MW_UNDER"}, std::pair{F::shadow, "MW_SHADOW"},
          std::pair{F::device, "MW_DEVICE"}, std::pair{F::ripple, "MW_RIPPLE"},
          std::pair{F::cursor, "MW_CURSOR"}, std::pair{F::caption, "MW_CAPTION"},
          std::pair{F::interior, "MW_INTERIOR"}, std::pair{F::surface, "MW_SURFACE"}}) {
        if (features & bit) {
            defines += std::string("#define ") + name + "\n";
        }
    }
    return source.substr(0, firstLineEnd) + defines + source.substr(firstLineEnd);
}

// Both statuses are checked: a wrong version line passes Mesa's compile and fails only at link.
GLuint link(unsigned features) {
    const GLuint vertex = compile(GL_VERTEX_SHADER, compositorVertexSource, "vertex");
    GLuint fragment = 0;
    try {
        const std::string source = fragmentSource(features);
        fragment = compile(GL_FRAGMENT_SHADER, source.c_str(), "fragment");
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
    : m_captions(std::make_unique<CaptionRenderer>()) {
    // The whole program is compiled at once, so that a fault in it shows when the compositor starts.
    variant(CompositorFeature::all);

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

FrameCompositor::Variant& FrameCompositor::variant(unsigned features) {
    const auto found = m_variants.find(features);
    if (found != m_variants.end()) {
        return found->second;
    }
    Variant v{GlProgram(link(features))};
    const GLuint program = v.program.get();
    glUniformBlockBinding(program, glGetUniformBlockIndex(program, "FrameUniforms"), uniformBinding);
    glUseProgram(program);
    glUniform1i(glGetUniformLocation(program, "source"), 0);
    glUniform1i(glGetUniformLocation(program, "caption"), 1);
    v.topRowFirst = glGetUniformLocation(program, "topRowFirst");
    return m_variants.emplace(features, std::move(v)).first->second;
}

std::pair<FrameUniforms, const BgraTexture*>
FrameCompositor::prepare(int canvasWidth, int canvasHeight, const Project& project, double t,
                         const std::optional<CursorFrame>& cursor) {
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
    return {u, caption};
}

void FrameCompositor::render(const BgraTexture& source, int canvasWidth, int canvasHeight,
                             const Project& project, double t, const std::optional<CursorFrame>& cursor,
                             bool topRowFirst) {
    const auto [u, caption] = prepare(canvasWidth, canvasHeight, project, t, cursor);
    draw(source, u, *caption, canvasWidth, canvasHeight, topRowFirst, plan(u, canvasWidth, canvasHeight));
    m_lastSequenceFrame.reset(); // the framebuffer may not be the sequence's
}

namespace {

// The values of a frame less those of the camera, the cursor, the ripple and the caption: while they stay
// the same, so do the canvas, the shadow and everything else outside the recording.
FrameUniforms canvasLevel(FrameUniforms u) {
    u.cameraCenter = {};
    u.cameraScale = 1;
    u.cursorPosition = {};
    u.ripplePosition = {};
    u.cursorOpacity = 0;
    u.rippleProgress = -1;
    u.captionOrigin = {};
    u.captionSize = {};
    return u;
}

} // namespace

std::vector<DrawStep> FrameCompositor::plan(const FrameUniforms& u, int canvasWidth, int canvasHeight) const {
    return m_regionPlanning
               ? planDraws(u, canvasWidth, canvasHeight)
               : std::vector<DrawStep>{{{0, 0, canvasWidth, canvasHeight}, CompositorFeature::all}};
}

std::vector<PixelRect> FrameCompositor::renderSequence(const BgraTexture& source, int canvasWidth,
                                                       int canvasHeight, const Project& project, double t,
                                                       const std::optional<CursorFrame>& cursor,
                                                       bool topRowFirst, const PictureChange& change) {
    const auto [u, caption] = prepare(canvasWidth, canvasHeight, project, t, cursor);
    std::vector<DrawStep> steps = plan(u, canvasWidth, canvasHeight);
    std::vector<PixelRect> overlays;
    for (const DrawStep& step : steps) {
        if (step.overlay) {
            overlays.push_back(step.region);
        }
    }
    const bool sameCanvas = m_lastSequenceFrame && m_lastTopRowFirst == topRowFirst &&
                            canvasLevel(*m_lastSequenceFrame) == canvasLevel(u);
    std::vector<PixelRect> drawn;
    if (!sameCanvas) {
        drawn.push_back({0, 0, canvasWidth, canvasHeight});
    } else {
        // A caption's texture may be rebuilt with other words at the same place, so its frames always draw.
        if (change.none() && caption == &m_blank && *m_lastSequenceFrame == u) {
            return {};
        }
        auto onSurface = [](const DrawStep& step) {
            return (step.features & (CompositorFeature::surface | CompositorFeature::interior)) != 0;
        };
        const bool sameCamera = m_lastSequenceFrame->cameraCenter == u.cameraCenter &&
                                m_lastSequenceFrame->cameraScale == u.cameraScale && u.tiltEnabled < 0.5f;
        std::vector<DrawStep> parts;
        if (sameCamera && !change.whole) {
            // The recording sits where it sat: only what the source's changes reach is drawn again, then what
            // lies over it, now and in the last frame.
            std::vector<PixelRect> reach;
            for (const PixelRect& area : change.areas) {
                reach.push_back(
                    canvasReach(u, area, source.width(), source.height(), canvasWidth, canvasHeight));
            }
            for (const DrawStep& step : steps) {
                if (step.overlay) {
                    parts.push_back(step);
                } else if (onSurface(step)) {
                    for (const PixelRect& r : reach) {
                        const PixelRect part = PixelRect::intersection(step.region, r);
                        if (!part.empty()) {
                            parts.push_back({part, step.features});
                        }
                    }
                }
            }
        } else {
            // The framebuffer holds the same canvas: only the recording and what lies over it are drawn.
            std::erase_if(steps, [&](const DrawStep& step) { return !onSurface(step) && !step.overlay; });
            parts = std::move(steps);
        }
        // The places where the last frame's cursor, ripple or caption were, to take them away.
        for (const PixelRect& region : m_lastOverlays) {
            parts.push_back({region, CompositorFeature::all});
        }
        steps = std::move(parts);
        for (const DrawStep& step : steps) {
            drawn.push_back(step.region);
        }
    }
    if (!steps.empty()) {
        draw(source, u, *caption, canvasWidth, canvasHeight, topRowFirst, steps);
    }
    m_lastSequenceFrame = u;
    m_lastTopRowFirst = topRowFirst;
    m_lastOverlays = std::move(overlays);
    return drawn;
}

void FrameCompositor::draw(const BgraTexture& source, const FrameUniforms& u, const BgraTexture& caption,
                           int canvasWidth, int canvasHeight, bool topRowFirst,
                           const std::vector<DrawStep>& steps) {
    glViewport(0, 0, canvasWidth, canvasHeight);
    glDisable(GL_BLEND);
    glBindBuffer(GL_UNIFORM_BUFFER, m_uniforms.get());
    glBufferSubData(GL_UNIFORM_BUFFER, 0, sizeof u, &u);
    glBindBufferBase(GL_UNIFORM_BUFFER, uniformBinding, m_uniforms.get());
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, source.get());
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, caption.get());
    glBindVertexArray(m_vertexArray.get());

    glEnable(GL_SCISSOR_TEST);
    for (const DrawStep& step : steps) {
        const Variant& v = variant(step.features);
        glUseProgram(v.program.get());
        glUniform1f(v.topRowFirst, topRowFirst ? 1.0f : 0.0f);
        // Scissor boxes count rows from the framebuffer's first row.
        const PixelRect& r = step.region;
        glScissor(r.x, topRowFirst ? r.y : canvasHeight - r.y - r.height, r.width, r.height);
        glDrawArrays(GL_TRIANGLES, 0, 3);
    }
    glDisable(GL_SCISSOR_TEST);
    glBindVertexArray(0);
    glActiveTexture(GL_TEXTURE0);
}

std::vector<std::size_t> FrameCompositor::uniformBlockOffsets() const {
    std::vector<std::size_t> offsets;
    for (const UniformField& field : frameUniformFields()) {
        const std::string name(field.name);
        const char* names[] = {name.c_str()};
        GLuint index = GL_INVALID_INDEX;
        const GLuint program = m_variants.at(CompositorFeature::all).program.get();
        glGetUniformIndices(program, 1, names, &index);
        GLint offset = -1;
        if (index != GL_INVALID_INDEX) {
            glGetActiveUniformsiv(program, 1, &index, GL_UNIFORM_OFFSET, &offset);
        }
        offsets.push_back(static_cast<std::size_t>(offset));
    }
    return offsets;
}

} // namespace marlowick
