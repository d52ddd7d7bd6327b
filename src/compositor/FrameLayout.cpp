#include "compositor/FrameLayout.h"

#include "compositor/CameraSolver.h"
#include "model/Hex.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>

namespace marlowick {

namespace {

constexpr double degrees = std::numbers::pi / 180;

float narrow(double value) {
    return static_cast<float>(value);
}
Float2 narrow(double x, double y) {
    return {static_cast<float>(x), static_cast<float>(y)};
}

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    double aspect() const { return height == 0 ? 0 : width / height; }
};

struct BackgroundComponents {
    Float4 top;
    Float4 bottom;
    float mode = 0;
    double angle = 0; // degrees
};

// Mesh gradients, pictures and the blurred source have no drawing of their own yet: the first two stops
// make a gradient, and the others draw as the dark fallback.
BackgroundComponents backgroundComponents(const Background& background) {
    static const Float4 fallback = colorFromHex("#101014");
    struct Visitor {
        BackgroundComponents operator()(const Background::Transparent&) const { return {{}, {}, 2, 0}; }
        BackgroundComponents operator()(const Background::Solid& s) const {
            const Float4 c = colorFromHex(s.hex);
            return {c, c, 0, 0};
        }
        BackgroundComponents operator()(const Background::LinearGradient& g) const {
            return {colorFromHex(g.from), colorFromHex(g.to), 1, g.angle};
        }
        BackgroundComponents operator()(const Background::MeshGradient& m) const {
            const Float4 first = m.stops.empty() ? fallback : colorFromHex(m.stops[0]);
            const Float4 second = m.stops.size() < 2 ? first : colorFromHex(m.stops[1]);
            return {first, second, 1, 45};
        }
        BackgroundComponents operator()(const Background::Image&) const { return {fallback, fallback, 0, 0}; }
        BackgroundComponents operator()(const Background::BlurredSource&) const {
            return {fallback, fallback, 0, 0};
        }
    };
    return std::visit(Visitor{}, background.value);
}

float deviceModeOf(DeviceFrame::Kind kind) {
    switch (kind) {
    case DeviceFrame::Kind::phone:
        return 1;
    case DeviceFrame::Kind::tablet:
        return 2;
    case DeviceFrame::Kind::laptop:
        return 3;
    case DeviceFrame::Kind::display:
        return 4;
    }
    return 0;
}

// The camera's centre on one axis, kept so that its view stays inside the recording. The program samples
// the source at (local - 0.5) × crop / scale + centre for `local` from 0 to 1 across the surface, so the
// view reaches half × crop / scale either side of the centre; a view as wide as the recording or wider
// rests in the middle.
double keptInside(double centre, double crop, double scale) {
    const double half = 0.5 * crop / std::max(scale, 0.0001);
    return half >= 0.5 ? 0.5 : std::clamp(centre, half, 1 - half);
}

} // namespace

float Float3x3::at(int row, int column) const {
    const Float4& c = columns[static_cast<std::size_t>(column)];
    return row == 0 ? c.x : (row == 1 ? c.y : c.z);
}

float Float3x3::determinant() const {
    return at(0, 0) * (at(1, 1) * at(2, 2) - at(1, 2) * at(2, 1)) -
           at(0, 1) * (at(1, 0) * at(2, 2) - at(1, 2) * at(2, 0)) +
           at(0, 2) * (at(1, 0) * at(2, 1) - at(1, 1) * at(2, 0));
}

Float3x3 Float3x3::inverse() const {
    const float d = determinant();
    auto cofactor = [&](int r, int c) {
        const int r0 = (r + 1) % 3;
        const int r1 = (r + 2) % 3;
        const int c0 = (c + 1) % 3;
        const int c1 = (c + 2) % 3;
        return at(r0, c0) * at(r1, c1) - at(r0, c1) * at(r1, c0);
    };
    // The inverse is the adjugate (the transposed cofactors) over the determinant.
    Float3x3 inv;
    for (int r = 0; r < 3; ++r) {
        Float4& column = inv.columns[static_cast<std::size_t>(r)];
        column.x = cofactor(r, 0) / d;
        column.y = cofactor(r, 1) / d;
        column.z = cofactor(r, 2) / d;
    }
    return inv;
}

Float4 colorFromHex(std::string_view text) {
    const Float4 black{0, 0, 0, 1};
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    if (text.starts_with('#')) {
        text.remove_prefix(1);
    }
    if (text.size() != 6 && text.size() != 8) {
        return black;
    }
    std::uint32_t value = 0;
    for (const char c : text) {
        const int digit = hexDigitValue(c);
        if (digit < 0) {
            return black;
        }
        value = value * 16 + static_cast<std::uint32_t>(digit);
    }
    auto byte = [&](int index) { return static_cast<float>((value >> (8 * index)) & 0xFF) / 255.0f; };
    if (text.size() == 6) {
        return {byte(2), byte(1), byte(0), 1};
    }
    return {byte(3), byte(2), byte(1), byte(0)};
}

