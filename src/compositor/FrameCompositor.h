#pragma once

#include "compositor/BgraTexture.h"
#include "compositor/CompositorError.h"
#include "compositor/DrawPlan.h"
#include "compositor/FrameLayout.h"
#include "compositor/GlName.h"
#include "model/PictureChange.h"

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

    // The same, for a sequence of frames drawn into one framebuffer that keeps its contents, with `source`
    // changed since the last call where `change` says. While the canvas stays as it was (everything but the
    // camera, the cursor, the ripple and the caption), only the recording and what lies over it are drawn
    // again, with the places the last frame's cursor, ripple and caption took; while the camera stays too,
    // only the places the source's changes reach. When nothing changed at all, nothing is drawn. The pixels
    // are those of `render`: a software renderer is spared the background, the shadow, and most of the
    // recording of a screen take that changes in a few places. Returns the areas of the canvas it drew, top
    // row first: all that differs from the last frame lies within them. A caption on a frame is always drawn.
    std::vector<PixelRect> renderSequence(const BgraTexture& source, int canvasWidth, int canvasHeight,
                                          const Project& project, double t,
                                          const std::optional<CursorFrame>& cursor, bool topRowFirst,
                                          const PictureChange& change);

    // Whether a frame is drawn region by region with variants of the program that leave out the passes a
    // region can't need (the default), or in one draw of the whole program. Both give the same pixels;
    // the second is there to prove it.
    void setRegionPlanning(bool enabled) { m_regionPlanning = enabled; }

    // The byte offset of each FrameUniforms field in the program's block, as the GL reports it, in the
    // order of `frameUniformFields()`.
    std::vector<std::size_t> uniformBlockOffsets() const;

private:
    // Draws with the values already worked out; `caption` is the caption's texture or the blank one.
    void draw(const BgraTexture& source, const FrameUniforms& u, const BgraTexture& caption, int canvasWidth,
              int canvasHeight, bool topRowFirst, const std::vector<DrawStep>& steps);
    // The steps of a frame: the region plan, or one draw of everything.
    std::vector<DrawStep> plan(const FrameUniforms& u, int canvasWidth, int canvasHeight) const;
    // The values of a frame, and its caption's texture (the blank one when there is none).
    std::pair<FrameUniforms, const BgraTexture*> prepare(int canvasWidth, int canvasHeight,
                                                         const Project& project, double t,
                                                         const std::optional<CursorFrame>& cursor);

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
    // What renderSequence drew last, to know when the framebuffer already holds the next frame.
    std::optional<FrameUniforms> m_lastSequenceFrame;
    bool m_lastTopRowFirst = true;
    std::vector<PixelRect> m_lastOverlays; // where that frame's cursor, ripple, caption and housing lie
};

} // namespace marlowick
