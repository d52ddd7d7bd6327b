// The compositor drawn for real on the machine's GL (Mesa's llvmpipe here), on small canvases: the
// program's uniform block, and the pixels where a fault would show.

#include "compositor/FrameCompositor.h"
#include "compositor/CaptionRenderer.h"
#include "compositor/EglContext.h"
#include "compositor/PixelTransfer.h"
#include "compositor/RenderTarget.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <gtest/gtest.h>

#include "support/SmallCanvas.h"

using namespace marlowick;
using namespace marlowick::testing;

namespace {

using Pixel = std::array<int, 4>; // straight B, G, R, A

struct Image {
    int width;
    int height;
    std::vector<std::uint8_t> bgra;

    Pixel at(int x, int y) const {
        const std::uint8_t* p = &bgra[static_cast<std::size_t>((y * width + x) * 4)];
        return {p[0], p[1], p[2], p[3]};
    }
};

Image draw(const Project& project, double t = 0, const std::optional<CursorFrame>& cursor = std::nullopt,
           int width = 160, int height = 90) {
    Gpu& g = gpu();
    RenderTarget target(width, height);
    target.bind();
    g.compositor.render(g.source, width, height, project, t, cursor, true);
    return {width, height, target.readBgra()};
}

} // namespace

TEST(FrameCompositor, TheProgramsBlockMatchesTheRecord) {
    const auto offsets = gpu().compositor.uniformBlockOffsets();
    const auto& fields = frameUniformFields();
    ASSERT_EQ(offsets.size(), fields.size());
    for (std::size_t i = 0; i < fields.size(); ++i) {
        EXPECT_EQ(offsets[i], fields[i].offset) << fields[i].name;
    }
}

TEST(FrameCompositor, ATransparentCanvasStaysEmptyAroundTheRecording) {
    const Image image = draw(project(bare()));
    EXPECT_EQ(image.at(2, 2), (Pixel{0, 0, 0, 0}));
    EXPECT_EQ(image.at(157, 87), (Pixel{0, 0, 0, 0}));
    EXPECT_EQ(image.at(40, 45), (Pixel{0, 0, 255, 255}));  // red half, opaque
    EXPECT_EQ(image.at(120, 45), (Pixel{255, 0, 0, 255})); // blue half
    // Row 0 is the canvas's top: the surface starts 20% down, its edge smoothed over a pixel each way.
    EXPECT_EQ(image.at(80, 16)[3], 0);
    EXPECT_GT(image.at(80, 17)[3], 0);
    EXPECT_LT(image.at(80, 17)[3], 128);
    EXPECT_EQ(image.at(80, 19)[3], 255);
}

TEST(FrameCompositor, AShadowOnATransparentCanvasKeepsItsOwnAlpha) {
    Canvas c = bare();
    c.shadow = {12, 0.5, {0, 6}};
    const Image image = draw(project(c));
    const Pixel below = image.at(80, 74); // just under the surface, inside the shadow's reach
    EXPECT_EQ(below[0], 0);
    EXPECT_EQ(below[1], 0);
    EXPECT_EQ(below[2], 0);
    EXPECT_GT(below[3], 0);
    EXPECT_LE(below[3], 128);
    EXPECT_EQ(image.at(2, 2), (Pixel{0, 0, 0, 0})); // beyond its reach
}

TEST(FrameCompositor, SolidAndGradientBackgrounds) {
    Canvas c = bare();
    c.background = Background::solid("#336699");
    EXPECT_EQ(draw(project(c)).at(2, 2), (Pixel{0x99, 0x66, 0x33, 255}));

    // Left to right: the ramp is measured from the canvas's top-left corner, so it starts halfway at the
    // left edge and reaches its end colour in the middle.
    c.background = Background::linearGradient("#000000", "#FFFFFF", 0);
    const Image gradient = draw(project(c));
    EXPECT_NEAR(gradient.at(0, 5)[2], 128, 2);
    EXPECT_NEAR(gradient.at(40, 5)[2], 192, 2);
    EXPECT_EQ(gradient.at(80, 5)[2], 255);
    EXPECT_EQ(gradient.at(159, 85)[2], 255);
}

