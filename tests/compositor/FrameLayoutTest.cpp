// The layout of a frame: where the recording sits in the canvas, what a device or a tilt takes of the
// room, what part of the source shows, and the colours as the program receives them.

#include "compositor/FrameLayout.h"

#include <cmath>

#include <gtest/gtest.h>

using namespace marlowick;

namespace {

Project project(Size source, Canvas canvas = {}) {
    Project p;
    p.source.size = source;
    p.source.duration = 10;
    p.canvas = canvas;
    return p;
}

Canvas plain(double inset = 0, ContentMode mode = ContentMode::fit) {
    Canvas c;
    c.inset = inset;
    c.contentMode = mode;
    return c;
}

// The layout at rest of a recording of `source` on a canvas of `size`.
FrameUniforms layout(const Canvas& canvas, Size size = {1920, 1080}, Size source = {1920, 1080},
                     const std::optional<CursorFrame>& cursor = std::nullopt) {
    return frameUniforms(project(source, canvas), 0, size, cursor);
}

void expectNear(Float2 actual, double x, double y, double tolerance = 1e-3) {
    EXPECT_NEAR(actual.x, x, tolerance);
    EXPECT_NEAR(actual.y, y, tolerance);
}

} // namespace

TEST(FrameLayout, FitPlacesTheWholeRecordingInTheSlot) {
    const FrameUniforms full = layout(plain());
    expectNear(full.surfaceOrigin, 0, 0);
    expectNear(full.surfaceSize, 1920, 1080);
    expectNear(full.sourceCrop, 1, 1);
    expectNear(full.canvasSize, 1920, 1080);

    // A 4:3 recording in a 16:9 canvas with 10% inset: as high as the slot, centred.
    const FrameUniforms boxed = layout(plain(0.1), {1920, 1080}, {1440, 1080});
    expectNear(boxed.surfaceSize, 864 * 4.0 / 3, 864);
    expectNear(boxed.surfaceOrigin, (1920 - 1152) / 2.0, 108);
    // Without a device the body is the surface, the screen the slot, and the shadow follows the corners.
    EXPECT_EQ(boxed.deviceMode, 0);
    EXPECT_EQ(boxed.bodyOrigin, boxed.surfaceOrigin);
    EXPECT_EQ(boxed.bodySize, boxed.surfaceSize);
    EXPECT_EQ(boxed.bodyRadius, boxed.cornerRadius);
    expectNear(boxed.screenOrigin, 192, 108);
    expectNear(boxed.screenSize, 1536, 864);

    // Insets of a half and more leave no room, and nothing breaks.
    EXPECT_NO_THROW(layout(plain(0.5)));
    const FrameUniforms negative = layout(plain(0.6));
    EXPECT_LT(negative.surfaceSize.x, 0);
}

TEST(FrameLayout, FillCropsTheSourceToTheSlotsShape) {
    const FrameUniforms square = layout(plain(0, ContentMode::fill), {1080, 1080});
    expectNear(square.sourceCrop, 0.5625, 1, 1e-6);
    expectNear(square.surfaceSize, 1080, 1080);
    const FrameUniforms wide = layout(plain(0, ContentMode::fill), {1920, 1080}, {1080, 1080});
    expectNear(wide.sourceCrop, 1, 0.5625, 1e-6);
}

TEST(FrameLayout, InFillTheWindowTravelsFromTheAnchorToTheBeat) {
    // A wide recording on a square canvas: the crop keeps 0.5625 of its width and all of its height.
    Canvas c = plain(0, ContentMode::fill);
    c.contentAnchor = {0.3, 0.4};
    Project p = project({1920, 1080}, c);
    p.camera.beats = {ZoomBeat(Uuid::random(), 1, 3, {0.55, 0.55}, 2, 0, 0, Easing::linear, false),
                      ZoomBeat(Uuid::random(), 5, 7, {0.55, 0.55}, 1.175, 0, 0, Easing::linear, false),
                      ZoomBeat(Uuid::random(), 8, 9, {0.55, 0.55}, 1.35, 0, 0, Easing::linear, false)};
    // At rest the anchor moves the window only across: the whole height shows.
    expectNear(frameUniforms(p, 0, {1080, 1080}, std::nullopt).cameraCenter, 0.3, 0.5, 1e-6);
    const FrameUniforms zoomed = frameUniforms(p, 2, {1080, 1080}, std::nullopt);
    expectNear(zoomed.cameraCenter, 0.55, 0.55, 1e-6);
    EXPECT_EQ(zoomed.cameraScale, 2);
    expectNear(frameUniforms(p, 6, {1080, 1080}, std::nullopt).cameraCenter, 0.425, 0.475, 1e-6);
    expectNear(frameUniforms(p, 8.5, {1080, 1080}, std::nullopt).cameraCenter, 0.55, 0.55, 1e-6);

    // In fit the camera looks where the beat says from the first instant.
    p.canvas.contentMode = ContentMode::fit;
    expectNear(frameUniforms(p, 6, {1080, 1080}, std::nullopt).cameraCenter, 0.55, 0.55, 1e-6);
}

TEST(FrameLayout, ATiltShrinksTheSlotAndInvertsItsPerspective) {
    Canvas c = plain();
    c.tilt = {30, 0};
    const FrameUniforms u = layout(c);
    expectNear(u.surfaceSize, 1920 / 1.275, 1080 / 1.275);
    EXPECT_EQ(u.tiltEnabled, 1);
    expectNear(u.tiltCenter, 960, 540);

    // The inverse undoes the forward mapping.
    const Float3x3 m = TiltTransform::forward(c.tilt, 1920 * 2.2);
    for (int r = 0; r < 3; ++r) {
        for (int col = 0; col < 3; ++col) {
            float sum = 0;
            for (int i = 0; i < 3; ++i) {
                sum += u.tiltInverse.at(r, i) * m.at(i, col);
            }
            EXPECT_NEAR(sum, r == col ? 1 : 0, 1e-5) << r << "," << col;
        }
    }
    EXPECT_EQ(layout(plain()).tiltEnabled, 0);
}

