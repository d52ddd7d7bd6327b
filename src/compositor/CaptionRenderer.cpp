#include "compositor/CaptionRenderer.h"

#include "compositor/FrameUniforms.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <cmath>
#include <functional>

namespace marlowick {

namespace {

// The cache is emptied whole, not entry by entry, once it holds this many captions.
constexpr std::size_t cacheLimit = 121;

struct CairoSurfaceDeleter {
    void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
};
struct CairoDeleter {
    void operator()(cairo_t* c) const { cairo_destroy(c); }
};
struct GObjectDeleter {
    void operator()(void* object) const { g_object_unref(object); }
};
struct FontDescriptionDeleter {
    void operator()(PangoFontDescription* d) const { pango_font_description_free(d); }
};
struct AttrListDeleter {
    void operator()(PangoAttrList* list) const { pango_attr_list_unref(list); }
};

guint16 channel(float value) {
    return static_cast<guint16>(std::lround(std::clamp(value, 0.0f, 1.0f) * 65535));
}

void colourRange(PangoAttrList* list, const Float4& colour, std::size_t start, std::size_t end) {
    PangoAttribute* fg = pango_attr_foreground_new(channel(colour.x), channel(colour.y), channel(colour.z));
    PangoAttribute* alpha = pango_attr_foreground_alpha_new(channel(colour.w));
    for (PangoAttribute* a : {fg, alpha}) {
        a->start_index = static_cast<guint>(start);
        a->end_index = static_cast<guint>(end);
        pango_attr_list_insert(list, a);
    }
}

} // namespace

std::size_t CaptionRenderer::KeyHash::operator()(const Key& key) const {
    std::size_t h = std::hash<Uuid>()(key.cueID);
    auto mix = [&h](std::size_t v) { h ^= v + 0x9E3779B97F4A7C15ULL + (h << 6) + (h >> 2); };
    mix(std::hash<int>()(key.activeWord));
    mix(std::hash<int>()(key.canvasWidth));
    mix(std::hash<std::string>()(key.style.fontName));
    mix(std::hash<double>()(key.style.fontScale));
    mix(std::hash<std::string>()(key.style.textColor));
    mix(std::hash<std::string>()(key.style.highlightColor));
    mix(std::hash<double>()(key.style.backgroundOpacity));
    mix(static_cast<std::size_t>(key.style.position) * 2 + (key.style.highlightPerWord ? 1 : 0));
    return h;
}

std::optional<CaptionRenderer::Layout> CaptionRenderer::layout(const CaptionTrack& track, double t,
                                                               Size canvas) {
    if (!track.isEnabled) {
        return std::nullopt;
    }
    const CaptionTrack::Cue* cue = track.cueAt(t);
    if (cue == nullptr) {
        return std::nullopt;
    }
    int activeWord = -1;
    if (track.style.highlightPerWord) {
        if (const auto index = cue->activeWordAt(t)) {
            activeWord = static_cast<int>(*index);
        }
    }
    Key key{cue->id, activeWord, static_cast<int>(canvas.width), track.style};
    auto it = m_cache.find(key);
    if (it == m_cache.end()) {
        const auto bitmap = rasterise(*cue, activeWord, track.style, canvas);
        if (!bitmap) {
            return std::nullopt;
        }
        if (m_cache.size() >= cacheLimit) {
            m_cache.clear();
        }
        auto texture = std::make_unique<BgraTexture>();
        texture->upload(bitmap->bgra.data(), bitmap->width, bitmap->height, bitmap->width * 4);
        it = m_cache.emplace(std::move(key), std::move(texture)).first;
    }
    const double w = it->second->width();
    const double h = it->second->height();
    const double H = canvas.height;
    double y = (H - h) - H * 0.06;
    if (track.style.position == CaptionStyle::Position::top) {
        y = H * 0.06;
    } else if (track.style.position == CaptionStyle::Position::center) {
        y = (H - h) * 0.5;
    }
    return Layout{it->second.get(), {(canvas.width - w) * 0.5, y}, {w, h}};
}

std::optional<CaptionRenderer::Bitmap> CaptionRenderer::rasterise(const CaptionTrack::Cue& cue,
                                                                  int activeWord, const CaptionStyle& style,
                                                                  Size canvas) {
    const double fontSize = canvas.height * style.fontScale;
    const double maxWidth = canvas.width * 0.82;
    const double pad = fontSize * 0.45;

    // The words in one text, each blank coloured as the word behind it.
    std::string text;
    std::unique_ptr<PangoAttrList, AttrListDeleter> attributes(pango_attr_list_new());
    const Float4 textColour = colorFromHex(style.textColor);
    const Float4 highlight = colorFromHex(style.highlightColor);
    for (std::size_t i = 0; i < cue.words.size(); ++i) {
        const std::size_t start = text.size();
        if (i > 0) {
            text.push_back(' ');
        }
        text += cue.words[i].text;
        colourRange(attributes.get(), static_cast<int>(i) == activeWord ? highlight : textColour, start,
                    text.size());
    }

    // A family missing from fontconfig falls back to a plain sans.
    std::unique_ptr<PangoFontDescription, FontDescriptionDeleter> font(pango_font_description_new());
    pango_font_description_set_family(font.get(), (style.fontName + ",sans-serif").c_str());
    pango_font_description_set_absolute_size(font.get(), fontSize * PANGO_SCALE);

    // Measured on a scratch surface, drawn on the caption's own.
    std::unique_ptr<cairo_surface_t, CairoSurfaceDeleter> scratch(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1));
    std::unique_ptr<cairo_t, CairoDeleter> measure(cairo_create(scratch.get()));
    std::unique_ptr<PangoLayout, GObjectDeleter> layout(pango_cairo_create_layout(measure.get()));
    pango_layout_set_font_description(layout.get(), font.get());
    pango_layout_set_text(layout.get(), text.c_str(), static_cast<int>(text.size()));
    pango_layout_set_attributes(layout.get(), attributes.get());
    pango_layout_set_width(layout.get(), static_cast<int>(maxWidth * PANGO_SCALE));
    pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD);
    int suggestedWidth = 0;
    int suggestedHeight = 0;
    if (!text.empty()) {
        PangoRectangle logical{};
        pango_layout_get_pixel_extents(layout.get(), nullptr, &logical);
        suggestedWidth = logical.width;
        suggestedHeight = logical.height;
    }

    const double textWidth = std::ceil(std::min(maxWidth, static_cast<double>(suggestedWidth))) + 2;
    const double textHeight = std::ceil(static_cast<double>(suggestedHeight)) + 2;
    const int width = static_cast<int>(2 * pad + textWidth);
    const int height = static_cast<int>(2 * pad + textHeight);
    if (width < 1 || height < 1) {
        return std::nullopt;
    }

    std::unique_ptr<cairo_surface_t, CairoSurfaceDeleter> surface(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        return std::nullopt;
    }
    std::unique_ptr<cairo_t, CairoDeleter> cr(cairo_create(surface.get()));
    cairo_set_operator(cr.get(), CAIRO_OPERATOR_CLEAR);
    cairo_paint(cr.get());
    cairo_set_operator(cr.get(), CAIRO_OPERATOR_OVER);
    if (style.backgroundOpacity > 0.001) {
        // The plate is exactly the bitmap, with rounded corners.
        const double r = pad * 0.8;
        cairo_new_sub_path(cr.get());
        cairo_arc(cr.get(), width - r, r, r, -M_PI / 2, 0);
        cairo_arc(cr.get(), width - r, height - r, r, 0, M_PI / 2);
        cairo_arc(cr.get(), r, height - r, r, M_PI / 2, M_PI);
        cairo_arc(cr.get(), r, r, r, M_PI, 3 * M_PI / 2);
        cairo_close_path(cr.get());
        cairo_set_fill_rule(cr.get(), CAIRO_FILL_RULE_WINDING);
        cairo_set_source_rgba(cr.get(), 0, 0, 0, style.backgroundOpacity);
        cairo_fill(cr.get());
    }
    pango_cairo_update_layout(cr.get(), layout.get());
    cairo_move_to(cr.get(), pad, pad);
    pango_cairo_show_layout(cr.get(), layout.get());
    cairo_surface_flush(surface.get());

    // Cairo's ARGB32 is premultiplied BGRA in memory on little-endian machines; rows may be padded.
    Bitmap bitmap{width, height, std::vector<std::uint8_t>(static_cast<std::size_t>(width) * height * 4)};
    const int stride = cairo_image_surface_get_stride(surface.get());
    const unsigned char* data = cairo_image_surface_get_data(surface.get());
    for (int row = 0; row < height; ++row) {
        std::copy_n(data + static_cast<std::ptrdiff_t>(row) * stride, width * 4,
                    bitmap.bgra.begin() + static_cast<std::ptrdiff_t>(row) * width * 4);
    }
    return bitmap;
}

} // namespace marlowick