Float3x3 TiltTransform::forward(const Tilt& tilt, double focal) {
    const double sx = std::sin(tilt.x * degrees);
    const double cx = std::cos(tilt.x * degrees);
    const double sy = std::sin(tilt.y * degrees);
    const double cy = std::cos(tilt.y * degrees);
    return {{Float4{narrow(focal * cy), narrow(focal * sx * sy), narrow(cx * sy), 0},
             Float4{0, narrow(focal * cx), narrow(-sx), 0}, Float4{0, 0, narrow(focal), 0}}};
}

FrameUniforms frameUniforms(const Project& project, double t, Size canvas,
                            const std::optional<CursorFrame>& cursor) {
    const double W = canvas.width;
    const double H = canvas.height;
    const Canvas& style = project.canvas;
    FrameUniforms u;

    const CameraSolver::Transform camera = CameraSolver{project.camera}.transformAt(t);

    // The tilted plane must stay inside the canvas, so a tilt shrinks the slot.
    const double fit = 1 / (1 + 0.55 * (std::abs(std::sin(style.tilt.x * degrees)) +
                                        std::abs(std::sin(style.tilt.y * degrees))));
    const double k = (1 - 2 * style.inset) * fit;
    const Rect slot{(W - W * k) / 2, (H - H * k) / 2, W * k, H * k};
    const double sourceAspect = project.source.size.aspect();

    Rect region = slot;
    Rect body;
    if (const auto& device = style.deviceFrame) {
        const DeviceFrame::Bezel& bezel = device->bezel;
        const double a =
            1 / (bezel.top + bezel.bottom + (1 - 2 * bezel.side) / std::max(device->screenAspect, 0.0001));
        double bodyWidth = 0;
        double bodyHeight = 0;
        if (a < slot.aspect()) {
            bodyHeight = slot.height;
            bodyWidth = slot.height * a;
        } else {
            bodyWidth = slot.width;
            bodyHeight = slot.width / std::max(a, 0.0001);
        }
        double base = 0;
        if (hasBase(device->kind)) {
            // Room for the stand or the keyboard below the body.
            bodyWidth /= 1.1;
            bodyHeight /= 1.1;
            base = 0.1 * bodyHeight;
        }
        body = {(W - bodyWidth) / 2, (H - bodyHeight - base) / 2, bodyWidth, bodyHeight};
        region = {body.x + bezel.side * bodyWidth, body.y + bezel.top * bodyWidth,
                  (1 - 2 * bezel.side) * bodyWidth, bodyHeight - (bezel.top + bezel.bottom) * bodyWidth};
    }

    Rect surface = region;
    double cropX = 1; // the fraction of the source the surface shows on each axis at camera scale 1
    double cropY = 1;
    if (style.contentMode == ContentMode::fit) {
        if (sourceAspect < region.aspect()) {
            surface.height = region.height;
            surface.width = sourceAspect * region.height;
        } else {
            surface.width = region.width;
            surface.height = region.width / std::max(sourceAspect, 0.0001);
        }
        surface.x = region.x + (region.width - surface.width) / 2;
        surface.y = region.y + (region.height - surface.height) / 2;
    } else {
        const double r = region.aspect();
        if (r < sourceAspect) {
            cropX = r / std::max(sourceAspect, 0.0001);
        } else {
            cropY = std::max(sourceAspect, 0.0001) / std::max(r, 0.0001);
        }
    }
    u.sourceCrop = narrow(cropX, cropY);
    if (!style.deviceFrame) {
        body = surface;
    }

    u.canvasSize = narrow(W, H);
    u.surfaceOrigin = narrow(surface.x, surface.y);
    u.surfaceSize = narrow(surface.width, surface.height);
    Point center = camera.center;
    if (style.contentMode == ContentMode::fill) {
        // The window rests on the anchor and travels to the beat's centre while the zoom climbs to 1.35.
        const double w = std::clamp((camera.scale - 1) / 0.35, 0.0, 1.0);
        center = {style.contentAnchor.x + (camera.center.x - style.contentAnchor.x) * w,
                  style.contentAnchor.y + (camera.center.y - style.contentAnchor.y) * w};
    }
    // The solver may aim past the recording's edge (a beat on a click in a corner does); the picture never
    // shows what lies beyond it, where sampling would repeat the edge's pixels. This is the one place the
    // centre is kept inside: the sampling, the cursor, the ripple and the reach of a change all read it.
    u.cameraCenter =
        narrow(keptInside(center.x, cropX, camera.scale), keptInside(center.y, cropY, camera.scale));
    u.cameraScale = narrow(camera.scale);

    const BackgroundComponents background = backgroundComponents(style.background);
    u.backgroundTop = background.top;
    u.backgroundBottom = background.bottom;
    u.backgroundMode = background.mode;
    u.gradientAngle = narrow(background.angle * degrees);

    if (cursor) {
        u.cursorPosition = narrow(cursor->position.x, cursor->position.y);
        u.ripplePosition = narrow(cursor->ripplePosition.x, cursor->ripplePosition.y);
        u.cursorOpacity = narrow(cursor->opacity);
        u.rippleProgress = narrow(cursor->rippleProgress);
    }
    u.cursorSize = narrow(std::min(W, H) * 0.035 * (cursor ? cursor->scale : 1.0));

    u.cornerRadius = narrow(style.cornerRadius);
    u.shadowRadius = narrow(style.shadow.radius);
    u.shadowOffset = narrow(style.shadow.offset.x, style.shadow.offset.y);
    u.shadowColor = {0, 0, 0, narrow(style.shadow.opacity)};

    if (const auto& device = style.deviceFrame) {
        u.bodyColor = colorFromHex(device->bodyColor);
        u.bodyRadius = narrow(device->bodyRadius * body.width);
        u.screenRadius = narrow(device->screenRadius * body.width);
        u.notchWidth = device->hasNotch ? narrow(0.14 * body.width) : 0;
        u.deviceMode = deviceModeOf(device->kind);
        u.screenOrigin = narrow(region.x, region.y);
        u.screenSize = narrow(region.width, region.height);
    } else {
        u.bodyColor = colorFromHex("#000000");
        u.bodyRadius = u.cornerRadius;
        u.screenOrigin = narrow(slot.x, slot.y);
        u.screenSize = narrow(slot.width, slot.height);
    }
    u.bodyOrigin = narrow(body.x, body.y);
    u.bodySize = narrow(body.width, body.height);

    const Float3x3 m = TiltTransform::forward(style.tilt, std::max(W, H) * 2.2);
    u.tiltInverse = std::abs(m.determinant()) > 1e-9f ? m.inverse() : Float3x3::identity();
    u.tiltCenter = narrow(body.x + body.width / 2, body.y + body.height / 2);
    u.tiltEnabled = style.tilt.x != 0 || style.tilt.y != 0 ? 1 : 0;
    return u;
}