namespace {

// A 64×36 recording in which every column and every row has a colour of its own: blue climbs 4 a column
// and green 7 a row, so a pixel of a picture says where in the recording it was sampled.
const BgraTexture& coordinateRecording() {
    gpu(); // the context, current
    static const BgraTexture texture = [] {
        std::vector<std::uint8_t> bgra(64 * 36 * 4);
        for (int y = 0; y < 36; ++y) {
            for (int x = 0; x < 64; ++x) {
                std::uint8_t* p = &bgra[static_cast<std::size_t>((y * 64 + x) * 4)];
                p[0] = static_cast<std::uint8_t>(x * 4);
                p[1] = static_cast<std::uint8_t>(y * 7);
                p[2] = 128;
                p[3] = 255;
            }
        }
        BgraTexture t;
        t.upload(bgra.data(), 64, 36, 64 * 4);
        return t;
    }();
    return texture;
}

// The point of the coordinate recording a pixel shows, from 0 to 1 on each axis. Sampling blends the
// texels either side linearly, so the colour gives the place between texel centres.
std::array<double, 2> sampledAt(const Image& image, int x, int y) {
    const Pixel p = image.at(x, y);
    return {(p[0] / 4.0 + 0.5) / 64, (p[1] / 7.0 + 0.5) / 36};
}

} // namespace

