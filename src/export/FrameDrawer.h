#pragma once

#include "compositor/BgraTexture.h"
#include "compositor/EglContext.h"
#include "compositor/FrameCompositor.h"
#include "compositor/PixelTransfer.h"
#include "compositor/RenderTarget.h"
#include "export/OutputTimeline.h"
#include "media/BgraImage.h"
#include "model/PictureChange.h"

#include <vector>

namespace marlowick {

// Draws finished frames of one project at one size, headless: a picture of the recording on the project's
// canvas at an output time, with the camera, the cursor and the caption of that time. The export's
// compositing stage and a single still frame both draw through it.
//
// It makes a GL context of its own current on the thread that constructs it: use and destroy it on that
// thread. `timeline` must outlive it. Throws CompositorError when no context or program can be had.
class FrameDrawer {
public:
    FrameDrawer(const OutputTimeline& timeline, int width, int height);
    FrameDrawer(const FrameDrawer&) = delete;
    FrameDrawer& operator=(const FrameDrawer&) = delete;

    int width() const { return m_canvas.width(); }
    int height() const { return m_canvas.height(); }

    // Puts the recording's picture in place where `change` says: all of it when whole, else only its
    // areas, over a picture of the same size set before.
    void setPicture(const BgraImage& image, const PictureChange& change);

    // Draws the whole frame at output time `t` into the canvas.
    void draw(double t);
    // Draws the frame at output time `t` as the next of a sequence, only where it can differ from the last
    // frame drawn, with the picture changed since then where `change` says. Returns the areas of the canvas
    // drawn, top row first: all that differs from the last frame lies within them.
    std::vector<PixelRect> drawNext(double t, const PictureChange& change);

    // Reads the canvas back; see PixelTransfer::readAreas and PixelTransfer::flush.
    PixelTransfer& transfer() { return m_transfer; }
    // The whole canvas as it stands, as BGRA, top row first.
    BgraImage picture() const;

private:
    const OutputTimeline& m_timeline;
    EglContext m_context; // first: every member below needs it current, and goes before it
    FrameCompositor m_compositor;
    BgraTexture m_source;
    RenderTarget m_canvas;
    PixelTransfer m_transfer;
};

} // namespace marlowick