#define MARLOWICK_FIELD(name)                                                                                \
    UniformField {                                                                                           \
#name, offsetof(FrameUniforms, name)                                                                 \
    }

const std::array<UniformField, 33>& frameUniformFields() {
    static const std::array<UniformField, 33> fields{
        MARLOWICK_FIELD(backgroundTop),  MARLOWICK_FIELD(backgroundBottom), MARLOWICK_FIELD(shadowColor),
        MARLOWICK_FIELD(canvasSize),     MARLOWICK_FIELD(surfaceOrigin),    MARLOWICK_FIELD(surfaceSize),
        MARLOWICK_FIELD(cameraCenter),   MARLOWICK_FIELD(cameraScale),      MARLOWICK_FIELD(cornerRadius),
        MARLOWICK_FIELD(shadowRadius),   MARLOWICK_FIELD(shadowOffset),     MARLOWICK_FIELD(gradientAngle),
        MARLOWICK_FIELD(backgroundMode), MARLOWICK_FIELD(cursorPosition),   MARLOWICK_FIELD(ripplePosition),
        MARLOWICK_FIELD(cursorSize),     MARLOWICK_FIELD(cursorOpacity),    MARLOWICK_FIELD(rippleProgress),
        MARLOWICK_FIELD(bodyOrigin),     MARLOWICK_FIELD(bodySize),         MARLOWICK_FIELD(screenOrigin),
        MARLOWICK_FIELD(screenSize),     MARLOWICK_FIELD(bodyColor),        MARLOWICK_FIELD(bodyRadius),
        MARLOWICK_FIELD(screenRadius),   MARLOWICK_FIELD(deviceMode),       MARLOWICK_FIELD(notchWidth),
        MARLOWICK_FIELD(captionOrigin),  MARLOWICK_FIELD(captionSize),      MARLOWICK_FIELD(tiltInverse),
        MARLOWICK_FIELD(tiltCenter),     MARLOWICK_FIELD(tiltEnabled),      MARLOWICK_FIELD(sourceCrop),
    };
    return fields;
}

#undef MARLOWICK_FIELD

} // namespace marlowick