TEST(FrameCompositor, AZoomNearTheRecordingsEdgeStaysInsideIt) {
    // Each zoom of 2.5 shows 0.4 of the recording on each axis (in fill on a square canvas, 0.4 of the
    // 0.5625 that the crop keeps across): the window starts where it must to stay inside the recording.
    struct Case {
        const char* name;
        Point centre;
        ContentMode mode;
        int width;
        int height;
        std::array<double, 2> origin; // the window's top-left in the recording
        std::array<double, 2> span;
    };
    const std::vector<Case> cases{
        {"top right", {0.966, 0.019}, ContentMode::fit, 320, 180, {0.6, 0}, {0.4, 0.4}},
        {"top left", {0.01, 0.02}, ContentMode::fit, 320, 180, {0, 0}, {0.4, 0.4}},
        {"bottom left", {0.03, 0.99}, ContentMode::fit, 320, 180, {0, 0.6}, {0.4, 0.4}},
        {"bottom right", {0.995, 0.97}, ContentMode::fit, 320, 180, {0.6, 0.6}, {0.4, 0.4}},
        {"top edge", {0.5, 0.0}, ContentMode::fit, 320, 180, {0.3, 0}, {0.4, 0.4}},
        {"right edge in fill", {0.98, 0.5}, ContentMode::fill, 180, 180, {1 - 0.225, 0.3}, {0.225, 0.4}},
    };
    Gpu& g = gpu();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Canvas canvas = bare(0);
        canvas.contentMode = c.mode;
        Project p = project(canvas);
        p.camera.beats = {ZoomBeat(Uuid::random(), 0, 5, c.centre, 2.5, 0, 0, Easing::linear, false)};
        auto drawAt = [&](const std::optional<CursorFrame>& cursor) {
            RenderTarget target(c.width, c.height);
            target.bind();
            g.compositor.render(coordinateRecording(), c.width, c.height, p, 1, cursor, true);
            return Image{c.width, c.height, target.readBgra()};
        };
        const Image image = drawAt(std::nullopt);
        // The outermost pixels are the surface's smoothed edge: the picture is looked at within them.
        const int x0 = 1;
        const int y0 = 1;
        const int x1 = c.width - 2;
        const int y1 = c.height - 2;

        // No side repeats its outermost row or column further than a texel's width on the canvas: the
        // recording's edge is never smeared across the picture.
        auto sameColumns = [&](int a, int b) {
            for (int y = y0; y <= y1; ++y) {
                if (image.at(a, y) != image.at(b, y)) {
                    return false;
                }
            }
            return true;
        };
        auto sameRows = [&](int a, int b) {
            for (int x = x0; x <= x1; ++x) {
                if (image.at(x, a) != image.at(x, b)) {
                    return false;
                }
            }
            return true;
        };
        auto run = [](int from, int step, int last, auto&& same) {
            int n = 1;
            while (from + n * step != last + step && same(from, from + n * step)) {
                ++n;
            }
            return n;
        };
        const double texelWidth = c.width / (64 * c.span[0]);
        const double texelHeight = c.height / (36 * c.span[1]);
        EXPECT_LE(run(x0, 1, x1, sameColumns), texelWidth) << "left";
        EXPECT_LE(run(x1, -1, x0, sameColumns), texelWidth) << "right";
        EXPECT_LE(run(y0, 1, y1, sameRows), texelHeight) << "top";
        EXPECT_LE(run(y1, -1, y0, sameRows), texelHeight) << "bottom";

        // The window is where it should be: at a quarter and three quarters across and down, the picture
        // shows those places of the window.
        for (const double f : {0.25, 0.75}) {
            const int x = static_cast<int>(c.width * f);
            const int y = static_cast<int>(c.height * f);
            EXPECT_NEAR(sampledAt(image, x, c.height / 2)[0], c.origin[0] + c.span[0] * (x + 0.5) / c.width,
                        0.2 / 64)
                << "across at " << f;
            EXPECT_NEAR(sampledAt(image, c.width / 2, y)[1], c.origin[1] + c.span[1] * (y + 0.5) / c.height,
                        0.2 / 36)
                << "down at " << f;
        }

        // A cursor on the clicked point lands on the pixel showing it. Its arrow's tip lies the reach of
        // its outline right and down of the first pixels it changes.
        const Image withCursor = drawAt(CursorFrame{c.centre, 1, 1, -1, {}});
        int left = c.width;
        int top = c.height;
        for (int y = 0; y < c.height; ++y) {
            for (int x = 0; x < c.width; ++x) {
                if (withCursor.at(x, y) != image.at(x, y)) {
                    left = std::min(left, x);
                    top = std::min(top, y);
                }
            }
        }
        ASSERT_LT(left, c.width) << "no cursor drawn";
        const double size = std::min(c.width, c.height) * 0.035 * 2.5;
        const double reach = size * 0.06 + 1.5;
        const int tipX = std::clamp(static_cast<int>(left + reach), x0, x1);
        const int tipY = std::clamp(static_cast<int>(top + reach), y0, y1);
        const auto clicked = sampledAt(image, tipX, tipY);
        // Within a third of a texel; a point beyond the outermost texel centres shows that texel.
        EXPECT_NEAR(clicked[0], std::clamp(c.centre.x, 0.5 / 64, 63.5 / 64), 0.33 / 64);
        EXPECT_NEAR(clicked[1], std::clamp(c.centre.y, 0.5 / 36, 35.5 / 36), 0.33 / 36);
    }
}

TEST(FrameCompositor, RipplesGrowFromTheClickAndFade) {
    Canvas c = bare(0);
    c.background = Background::solid("#000000");
    const Project p = project(c);
    const Image plain = draw(p);
    auto ripple = [&](double progress) {
        return draw(p, 0, CursorFrame{{0.5, 0.5}, 0, 1, progress, {0.25, 0.5}});
    };
    // At 0 a ring of radius two around the click (at (40, 45) on the canvas), nine tenths white at its
    // strongest over the red.
    const Image start = ripple(0);
    int strongest = 0;
    for (int y = 40; y <= 50; ++y) {
        for (int x = 35; x <= 45; ++x) {
            strongest = std::max(strongest, start.at(x, y)[1]);
        }
    }
    EXPECT_NEAR(strongest, 0.9 * 255, 12);
    EXPECT_EQ(start.at(40 + 8, 45), plain.at(40 + 8, 45));
    EXPECT_EQ(ripple(1).bgra, plain.bgra);
    EXPECT_EQ(ripple(-1).bgra, plain.bgra);
}

