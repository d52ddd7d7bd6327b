#pragma once

#include "compositor/FrameLayout.h"
#include "compositor/Gl.h"

#include <optional>
#include <string>
#include <unordered_map>

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

    // Whether a frame is drawn region by region with variants of the program that leave out the passes a
    // region can't need (the default), or in one draw of the whole program. Both give the same pixels;
    // the second is there to prove it.
    void setRegionPlanning(bool enabled) { m_regionPlanning = enabled; }

    // The byte offset of each FrameUniforms field in the program's block, as the GL reports it, in the
    // order of `frameUniformFields()`.
    std::vector<std::size_t> uniformBlockOffsets() const;

private:
    struct Variant {
        GlProgram program;
        GLint topRowFirst = -1;
    };
    // The variant for a set of CompositorFeature bits, compiled on first use.
    Variant& variant(unsigned features);

    std::unordered_map<unsigned, Variant> m_variants;
    bool m_regionPlanning = true;
    GlVertexArray m_vertexArray; // a core profile draws only with one bound, even without attributes
    GlBuffer m_uniforms;
    BgraTexture m_blank; // bound in place of a caption when there is none
    std::unique_ptr<CaptionRenderer> m_captions;
};

} // namespace marlowick