TEST(FrameLayout, DevicesFitTheSlotAndTheirScreensKeepTheirShape) {
    for (const DeviceFrame& device : DeviceFrame::all()) {
        for (const Size canvas : {Size{1920, 1080}, Size{1080, 1920}, Size{1080, 1080}}) {
            Canvas c = plain(0.05);
            c.deviceFrame = device;
            const FrameUniforms u = layout(c, canvas);
            const double slotW = canvas.width * 0.9;
            const double slotH = canvas.height * 0.9;
            const double base = hasBase(device.kind) ? 0.1 * u.bodySize.y : 0;
            SCOPED_TRACE(device.id + " in " + std::to_string(canvas.width) + "x" +
                         std::to_string(canvas.height));
            // The body and its base fill the slot on one axis and stay inside it on the other.
            EXPECT_LE(u.bodySize.x, slotW + 0.01);
            EXPECT_LE(u.bodySize.y, slotH + 0.01);
            const double fill = std::max(u.bodySize.x / slotW, u.bodySize.y / slotH);
            EXPECT_NEAR(fill, hasBase(device.kind) ? 1 / 1.1 : 1, 1e-4);
            EXPECT_NEAR(u.bodyOrigin.x + u.bodySize.x / 2, canvas.width / 2, 1e-3);
            EXPECT_NEAR(u.bodyOrigin.y + (u.bodySize.y + base) / 2, canvas.height / 2, 1e-2);
            // The screen sits inside the body with the device's own aspect.
            EXPECT_NEAR(u.screenSize.x / u.screenSize.y, device.screenAspect, 1e-4);
            EXPECT_GT(u.screenOrigin.x, u.bodyOrigin.x);
            EXPECT_GT(u.screenOrigin.y, u.bodyOrigin.y);
            EXPECT_LT(u.screenOrigin.y + u.screenSize.y, u.bodyOrigin.y + u.bodySize.y);
            EXPECT_NEAR(u.notchWidth, device.hasNotch ? 0.14 * u.bodySize.x : 0, 1e-3);
            EXPECT_NEAR(u.bodyRadius, device.bodyRadius * u.bodySize.x, 1e-3);
            // The recording fits inside the screen.
            EXPECT_LE(u.surfaceSize.x, u.screenSize.x + 0.01);
            EXPECT_LE(u.surfaceSize.y, u.screenSize.y + 0.01);
            expectNear(u.tiltCenter, u.bodyOrigin.x + u.bodySize.x / 2, u.bodyOrigin.y + u.bodySize.y / 2);
        }
    }
}

TEST(FrameLayout, TheCursorIsSizedByTheCanvasAndItsScale) {
    const FrameUniforms none = layout(plain());
    EXPECT_EQ(none.cursorOpacity, 0);
    EXPECT_EQ(none.rippleProgress, -1);
    EXPECT_NEAR(none.cursorSize, 1080 * 0.035, 1e-4);
    const FrameUniforms scaled =
        layout(plain(), {1920, 1080}, {1920, 1080}, CursorFrame{{0.4, 0.6}, 0.8, 2, 0.25, {}});
    EXPECT_FLOAT_EQ(scaled.cursorOpacity, 0.8f);
    EXPECT_NEAR(scaled.cursorSize, 1080 * 0.035 * 2, 1e-3);
}

TEST(FrameLayout, BackgroundsAndColours) {
    auto background = [](Background b) {
        Canvas c = plain();
        c.background = std::move(b);
        return layout(c, {640, 360});
    };
    const FrameUniforms gradient = background(Background::linearGradient("#FF0000", "#0000FF", 90));
    EXPECT_EQ(gradient.backgroundMode, 1);
    EXPECT_NEAR(gradient.gradientAngle, M_PI / 2, 1e-6);
    EXPECT_EQ(gradient.backgroundBottom, (Float4{0, 0, 1, 1}));
    const FrameUniforms mesh = background({Background::MeshGradient{{"#FFFFFF"}}});
    EXPECT_EQ(mesh.backgroundMode, 1);
    EXPECT_EQ(mesh.backgroundTop, mesh.backgroundBottom);
    EXPECT_NEAR(mesh.gradientAngle, M_PI / 4, 1e-6);
    const FrameUniforms picture = background({Background::Image{Url{"file:///bg.png"}}});
    EXPECT_EQ(picture.backgroundMode, 0);
    EXPECT_EQ(picture.backgroundTop, colorFromHex("#101014"));

    const Float4 orange = colorFromHex("#FF8000");
    EXPECT_EQ(orange.x, 1);
    EXPECT_NEAR(orange.y, 0.50196, 1e-5);
    EXPECT_EQ(orange.z, 0);
    EXPECT_EQ(orange.w, 1);
    EXPECT_NEAR(colorFromHex("ff800080").w, 0.50196, 1e-5);
    EXPECT_EQ(colorFromHex("  #00ff00\n"), (Float4{0, 1, 0, 1}));
    for (const char* bad : {"#FFF", "zzzzzz", "", "#FF80001"}) {
        EXPECT_EQ(colorFromHex(bad), (Float4{0, 0, 0, 1})) << bad;
    }
}