TEST(FrameCompositor, TheCursorIsClippedToTheSurface) {
    const Project p = project(bare());
    const Image none = draw(p);
    const Image inside = draw(p, 0, CursorFrame{{0.5, 0.5}, 1, 1, -1, {}});
    EXPECT_NE(inside.bgra, none.bgra);
    // Its tip at the surface's right edge: nothing of it shows beyond the surface.
    const Image edge = draw(p, 0, CursorFrame{{0.999, 0.3}, 1, 1, -1, {}});
    for (int y = 0; y < 90; ++y) {
        for (int x = 130; x < 160; ++x) {
            ASSERT_EQ(edge.at(x, y), none.at(x, y)) << x << "," << y;
        }
    }
    EXPECT_EQ(draw(p, 0, CursorFrame{{0.5, 0.5}, 0, 1, -1, {}}).bgra, none.bgra); // faded out
}

TEST(FrameCompositor, NothingIsDrawnBeyondTheHorizon) {
    Canvas c = bare();
    c.background = Background::solid("#808080");
    c.tilt = {85, 0};
    const Image image = draw(project(c));
    EXPECT_EQ(image.at(80, 1), (Pixel{0, 0, 0, 0}));
    EXPECT_EQ(image.at(80, 88), (Pixel{0x80, 0x80, 0x80, 255}));
}

TEST(FrameCompositor, DevicesStandOnTheirBases) {
    Canvas c = bare(0.05);
    c.background = Background::solid("#FFFFFF");
    c.deviceFrame = DeviceFrame::studioDisplay();
    Project p = project(c);
    FrameUniforms u = frameUniforms(p, 0, {160, 90}, std::nullopt);
    const Float4 body = colorFromHex(DeviceFrame::studioDisplay().bodyColor);
    const Pixel bodyPixel{static_cast<int>(std::lround(body.z * 255)),
                          static_cast<int>(std::lround(body.y * 255)),
                          static_cast<int>(std::lround(body.x * 255)), 255};
    Image image = draw(p);
    // The neck, right under the body's middle.
    const int cx = static_cast<int>(u.bodyOrigin.x + u.bodySize.x / 2);
    const int below = static_cast<int>(u.bodyOrigin.y + u.bodySize.y + u.bodySize.y * 0.04);
    EXPECT_EQ(image.at(cx, below), bodyPixel);
    EXPECT_EQ(image.at(static_cast<int>(u.bodyOrigin.x) + 1, below), (Pixel{255, 255, 255, 255}));

    // A tablet's screen well is near-black around a recording of another shape.
    p.canvas.deviceFrame = DeviceFrame::iPadPro();
    u = frameUniforms(p, 0, {160, 90}, std::nullopt);
    image = draw(p);
    const Pixel well = image.at(static_cast<int>(u.screenOrigin.x + u.screenSize.x / 2),
                                static_cast<int>(u.screenOrigin.y) + 3);
    EXPECT_LT(well[2], 12);
    EXPECT_EQ(well[3], 255);

    // A laptop's slab reaches a little past the lid on both sides.
    p.canvas.deviceFrame = DeviceFrame::macBookPro();
    u = frameUniforms(p, 0, {160, 90}, std::nullopt);
    image = draw(p);
    const Float4 lid = colorFromHex(DeviceFrame::macBookPro().bodyColor);
    const int slabY = static_cast<int>(u.bodyOrigin.y + u.bodySize.y + u.bodySize.y * 0.014);
    const Pixel slab = image.at(static_cast<int>(u.bodyOrigin.x + u.bodySize.x / 2), slabY);
    EXPECT_NEAR(slab[2], lid.x * 255, 2);
}

