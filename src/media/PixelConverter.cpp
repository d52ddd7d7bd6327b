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

int threadCount(int height) {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const int threads = static_cast<int>(std::clamp(cores / 2, 1u, 4u));
    return height >= 64 * threads ? threads : 1;
}

} // namespace

PixelConverter::PixelConverter(int width, int height, AVPixelFormat from, AVPixelFormat to, int threads)
    : m_width(width)
    , m_height(height)
    , m_from(from)
    , m_to(to)
    , m_threads(threads > 0 ? threads : threadCount(height)) {
    for (int first = 0; first < height; first += blockRows) {
        const int rows = std::min(blockRows, height - first);
        ScaleContext context(
            sws_getContext(width, rows, from, width, rows, to, SWS_POINT, nullptr, nullptr, nullptr));
        if (!context) {
            throw MediaError(std::string("no conversion from ") + av_get_pix_fmt_name(from) + " to " +
                             av_get_pix_fmt_name(to));
        }
        m_blocks.push_back({first, rows, std::move(context)});
    }
}

void PixelConverter::setColorspace(const int* fromCoefficients, bool fromFullRange, const int* toCoefficients,
                                   bool toFullRange) {
    const Colorspace wanted{fromCoefficients, fromFullRange, toCoefficients, toFullRange};
    if (m_colorspace == wanted) {
        return; // the converter rebuilds its tables on every call
    }
    m_colorspace = wanted;
    for (Block& block : m_blocks) {
        sws_setColorspaceDetails(block.context.get(), fromCoefficients, fromFullRange ? 1 : 0, toCoefficients,
                                 toFullRange ? 1 : 0, 0, 1 << 16, 1 << 16);
    }
}

std::vector<RowSpan> PixelConverter::blocksHolding(const std::vector<RowSpan>& rows, int height) {
    std::vector<RowSpan> spans;
    for (const RowSpan& span : rows) {
        const int first = std::clamp(span.first, 0, height);
        const int end = std::clamp(span.first + span.count, first, height);
        if (end > first) {
            spans.push_back({first / blockRows * blockRows,
                             std::min(height, (end + blockRows - 1) / blockRows * blockRows)});
        }
    }
    // Held as first and end until merged.
    std::sort(spans.begin(), spans.end(),
              [](const RowSpan& a, const RowSpan& b) { return a.first < b.first; });
    std::vector<RowSpan> merged;
    for (const RowSpan& span : spans) {
        if (!merged.empty() && span.first <= merged.back().count) {
            merged.back().count = std::max(merged.back().count, span.count);
        } else {
            merged.push_back(span);
        }
    }
    for (RowSpan& span : merged) {
        span.count -= span.first;
    }
    return merged;
}

void PixelConverter::convert(const std::uint8_t* const from[], const int fromStrides[],
                             std::uint8_t* const to[], const int toStrides[]) const {
    convertRows(from, fromStrides, to, toStrides, {{0, m_height}});
}

void PixelConverter::convertRows(const std::uint8_t* const from[], const int fromStrides[],
                                 std::uint8_t* const to[], const int toStrides[],
                                 const std::vector<RowSpan>& rows) const {
    std::vector<const Block*> blocks;
    for (const RowSpan& span : blocksHolding(rows, m_height)) {
        for (int first = span.first; first < span.first + span.count; first += blockRows) {
            blocks.push_back(&m_blocks[static_cast<std::size_t>(first / blockRows)]);
        }
    }
    // A few blocks aren't worth a thread's start.
    const auto threads = static_cast<std::size_t>(blocks.size() >= 8 ? m_threads : 1);
    std::vector<std::jthread> helpers;
    const std::size_t share = (blocks.size() + threads - 1) / threads;
    for (std::size_t t = 1; t < threads; ++t) {
        const std::size_t first = std::min(blocks.size(), t * share);
        const std::size_t end = std::min(blocks.size(), first + share);
        if (first < end) {
            helpers.emplace_back([&, first, end] {
                run({blocks.begin() + static_cast<std::ptrdiff_t>(first),
                     blocks.begin() + static_cast<std::ptrdiff_t>(end)},
                    from, fromStrides, to, toStrides);
            });
        }
    }
    run({blocks.begin(), blocks.begin() + static_cast<std::ptrdiff_t>(std::min(blocks.size(), share))}, from,
        fromStrides, to, toStrides);
}

void PixelConverter::run(const std::vector<const Block*>& blocks, const std::uint8_t* const from[],
                         const int fromStrides[], std::uint8_t* const to[], const int toStrides[]) const {
    for (const Block* block : blocks) {
        const std::uint8_t* in[4] = {};
        std::uint8_t* out[4] = {};
        for (int p = 0; p < 4; ++p) {
            if (from[p] != nullptr) {
                in[p] = from[p] +
                        static_cast<std::ptrdiff_t>(planeRow(m_from, p, block->firstRow)) * fromStrides[p];
            }
            if (to[p] != nullptr) {
                out[p] =
                    to[p] + static_cast<std::ptrdiff_t>(planeRow(m_to, p, block->firstRow)) * toStrides[p];
            }
        }
        sws_scale(block->context.get(), in, fromStrides, 0, block->rows, out, toStrides);
    }
}

} // namespace marlowick::av
