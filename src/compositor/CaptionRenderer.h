#pragma once

#include "compositor/BgraTexture.h"
#include "model/CaptionTrack.h"
#include "model/Geometry.h"

#include <memory>
#include <optional>
#include <unordered_map>

namespace marlowick {

// Turns the cue on screen into a texture and says where on the canvas it goes: all the words of the cue
// in one layout, the active word in the highlight colour, wrapped at 82% of the canvas's width, on a
// rounded dark plate. Rasterised with Pango and Cairo into premultiplied BGRA, row 0 at the top.
// Finished captions are cached by cue, active word, canvas width and style; the cache is emptied whole
// once it holds 121 entries. Used from its compositor's thread, with that GL context current.
class CaptionRenderer {
public:
    struct Layout {
        const BgraTexture* texture; // owned by the renderer; valid until the next call
        Point origin;               // top-left on the canvas, pixels
        Size size;                  // pixels, the texture's size
    };

    // The caption at time t, or none: the track is off, no cue is on, or the text can't be drawn.
    std::optional<Layout> layout(const CaptionTrack& track, double t, Size canvas);
    std::size_t cachedCount() const { return m_cache.size(); }

    // The rasterised caption as premultiplied BGRA (row 0 at the top), or none for a size under one pixel.
    struct Bitmap {
        int width = 0;
        int height = 0;
        std::vector<std::uint8_t> bgra;
    };
    static std::optional<Bitmap> rasterise(const CaptionTrack::Cue& cue, int activeWord,
                                           const CaptionStyle& style, Size canvas);

private:
    struct Key {
        Uuid cueID;
        int activeWord;
        int canvasWidth;
        CaptionStyle style;
        friend bool operator==(const Key&, const Key&) = default;
    };
    struct KeyHash {
        std::size_t operator()(const Key& key) const;
    };

    std::unordered_map<Key, std::unique_ptr<BgraTexture>, KeyHash> m_cache;
};

} // namespace marlowick