TEST(FrameCompositor, CaptionsStayLevelAndInPlace) {
    Canvas c = bare(0.4); // the recording stays clear of the caption
    c.background = Background::solid("#204060");
    Project p = project(c);
    p.captions = CaptionTrack{
        {CaptionTrack::Cue{Uuid::random(), {{"Hello", 0, 1, 1}, {"there.", 1, 2, 1}}}}, CaptionStyle{}, true};
    p.captions->style.fontScale = 0.12;
    const Image flat = draw(p, 0.5, std::nullopt, 320, 180);

    CaptionRenderer renderer;
    const auto layout = renderer.layout(*p.captions, 0.5, {320, 180});
    ASSERT_TRUE(layout.has_value());
    const int x0 = static_cast<int>(layout->origin.x);
    const int y0 = static_cast<int>(layout->origin.y);
    bool marked = false;
    for (int y = y0; y < y0 + static_cast<int>(layout->size.height); ++y) {
        for (int x = x0; x < x0 + static_cast<int>(layout->size.width); ++x) {
            marked = marked || flat.at(x, y) != flat.at(2, 2);
        }
    }
    EXPECT_TRUE(marked) << "no caption drawn";

    Project tilted = p;
    tilted.canvas.tilt = {0, 25};
    tilted.camera.beats = {ZoomBeat(Uuid::random(), 0, 5, {0.3, 0.3}, 2.5, 0, 0, Easing::linear, false)};
    const Image moved = draw(tilted, 0.5, std::nullopt, 320, 180);
    for (int y = y0; y < y0 + static_cast<int>(layout->size.height); ++y) {
        for (int x = x0; x < x0 + static_cast<int>(layout->size.width); ++x) {
            ASSERT_EQ(moved.at(x, y), flat.at(x, y)) << x << "," << y;
        }
    }

    p.captions->isEnabled = false;
    EXPECT_FALSE(renderer.layout(*p.captions, 0.5, {320, 180}).has_value());
}

// Looks that exercise every region of the plan: captions and a zoom, a zoom into a corner, a transparent
// canvas with a shadow, every device, fill mode zoomed, a recording larger than the canvas, and a tilt.
std::vector<std::pair<std::string, Project>> looks() {
    std::vector<std::pair<std::string, Project>> all;
    Project fresh = project(Canvas::freshRecording());
    fresh.camera.beats = {
        ZoomBeat(Uuid::random(), 0, 5, {0.3, 0.6}, 1.7, 0.35, 0.35, Easing::easeInOut, true)};
    fresh.captions =
        CaptionTrack{{CaptionTrack::Cue{Uuid::random(), {{"Open", 0, 1, 1}, {"settings.", 1, 2, 1}}}},
                     CaptionStyle{},
                     true};
    all.emplace_back("fresh", fresh);
    // A zoom on the top right corner, where the camera's centre is kept inside the recording.
    Project corner = project(Canvas::freshRecording());
    corner.camera.beats = {
        ZoomBeat(Uuid::random(), 0, 5, {0.966, 0.019}, 2.5, 0.35, 0.35, Easing::easeInOut, true)};
    all.emplace_back("corner", corner);
    Canvas edge = bare(0.1);
    edge.shadow = {20, 0.6, {4, 10}};
    edge.cornerRadius = 30;
    all.emplace_back("transparent", project(edge));
    for (const DeviceFrame& d : DeviceFrame::all()) {
        Canvas c = Canvas::freshRecording();
        c.deviceFrame = d;
        c.contentMode = ContentMode::fit;
        all.emplace_back(d.id, project(c));
    }
    Canvas vertical = Canvas::freshRecording();
    vertical.ratio = AspectRatio::vertical;
    Project fill = project(vertical);
    fill.camera.beats = {ZoomBeat(Uuid::random(), 0, 5, {0.8, 0.2}, 2.4, 0, 0, Easing::linear, true)};
    all.emplace_back("fill", fill);
    Canvas beyond = bare(-0.1);
    beyond.cornerRadius = 0;
    all.emplace_back("beyond", project(beyond));
    Canvas tilted = Canvas::freshRecording();
    tilted.tilt = {10, -15};
    all.emplace_back("tilted", project(tilted));
    return all;
}

