#pragma once

namespace marlowick {

// The compositor's GLSL program, held as text and compiled when a compositor starts: the vertex stage
// draws one triangle over the whole canvas with no vertex buffer, the fragment stage composites every
// pass of a frame in one go, premultiplied inside and straight on output.
extern const char* const compositorVertexSource;
extern const char* const compositorFragmentSource;

} // namespace marlowick
