#pragma once

// The GL core declarations come before Qt's own GL header, which would otherwise hide them.
#include "compositor/GlName.h"

#include <QOpenGLFramebufferObject>
#include <QOpenGLShaderProgram>

#include <memory>

namespace marlowick {

// The last step of the canvas on screen: the compositor draws the frame into this object's picture, and
// `finish` puts that picture into the widget's framebuffer clipped to a rounded rectangle, with black
// outside the corners and, where the picture is transparent, a checkerboard behind it (black without
// one). Inside the clip an opaque picture lands pixel for pixel as the compositor drew it.
//
// Thread: the thread of the GL context it was made in, with that context current for every call and for
// its destruction.
class CanvasFinish {
public:
    // Compiles the program; throws std::runtime_error with the GL's log when it can't.
    CanvasFinish();
    ~CanvasFinish();

    // Binds a picture of `width` × `height` pixels to draw the frame into. It keeps what was drawn into it
    // from one frame to the next while its size stays; true when it is new, its contents undefined.
    bool bindPicture(int width, int height);
    // Draws the picture into `framebuffer`, which has the picture's size. `radius` and `square` (the side
    // of a checkerboard tile, or 0 for black behind the picture) are in pixels.
    void finish(unsigned framebuffer, double radius, double square);
    // The same finish for an opaque frame drawn straight into the bound framebuffer of `width` × `height`:
    // only its four corners are darkened, the rest is left as it is. A frame drawn over the last one only
    // where it differs needs the last one's corners as they were drawn: `keepCorners` copies them aside
    // before they are darkened, and `restoreCorners` puts them back before the next frame is drawn. Both
    // leave `framebuffer` bound.
    void keepCorners(unsigned framebuffer, int width, int height, double radius);
    void restoreCorners(unsigned framebuffer, int width, int height, double radius);
    void maskCorners(int width, int height, double radius);

private:
    QOpenGLShaderProgram m_program;
    QOpenGLShaderProgram m_corners;
    std::unique_ptr<QOpenGLFramebufferObject> m_picture;
    std::unique_ptr<QOpenGLFramebufferObject> m_cornerStore; // the four corners, undarkened, side by side
    unsigned m_vertexArray = 0;
};

} // namespace marlowick