TEST(FrameCompositor, ASequenceSkipsOnlyTheFramesTheFramebufferAlreadyHolds) {
    Gpu& g = gpu();
    const Project p = project(bare(0.1));
    RenderTarget target(160, 90);
    target.bind();
    const CursorFrame here{{0.3, 0.5}, 1, 1, -1, {}};
    const auto everywhere = PictureChange::everywhere();
    const auto nowhere = PictureChange::nowhere();
    EXPECT_EQ(g.compositor.renderSequence(g.source, 160, 90, p, 0, here, true, everywhere),
              (std::vector<PixelRect>{{0, 0, 160, 90}}));
    EXPECT_TRUE(g.compositor.renderSequence(g.source, 160, 90, p, 0, here, true, nowhere).empty());
    // A new source picture, a moved cursor, or a plain render in between all draw again; a cursor that
    // moved alone, only around where it was and is.
    EXPECT_FALSE(g.compositor.renderSequence(g.source, 160, 90, p, 0, here, true, everywhere).empty());
    const CursorFrame there{{0.6, 0.5}, 1, 1, -1, {}};
    const auto drawn = g.compositor.renderSequence(g.source, 160, 90, p, 0, there, true, nowhere);
    ASSERT_FALSE(drawn.empty());
    int pixels = 0;
    for (const PixelRect& r : drawn) {
        pixels += r.width * r.height;
    }
    EXPECT_LT(pixels, 160 * 90 / 4);
    const std::vector<std::uint8_t> sequence = target.readBgra();
    g.compositor.render(g.source, 160, 90, p, 0, there, true);
    EXPECT_EQ(target.readBgra(), sequence);
    EXPECT_FALSE(g.compositor.renderSequence(g.source, 160, 90, p, 0, there, true, nowhere).empty());
}

