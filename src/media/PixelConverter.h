#pragma once

#include "media/FFmpeg.h"
#include "media/PictureChange.h"

#include <optional>
#include <vector>

namespace marlowick::av {

// Converts pictures of one size from one pixel format into another. The picture is cut into blocks of
// `blockRows` rows, each with a conversion context of its own: so a picture that changed in a few rows is
// converted only there, and the blocks of a whole picture are shared among up to four threads where the
// machine has cores to spare (one on a two-core machine, where the other stages of a pipeline keep every
// core busy; a single context would leave a 4K frame's conversion on one core, setting the pace of a whole
// export on a large machine). Converting blocks apart gives the pixels of one conversion: a block starts on
// a row a multiple of 32, so subsampled chroma rows never straddle two, and the sampling is point sampling
// (same-size conversions only). Colours as FFmpeg's converter gives them. One thread at a time.
class PixelConverter {
public:
    static constexpr int blockRows = 32;

    // Throws MediaError when FFmpeg has no such conversion. `threads` 0 picks the count by the machine.
    PixelConverter(int width, int height, AVPixelFormat from, AVPixelFormat to, int threads = 0);

    // The YUV↔RGB coefficients and ranges, as sws_setColorspaceDetails takes them. Setting the ones already
    // set costs nothing, so a caller may pass them with every picture.
    void setColorspace(const int* fromCoefficients, bool fromFullRange, const int* toCoefficients,
                       bool toFullRange);

    // Converts the whole picture.
    void convert(const std::uint8_t* const from[], const int fromStrides[], std::uint8_t* const to[],
                 const int toStrides[]) const;
    // Converts the blocks that hold any of `rows`, and nothing else of `to` is written. Every row of those
    // blocks is read from `from`: blocksHolding tells which they are.
    void convertRows(const std::uint8_t* const from[], const int fromStrides[], std::uint8_t* const to[],
                     const int toStrides[], const std::vector<RowSpan>& rows) const;

    // The spans of whole blocks that hold any of `rows`, in order and merged, within a picture `height` rows
    // high.
    static std::vector<RowSpan> blocksHolding(const std::vector<RowSpan>& rows, int height);

    int width() const { return m_width; }
    int height() const { return m_height; }
    AVPixelFormat from() const { return m_from; }
    AVPixelFormat to() const { return m_to; }

private:
    struct Block {
        int firstRow;
        int rows;
        ScaleContext context;
    };
    void run(const std::vector<const Block*>& blocks, const std::uint8_t* const from[],
             const int fromStrides[], std::uint8_t* const to[], const int toStrides[]) const;

    int m_width;
    int m_height;
    AVPixelFormat m_from;
    AVPixelFormat m_to;
    int m_threads;
    std::vector<Block> m_blocks;
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
