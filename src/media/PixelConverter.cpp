#include "media/PixelConverter.h"

#include "media/MediaError.h"

#include <algorithm>
#include <thread>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace marlowick::av {

namespace {

// How far down plane `plane` of `format` row `row` of the picture lies.
int planeRow(AVPixelFormat format, int plane, int row) {
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(format);
    const bool chroma = (plane == 1 || plane == 2) && (desc->flags & AV_PIX_FMT_FLAG_RGB) == 0;
    return chroma ? row >> desc->log2_chroma_h : row;
}

int bandCount(int height) {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const int bands = static_cast<int>(std::clamp(cores / 2, 1u, 4u));
    return height >= 64 * bands ? bands : 1;
}

} // namespace

PixelConverter::PixelConverter(int width, int height, AVPixelFormat from, AVPixelFormat to, int bands)
    : m_width(width)
    , m_height(height)
    , m_from(from)
    , m_to(to) {
    if (bands <= 0) {
        bands = bandCount(height);
    }
    // Bands start on rows a multiple of 16, so that subsampled chroma rows never straddle two bands.
    const int rowsPerBand = (height / bands + 15) / 16 * 16;
    for (int first = 0; first < height; first += rowsPerBand) {
        const int rows = std::min(rowsPerBand, height - first);
        ScaleContext context(
            sws_getContext(width, rows, from, width, rows, to, SWS_POINT, nullptr, nullptr, nullptr));
        if (!context) {
            throw MediaError(std::string("no conversion from ") + av_get_pix_fmt_name(from) + " to " +
                             av_get_pix_fmt_name(to));
        }
        m_bands.push_back({first, rows, std::move(context)});
    }
}

void PixelConverter::setColorspace(const int* fromCoefficients, bool fromFullRange, const int* toCoefficients,
                                   bool toFullRange) {
    const Colorspace wanted{fromCoefficients, fromFullRange, toCoefficients, toFullRange};
    if (m_colorspace == wanted) {
        return; // the converter rebuilds its tables on every call
    }
    m_colorspace = wanted;
    for (Band& band : m_bands) {
        sws_setColorspaceDetails(band.context.get(), fromCoefficients, fromFullRange ? 1 : 0, toCoefficients,
                                 toFullRange ? 1 : 0, 0, 1 << 16, 1 << 16);
    }
}

void PixelConverter::convert(const std::uint8_t* const from[], const int fromStrides[],
                             std::uint8_t* const to[], const int toStrides[]) const {
    auto run = [&](const Band& band) {
        const std::uint8_t* in[4] = {};
        std::uint8_t* out[4] = {};
        for (int p = 0; p < 4; ++p) {
            if (from[p] != nullptr) {
                in[p] = from[p] +
                        static_cast<std::ptrdiff_t>(planeRow(m_from, p, band.firstRow)) * fromStrides[p];
            }
            if (to[p] != nullptr) {
                out[p] = to[p] + static_cast<std::ptrdiff_t>(planeRow(m_to, p, band.firstRow)) * toStrides[p];
            }
        }
        sws_scale(band.context.get(), in, fromStrides, 0, band.rows, out, toStrides);
    };
    std::vector<std::jthread> helpers;
    for (std::size_t i = 1; i < m_bands.size(); ++i) {
        helpers.emplace_back([&, i] { run(m_bands[i]); });
    }
    run(m_bands.front());
}

} // namespace marlowick::av
