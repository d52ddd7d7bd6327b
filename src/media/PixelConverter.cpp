#include "media/PixelConverter.h"

#include "media/MediaError.h"

#include <algorithm>
#include <map>
#include <thread>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace marlowick::av {

namespace {

static_assert(PixelConverter::tileWidth % 16 == 0 && PixelConverter::tileRows % 16 == 0);

// How far down plane `plane` of `format` row `row` of the picture lies.
int planeRow(AVPixelFormat format, int plane, int row) {
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(format);
    const bool chroma = (plane == 1 || plane == 2) && (desc->flags & AV_PIX_FMT_FLAG_RGB) == 0;
    return chroma ? row >> desc->log2_chroma_h : row;
}

// The bytes into each plane's rows at which column `x` (even) of the picture lies.
void columnOffsets(AVPixelFormat format, int x, int offsets[4]) {
    std::fill(offsets, offsets + 4, 0);
    if (x > 0) {
        av_image_fill_linesizes(offsets, format, x);
    }
}

int threadCount(int height) {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const int threads = static_cast<int>(std::clamp(cores / 2, 1u, 4u));
    return height >= 64 * threads ? threads : 1;
}

// The shape of the tile at (x, y): 1 set at the right edge, 2 at the bottom.
int shapeAt(int x, int y, int width, int height) {
    return (x + PixelConverter::tileWidth >= width ? 1 : 0) |
           (y + PixelConverter::tileRows >= height ? 2 : 0);
}
// A band of tiles across the whole picture is converted in one call, with a context as wide as the
// picture: a whole 1080p picture takes 68 calls of the converter instead of 544, whose setting-up cost
// about as much as a third of the conversion. Shape 4 is a band, 6 the band at the bottom.
constexpr int bandShape = 4;

} // namespace

PixelConverter::PixelConverter(int width, int height, AVPixelFormat from, AVPixelFormat to, int threads)
    : m_width(width)
    , m_height(height)
    , m_from(from)
    , m_to(to) {
    const int lastWidth = width - (width - 1) / tileWidth * tileWidth;
    const int lastRows = height - (height - 1) / tileRows * tileRows;
    m_contexts.resize(static_cast<std::size_t>(threads > 0 ? threads : threadCount(height)));
    for (std::vector<ScaleContext>& shapes : m_contexts) {
        for (int shape = 0; shape < 7; ++shape) {
            const bool band = (shape & bandShape) != 0;
            const int w = band ? width : (shape & 1) ? lastWidth : tileWidth;
            const int h = (shape & 2) ? lastRows : tileRows;
            // Shapes no tile has (a picture one tile wide has none of full width) get no context.
            const bool exists = shape != 5 && (band || (shape & 1) || width > tileWidth) &&
                                ((shape & 2) || height > tileRows);
            ScaleContext context(
                exists ? sws_getContext(w, h, from, w, h, to, SWS_POINT, nullptr, nullptr, nullptr)
                       : nullptr);
            if (exists && !context) {
                throw MediaError(MediaErrorKind::unsupported, std::string("no conversion from ") +
                                                                  av_get_pix_fmt_name(from) + " to " +
                                                                  av_get_pix_fmt_name(to));
            }
            shapes.push_back(std::move(context));
        }
    }
}

void PixelConverter::setColorspace(const int* fromCoefficients, bool fromFullRange, const int* toCoefficients,
                                   bool toFullRange) {
    const Colorspace wanted{fromCoefficients, fromFullRange, toCoefficients, toFullRange};
    if (m_colorspace == wanted) {
        return; // the converter rebuilds its tables on every call
    }
    m_colorspace = wanted;
    for (std::vector<ScaleContext>& shapes : m_contexts) {
        for (ScaleContext& context : shapes) {
            if (context) {
                sws_setColorspaceDetails(context.get(), fromCoefficients, fromFullRange ? 1 : 0,
                                         toCoefficients, toFullRange ? 1 : 0, 0, 1 << 16, 1 << 16);
            }
        }
    }
}