TEST(FrameCompositor, ASequenceDrawnInPartsGivesThePixelsOfWholeFrames) {
    // Times across a zoom's ramps and its hold and the caption's words, with the cursor moving, resting,
    // leaving the recording's edge, rippling and gone; the recording changes nowhere, in a few places (at
    // its edges too), or everywhere (no list). Each frame is held against one drawn whole in a single
    // pass, without the plan by regions, with the canvas's rows in either order.
    struct Frame {
        double t;
        std::optional<CursorFrame> cursor;
        std::optional<std::vector<PixelRect>> changed;
    };
    const CursorFrame corner{{0.995, 0.02}, 0.7, 2, -1, {}};
    const CursorFrame centre{{0.5, 0.5}, 1, 1, 0.9, {0.0, 0.5}};
    const std::vector<Frame> frames{
        {0.0, CursorFrame{{0.3, 0.6}, 1, 1, -1, {}}, std::nullopt},
        {0.1, CursorFrame{{0.35, 0.6}, 1, 1, 0.1, {0.35, 0.6}}, std::vector<PixelRect>{}},
        {0.2, corner, std::vector<PixelRect>{{10, 5, 6, 4}}},
        {0.2, corner, std::vector<PixelRect>{}},
        {0.6, std::nullopt, std::vector<PixelRect>{{0, 0, 64, 2}, {60, 30, 4, 6}}},
        {1.2, centre, std::vector<PixelRect>{{30, 16, 1, 1}}},
        {1.2, centre, std::vector<PixelRect>{}},
        {2.5, CursorFrame{{0.1, 0.9}, 1, 1, -1, {}}, std::vector<PixelRect>{{5, 20, 3, 3}, {0, 35, 1, 1}}},
        {2.6, CursorFrame{{0.12, 0.9}, 1, 1, -1, {}}, std::vector<PixelRect>{{40, 10, 10, 10}}},
        {4.8, CursorFrame{{0.1, 0.9}, 0.4, 1, -1, {}}, std::nullopt},
        {5.5, std::nullopt, std::vector<PixelRect>{{63, 10, 1, 3}}}};
    Gpu& g = gpu();
    FrameCompositor reference; // draws whole frames in one pass, beside the sequence
    reference.setRegionPlanning(false);
    for (const auto& [name, p] : looks()) {
        for (const bool topRowFirst : {true, false}) {
            BgraTexture texture;
            PixelTransfer transfer(true);
            std::vector<std::uint8_t> recording(64 * 36 * 4);
            RenderTarget sequence(320, 180);
            RenderTarget whole(320, 180);
            // Each look's sequence starts afresh in a framebuffer of its own, which the compositor can't tell
            // from the last look's: a plain render in between ends that sequence.
            whole.bind();
            g.compositor.render(g.source, 320, 180, p, 0, std::nullopt, topRowFirst);
            std::vector<std::uint8_t> last;
            for (std::size_t i = 0; i < frames.size(); ++i) {
                // New colours in the changed places.
                const std::vector<PixelRect> areas =
                    frames[i].changed.value_or(std::vector<PixelRect>{{0, 0, 64, 36}});
                for (const PixelRect& a : areas) {
                    for (int y = a.y; y < a.bottom(); ++y) {
                        for (int x = a.x; x < a.right(); ++x) {
                            for (int c = 0; c < 4; ++c) {
                                recording[static_cast<std::size_t>((y * 64 + x) * 4 + c)] =
                                    static_cast<std::uint8_t>(
                                        c == 3 ? 255 : (x * 37 + y * 11 + c * 71 + i * 53) % 256);
                            }
                        }
                    }
                }
                if (frames[i].changed) {
                    transfer.uploadAreas(texture, recording.data(), 64 * 4, areas);
                } else {
                    transfer.upload(texture, recording.data(), 64, 36, 64 * 4);
                }
                const PictureChange change = frames[i].changed ? PictureChange::within(*frames[i].changed)
                                                               : PictureChange::everywhere();
                sequence.bind();
                const std::vector<PixelRect> drawn = g.compositor.renderSequence(
                    texture, 320, 180, p, frames[i].t, frames[i].cursor, topRowFirst, change);
                const auto parts = sequence.readBgra();
                whole.bind();
                reference.render(texture, 320, 180, p, frames[i].t, frames[i].cursor, topRowFirst);
                ASSERT_EQ(parts, whole.readBgra())
                    << name << ", frame " << i << (topRowFirst ? "" : ", window rows");
                // Whatever differs from the last frame lies in what it says it drew.
                if (!last.empty()) {
                    for (int y = 0; y < 180; ++y) {
                        for (int x = 0; x < 320; ++x) {
                            const auto at = static_cast<std::size_t>((y * 320 + x) * 4);
                            if (std::equal(&parts[at], &parts[at] + 4, &last[at])) {
                                continue;
                            }
                            const int row =
                                topRowFirst ? y : 179 - y; // the areas are the canvas's, top row first
                            const bool inside =
                                std::any_of(drawn.begin(), drawn.end(), [&](const PixelRect& r) {
                                    return x >= r.x && x < r.right() && row >= r.y && row < r.bottom();
                                });
                            ASSERT_TRUE(inside) << name << ", frame " << i << " at " << x << "," << y
                                                << (topRowFirst ? "" : ", window rows");
                        }
                    }
                }
                last = parts;
            }
        }
    }
}
