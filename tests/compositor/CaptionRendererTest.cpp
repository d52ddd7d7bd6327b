// Captions as bitmaps: their size, where they sit, and the cache.

#include "compositor/CaptionRenderer.h"
#include "compositor/EglContext.h"

#include <cmath>

#include <gtest/gtest.h>

using namespace marlowick;

namespace {

CaptionTrack track(std::vector<CaptionTrack::Cue> cues) {
    return CaptionTrack{std::move(cues), CaptionStyle{}, true};
}

CaptionTrack::Cue cue(std::vector<std::string> words, double start = 0) {
    CaptionTrack::Cue c{Uuid::random(), {}};
    for (const auto& w : words) {
        c.words.push_back({w, start, start + 0.5, 1});
        start += 0.5;
    }
    return c;
}

EglContext& context() {
    static EglContext instance;
    return instance;
}

} // namespace

TEST(CaptionRenderer, BitmapsWrapAtTheCanvasWidthAndCarryTheirPlate) {
    const CaptionStyle style;
    const Size canvas{640, 360};
    const double pad = 360 * style.fontScale * 0.45;
    const auto empty = CaptionRenderer::rasterise(cue({}), -1, style, canvas);
    ASSERT_TRUE(empty.has_value());
    EXPECT_EQ(empty->width, static_cast<int>(2 * pad + 2));
    EXPECT_EQ(empty->height, static_cast<int>(2 * pad + 2));
    // The plate is black at the style's opacity, premultiplied.
    EXPECT_NEAR(
        empty->bgra[static_cast<std::size_t>((empty->height / 2 * empty->width + empty->width / 2) * 4 + 3)],
        0.55 * 255, 1);

    const auto one = CaptionRenderer::rasterise(cue({"Short"}), -1, style, canvas);
    std::vector<std::string> many(40, "words");
    const auto wrapped = CaptionRenderer::rasterise(cue(many), -1, style, canvas);
    ASSERT_TRUE(one && wrapped);
    EXPECT_LE(wrapped->width, static_cast<int>(2 * pad + std::ceil(640 * 0.82) + 2));
    EXPECT_GT(wrapped->height, 2 * one->height);
}

TEST(CaptionRenderer, PlacesAndCachesCaptions) {
    context();
    CaptionRenderer renderer;
    CaptionTrack t = track({cue({"one", "two", "three"}, 0), cue({"four"}, 5)});
    const Size canvas{640, 360};
    EXPECT_FALSE(renderer.layout(t, 3, canvas).has_value()); // between cues

    const auto bottom = renderer.layout(t, 0.2, canvas);
    ASSERT_TRUE(bottom.has_value());
    EXPECT_DOUBLE_EQ(bottom->origin.x, (640 - bottom->size.width) * 0.5);
    EXPECT_DOUBLE_EQ(bottom->origin.y, 360 - bottom->size.height - 360 * 0.06);
    EXPECT_EQ(renderer.cachedCount(), 1u);
    renderer.layout(t, 0.7, canvas); // the next word lights up: a new entry
    EXPECT_EQ(renderer.cachedCount(), 2u);
    renderer.layout(t, 0.8, canvas); // the same word: from the cache
    EXPECT_EQ(renderer.cachedCount(), 2u);

    t.style.highlightPerWord = false;
    renderer.layout(t, 0.2, canvas);
    renderer.layout(t, 1.2, canvas);
    EXPECT_EQ(renderer.cachedCount(), 3u);

    t.style.position = CaptionStyle::Position::top;
    EXPECT_DOUBLE_EQ(renderer.layout(t, 0.2, canvas)->origin.y, 360 * 0.06);

    // The 121st entry is stored as it comes; the next new one clears the cache first.
    CaptionRenderer fresh;
    for (int width = 100; width < 221; ++width) {
        fresh.layout(t, 0.2, {static_cast<double>(width), 360});
    }
    EXPECT_EQ(fresh.cachedCount(), 121u);
    fresh.layout(t, 0.2, {500, 360});
    EXPECT_EQ(fresh.cachedCount(), 1u);
}
