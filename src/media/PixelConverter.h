#pragma once

#include "media/AvPointers.h"
#include "model/PixelRect.h"

#include <optional>
#include <vector>

namespace marlowick::av {

// Converts pictures of one size from one pixel format into another, tile by tile: the picture is cut into
// tiles of `tileWidth` × `tileRows` pixels (narrower and shorter at the right and bottom edges), so that a
// picture that changed in a few places is converted only there, and the tiles of a whole picture are shared
// among up to four threads where the machine has cores to spare (one on a two-core machine, where the other
// stages of a pipeline keep every core busy; a single thread would leave a 4K frame's conversion on one core,
// setting the pace of a whole export on a large machine). Tiles start on even columns and on rows a multiple
// of 16, so subsampled chroma never straddles two, and sampling is point sampling (same-size conversions
// only): a tile converted alone gives the pixels it has in a whole conversion. Colours as FFmpeg's converter
// gives them. One thread at a time.
class PixelConverter {
public:
    static constexpr int tileWidth = 256;
    static constexpr int tileRows = 16;

    // Throws MediaError when FFmpeg has no such conversion. `threads` 0 picks the count by the machine.
    PixelConverter(int width, int height, AVPixelFormat from, AVPixelFormat to, int threads = 0);

    // The YUV↔RGB coefficients and ranges, as sws_setColorspaceDetails takes them. Setting the ones already
    // set costs nothing, so a caller may pass them with every picture.
    void setColorspace(const int* fromCoefficients, bool fromFullRange, const int* toCoefficients,
                       bool toFullRange);

    // Converts the whole picture.
    void convert(const std::uint8_t* const from[], const int fromStrides[], std::uint8_t* const to[],
                 const int toStrides[]) const;
    // Converts the tiles that meet any of `areas`, and nothing else of `to` is written. Every pixel of those
    // tiles is read from `from`: tilesMeeting tells which they are.
    void convertAreas(const std::uint8_t* const from[], const int fromStrides[], std::uint8_t* const to[],
                      const int toStrides[], const std::vector<PixelRect>& areas) const;

    // The tiles of a `width` × `height` picture that meet any of `areas`, as few rectangles: runs of tiles
    // side by side, and runs alike in consecutive rows of tiles joined.
    static std::vector<PixelRect> tilesMeeting(const std::vector<PixelRect>& areas, int width, int height);

    int width() const { return m_width; }
    int height() const { return m_height; }
    AVPixelFormat from() const { return m_from; }
    AVPixelFormat to() const { return m_to; }

private:
    struct Tile {
        int x;
        int y;
        int shape; // which of a thread's contexts converts it: a tile's, or a band's across the picture
    };
    void run(const Tile* first, const Tile* end, std::size_t thread, const std::uint8_t* const from[],
             const int fromStrides[], std::uint8_t* const to[], const int toStrides[]) const;

    int m_width;
    int m_height;
    AVPixelFormat m_from;
    AVPixelFormat m_to;
    // One context for each tile shape (whole, at the right edge, at the bottom, at the corner; and a band
    // across the picture, whole and at the bottom) for each thread: a context converts any tile of its
    // shape, one at a time.
    std::vector<std::vector<ScaleContext>> m_contexts;
    struct Colorspace {
        const int* fromCoefficients;
        bool fromFullRange;
        const int* toCoefficients;
        bool toFullRange;
        friend bool operator==(const Colorspace&, const Colorspace&) = default;
    };
    std::optional<Colorspace> m_colorspace; // as last set
};

} // namespace marlowick::av