std::vector<PixelRect> PixelConverter::tilesMeeting(const std::vector<PixelRect>& areas, int width,
                                                    int height) {
    const int columns = (width + tileWidth - 1) / tileWidth;
    const int rows = (height + tileRows - 1) / tileRows;
    if (columns <= 0 || rows <= 0) {
        return {};
    }
    std::vector<bool> met(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
    for (const PixelRect& a : areas) {
        const int x0 = std::clamp(a.x, 0, width);
        const int y0 = std::clamp(a.y, 0, height);
        const int x1 = std::clamp(a.x + a.width, x0, width);
        const int y1 = std::clamp(a.y + a.height, y0, height);
        if (x1 <= x0 || y1 <= y0) {
            continue;
        }
        for (int r = y0 / tileRows; r <= (y1 - 1) / tileRows; ++r) {
            for (int c = x0 / tileWidth; c <= (x1 - 1) / tileWidth; ++c) {
                met[static_cast<std::size_t>(r * columns + c)] = true;
            }
        }
    }
    std::vector<PixelRect> tiles;
    // The runs of the last row of tiles, by their first and end column, and where their rectangle is.
    std::map<std::pair<int, int>, std::size_t> open;
    for (int r = 0; r < rows; ++r) {
        std::map<std::pair<int, int>, std::size_t> next;
        const int y = r * tileRows;
        const int rowsHere = std::min(tileRows, height - y);
        for (int c = 0; c < columns;) {
            if (!met[static_cast<std::size_t>(r * columns + c)]) {
                ++c;
                continue;
            }
            int end = c;
            while (end < columns && met[static_cast<std::size_t>(r * columns + end)]) {
                ++end;
            }
            const auto run = std::pair{c, end};
            if (const auto found = open.find(run); found != open.end()) {
                tiles[found->second].height += rowsHere;
                next[run] = found->second;
            } else {
                const int x = c * tileWidth;
                tiles.push_back({x, y, std::min(width, end * tileWidth) - x, rowsHere});
                next[run] = tiles.size() - 1;
            }
            c = end;
        }
        open = std::move(next);
    }
    return tiles;
}

void PixelConverter::convert(const std::uint8_t* const from[], const int fromStrides[],
                             std::uint8_t* const to[], const int toStrides[]) const {
    convertAreas(from, fromStrides, to, toStrides, {{0, 0, m_width, m_height}});
}

void PixelConverter::convertAreas(const std::uint8_t* const from[], const int fromStrides[],
                                  std::uint8_t* const to[], const int toStrides[],
                                  const std::vector<PixelRect>& areas) const {
    std::vector<Tile> tiles;
    for (const PixelRect& run : tilesMeeting(areas, m_width, m_height)) {
        for (int y = run.y; y < run.y + run.height; y += tileRows) {
            if (run.width == m_width) {
                tiles.push_back({0, y, bandShape | (shapeAt(0, y, m_width, m_height) & 2)});
                continue;
            }
            for (int x = run.x; x < run.x + run.width; x += tileWidth) {
                tiles.push_back({x, y, shapeAt(x, y, m_width, m_height)});
            }
        }
    }
    // A few tiles aren't worth a thread's start.
    const std::size_t threads = tiles.size() >= 16 ? m_contexts.size() : 1;
    const std::size_t share = (tiles.size() + threads - 1) / threads;
    const Tile* begin = tiles.data();
    const Tile* end = tiles.data() + tiles.size();
    std::vector<std::jthread> helpers;
    for (std::size_t t = 1; t < threads; ++t) {
        const Tile* first = std::min(end, begin + t * share);
        const Tile* last = std::min(end, first + share);
        if (first < last) {
            helpers.emplace_back([=, this] { run(first, last, t, from, fromStrides, to, toStrides); });
        }
    }
    run(begin, std::min(end, begin + share), 0, from, fromStrides, to, toStrides);
}

void PixelConverter::run(const Tile* first, const Tile* end, std::size_t thread,
                         const std::uint8_t* const from[], const int fromStrides[], std::uint8_t* const to[],
                         const int toStrides[]) const {
    const std::vector<ScaleContext>& shapes = m_contexts[thread];
    for (const Tile* tile = first; tile < end; ++tile) {
        int fromColumn[4];
        int toColumn[4];
        columnOffsets(m_from, tile->x, fromColumn);
        columnOffsets(m_to, tile->x, toColumn);
        const std::uint8_t* in[4] = {};
        std::uint8_t* out[4] = {};
        for (int p = 0; p < 4; ++p) {
            if (from[p] != nullptr) {
                in[p] = from[p] + static_cast<std::ptrdiff_t>(planeRow(m_from, p, tile->y)) * fromStrides[p] +
                        fromColumn[p];
            }
            if (to[p] != nullptr) {
                out[p] = to[p] + static_cast<std::ptrdiff_t>(planeRow(m_to, p, tile->y)) * toStrides[p] +
                         toColumn[p];
            }
        }
        const int rows = (tile->shape & 2) ? m_height - tile->y : tileRows;
        sws_scale(shapes[static_cast<std::size_t>(tile->shape)].get(), in, fromStrides, 0, rows, out,
                  toStrides);
    }
}

} // namespace marlowick::av
