#pragma once

#include "media/FFmpeg.h"

#include <optional>
#include <vector>

namespace marlowick::av {

// Converts pictures of one size from one pixel format into another, in horizontal bands converted side by
// side on as many threads as the machine has cores to spare (up to four; one on a two-core machine,
// where the other stages of a pipeline keep every core busy). A single conversion context would leave a
// 4K frame's conversion on one core, and it would then set the pace of the whole export on a large
// machine. Colours as FFmpeg's converter gives them; same-size conversions only (point sampling).
// One thread at a time.
class PixelConverter {
public:
    // Throws MediaError when FFmpeg has no such conversion. `bands` 0 picks the count by the machine.
    PixelConverter(int width, int height, AVPixelFormat from, AVPixelFormat to, int bands = 0);

    // The YUV↔RGB coefficients and ranges, as sws_setColorspaceDetails takes them. Setting the ones already
    // set costs nothing, so a caller may pass them with every picture.
    void setColorspace(const int* fromCoefficients, bool fromFullRange, const int* toCoefficients,
                       bool toFullRange);

    void convert(const std::uint8_t* const from[], const int fromStrides[], std::uint8_t* const to[],
                 const int toStrides[]) const;

    int width() const { return m_width; }
    int height() const { return m_height; }
    AVPixelFormat from() const { return m_from; }
    AVPixelFormat to() const { return m_to; }

private:
    struct Band {
        int firstRow;
        int rows;
        ScaleContext context;
    };
    int m_width;
    int m_height;
    AVPixelFormat m_from;
    AVPixelFormat m_to;
    std::vector<Band> m_bands;
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
