#pragma once

#include "model/Canvas.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace marlowick {

// Vector types laid out as the fragment program's std140 uniform block expects: a 2-vector takes 8 bytes
// aligned to 8, a 4-vector 16 aligned to 16, and a 3×3 matrix three 16-byte columns.
struct alignas(8) Float2 {
    float x = 0;
    float y = 0;
    friend bool operator==(const Float2&, const Float2&) = default;
};

struct alignas(16) Float4 {
    float x = 0;
    float y = 0;
    float z = 0;
    float w = 0;
    friend bool operator==(const Float4&, const Float4&) = default;
};

struct alignas(16) Float3x3 {
    std::array<Float4, 3> columns{}; // each column's x, y, z; w is padding

    static Float3x3 identity() { return {{Float4{1, 0, 0, 0}, Float4{0, 1, 0, 0}, Float4{0, 0, 1, 0}}}; }
    float at(int row, int column) const;
    float determinant() const;
    Float3x3 inverse() const;
    friend bool operator==(const Float3x3&, const Float3x3&) = default;
};

// A colour string ("#RRGGBB" or "RRGGBBAA", blanks around it ignored) as straight RGBA. Anything else is
// opaque black: a bad colour never fails.
Float4 colorFromHex(std::string_view text);

// Everything the fragment program needs for one frame, computed on the CPU in doubles and narrowed to
// floats only as each field is stored. The field order and padding match the program's uniform block.
struct FrameUniforms {
    Float4 backgroundTop;    // straight RGBA
    Float4 backgroundBottom; // straight RGBA
    Float4 shadowColor;      // straight RGBA
    Float2 canvasSize;       // pixels
    Float2 surfaceOrigin;    // pixels, top-left of the recorded surface
    Float2 surfaceSize;      // pixels
    Float2 cameraCenter;     // 0 to 1 in source space, where the view stays inside the source
    float cameraScale = 1;
    float cornerRadius = 0;    // pixels
    float shadowRadius = 0;    // pixels
    Float2 shadowOffset;       // pixels
    float gradientAngle = 0;   // radians
    float backgroundMode = 0;  // 0 solid, 1 linear gradient, 2 transparent
    Float2 cursorPosition;     // 0 to 1 in source space
    Float2 ripplePosition;     // 0 to 1 in source space
    float cursorSize = 0;      // pixels at camera scale 1
    float cursorOpacity = 0;   // 0 draws no cursor
    float rippleProgress = -1; // 0 to 1; negative draws no ripple
    Float2 bodyOrigin;         // device body, pixels
    Float2 bodySize;
    Float2 screenOrigin; // screen cut out of the body, pixels
    Float2 screenSize;
    Float4 bodyColor; // straight RGBA
    float bodyRadius = 0;
    float screenRadius = 0;
    float deviceMode = 0; // 0 none, 1 phone, 2 tablet, 3 laptop, 4 display
    float notchWidth = 0; // pixels; 0 is none
    Float2 captionOrigin; // pixels
    Float2 captionSize;   // pixels; zero is no caption this frame
    Float3x3 tiltInverse; // screen to tilted plane, relative to tiltCenter
    Float2 tiltCenter;    // pixels
    float tiltEnabled = 0;
    Float2 sourceCrop{1, 1}; // (1, 1) is the whole source; smaller crops in

    friend bool operator==(const FrameUniforms&, const FrameUniforms&) = default;
};

// The names of FrameUniforms' fields with their byte offsets, in order, to check against the program's
// block as the GL reports it.
struct UniformField {
    std::string_view name;
    std::size_t offset;
};
const std::array<UniformField, 33>& frameUniformFields();

// The perspective of a tilt: the matrix taking a plane point (X, Y, 1) to homogeneous screen coordinates,
// for a focal length in pixels and the tilt's angles in degrees.
namespace TiltTransform {
Float3x3 forward(const Tilt& tilt, double focal);
} // namespace TiltTransform

} // namespace marlowick
