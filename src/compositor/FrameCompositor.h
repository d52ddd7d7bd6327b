#pragma once

#include "compositor/FrameLayout.h"
#include "compositor/Gl.h"

#include <optional>
#include <string>

namespace marlowick {

class CaptionRenderer;

// Turns one source image, a project, a time and a cursor into one finished frame, in a single draw of
// the compositor program. It draws into whatever framebuffer is bound in the current GL context and owns
// no context itself, so that headless export and the preview run the very same code.
//
// Construct, use and destroy it with its GL context current, on one thread at a time.
class FrameCompositor {
public:
    // Compiles and links the program; throws CompositorError (shaderCompilationFailed) with the GL's log.
    FrameCompositor();
    ~FrameCompositor();
    FrameCompositor(const FrameCompositor&) = delete;
    FrameCompositor& operator=(const FrameCompositor&) = delete;

    // Draws the frame into the bound framebuffer, over a viewport of `canvasWidth` × `canvasHeight`.
    // `t` is on the clock of `project`: callers pass a project moved onto output time and an output time.
    // With `topRowFirst` the framebuffer's first row holds the canvas's top row, as an offscreen frame
    // that is read back wants; a window wants it false. The output is straight RGBA, blending off.
    void render(const BgraTexture& source, int canvasWidth, int canvasHeight, const Project& project,
                double t, const std::optional<CursorFrame>& cursor, bool topRowFirst);

    // Forgets the cached captions, after a cue's words were edited.
    void invalidateCaptions();

    // The byte offset of each FrameUniforms field in the program's block, as the GL reports it, in the
    // order of `frameUniformFields()`.
    std::vector<std::size_t> uniformBlockOffsets() const;

private:
    GlProgram m_program;
    GlVertexArray m_vertexArray; // a core profile draws only with one bound, even without attributes
    GlBuffer m_uniforms;
    GLint m_topRowFirst = -1;
    BgraTexture m_blank; // bound in place of a caption when there is none
    std::unique_ptr<CaptionRenderer> m_captions;
};

} // namespace marlowick
