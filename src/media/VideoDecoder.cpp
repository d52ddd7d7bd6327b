#include "media/VideoDecoder.h"

#include "media/AvInput.h"
#include "media/MediaError.h"
#include "media/PixelConverter.h"
#include "media/StreamDecoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace marlowick {

namespace {

// A frame that starts within this of the asked time counts as starting at it.
constexpr double timeTolerance = 1e-6;

} // namespace

struct VideoDecoder::State {
    std::filesystem::path path;
    av::InputFormat format;
    std::unique_ptr<av::StreamDecoder> decoder;
    AVStream* stream = nullptr;
    av::Frame frame{av_frame_alloc()};
    av::Frame held{av_frame_alloc()};
    av::Frame previous{av_frame_alloc()}; // the picture `next` handed out last, for comparison
    std::unique_ptr<av::PixelConverter> converter;
    double start = 0;      // seconds: the stream's first timestamp
    double lastTime = -1;  // seconds: the last frame handed out, for frames without a timestamp
    bool draining = false; // the demuxer is at its end and the decoder is being emptied

    double frameTime(const AVFrame& f) {
        const int64_t pts = f.best_effort_timestamp;
        if (pts == AV_NOPTS_VALUE) {
            return lastTime < 0 ? 0 : lastTime + 1 / rate();
        }
        return static_cast<double>(pts) * av_q2d(stream->time_base) - start;
    }

    double rate() const {
        const AVRational r = stream->avg_frame_rate.num > 0 ? stream->avg_frame_rate : stream->r_frame_rate;
        return r.num > 0 && r.den > 0 ? av_q2d(r) : 30.0;
    }

    bool receive() { return decoder->receive(frame.get()); }

    BgraImage convert(const AVFrame& f) {
        BgraImage image;
        convert(f, image);
        return image;
    }

    // Converts the picture into `image`, or only the tiles of it that meet `areas` when given.
    void convert(const AVFrame& f, BgraImage& image, const std::vector<PixelRect>* areas = nullptr) {
        const auto pixelFormat = static_cast<AVPixelFormat>(f.format);
        if (!converter || converter->width() != f.width || converter->height() != f.height ||
            converter->from() != pixelFormat) {
            try {
                converter =
                    std::make_unique<av::PixelConverter>(f.width, f.height, pixelFormat, AV_PIX_FMT_BGRA);
            } catch (const MediaError&) {
                throw MediaError(MediaErrorKind::unsupported,
                                 path.string() + ": no conversion of the video's pixel format to BGRA");
            }
        }
        // Screen recordings are usually BT.709; the converter assumes BT.601 unless told.
        const int space = f.colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_DEFAULT;
        const int* coefficients = sws_getCoefficients(space);
        converter->setColorspace(coefficients, f.color_range == AVCOL_RANGE_JPEG, coefficients, true);
        if (image.width != f.width || image.height != f.height) {
            // FFmpeg's converter writes whole groups of 16 pixels: rows are padded to that, so that a group
            // reaching past a row's end lands in its padding, never in the next row or past the buffer.
            const int stride = FFALIGN(f.width, 16) * 4;
            image = {f.width, f.height, stride,
                     std::vector<std::uint8_t>(static_cast<std::size_t>(stride) *
                                               static_cast<std::size_t>(f.height))};
        }
        uint8_t* planes[4] = {image.bytes.data(), nullptr, nullptr, nullptr};
        const int strides[4] = {image.stride, 0, 0, 0};
        if (areas != nullptr) {
            converter->convertAreas(f.data, f.linesize, planes, strides, *areas);
        } else {
            converter->convert(f.data, f.linesize, planes, strides);
        }
    }
};

VideoDecoder::VideoDecoder(const std::filesystem::path& movie)
    : m_state(std::make_unique<State>()) {
    State& s = *m_state;
    s.path = movie;
    s.format = av::openInput(movie);
    AVFormatContext* raw = s.format.get();
    const int index = av_find_best_stream(raw, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0) {
        throw MediaError(MediaErrorKind::missingTrack, movie.string() + ": no video stream");
    }
    s.stream = raw->streams[index];
    s.decoder = std::make_unique<av::StreamDecoder>(*raw, index, movie);
    s.start = s.stream->start_time == AV_NOPTS_VALUE
                  ? 0
                  : static_cast<double>(s.stream->start_time) * av_q2d(s.stream->time_base);
}

VideoDecoder::~VideoDecoder() = default;

int VideoDecoder::width() const {
    return m_state->decoder->codec().width;
}
int VideoDecoder::height() const {
    return m_state->decoder->codec().height;
}
double VideoDecoder::frameRate() const {
    return m_state->rate();
}

double VideoDecoder::duration() const {
    const State& s = *m_state;
    if (s.stream->duration != AV_NOPTS_VALUE) {
        return static_cast<double>(s.stream->duration) * av_q2d(s.stream->time_base);
    }
    return s.format->duration == AV_NOPTS_VALUE ? 0 : static_cast<double>(s.format->duration) / AV_TIME_BASE;
}

std::optional<VideoDecoder::Frame> VideoDecoder::next() {
    State& s = *m_state;
    if (!s.receive()) {
        return std::nullopt;
    }
    const double time = s.frameTime(*s.frame);
    s.lastTime = time;
    Frame out{time, s.convert(*s.frame)};
    av_frame_unref(s.frame.get());
    return out;
}

int VideoDecoder::timeScale() const {
    const AVRational base = m_state->stream->time_base;
    return base.num == 1 && base.den > 0 ? base.den : 90000;
}

namespace {

// Rows whose changes lie closer than this are reported as one area: a few areas, each drawn, read and
// converted in one go, cost less than many thin ones.
constexpr int areaGap = 16;
constexpr std::size_t mostAreas = 16;
// Pixels around a changed sample that its conversion may reach: chroma shared with a neighbour, and
// interpolated where the converter does so.
constexpr int conversionReach = 2;

// The index of the first and of the last byte at which `a` and `b`, which differ, differ.
std::size_t firstDifference(const std::uint8_t* a, const std::uint8_t* b, std::size_t n) {
    std::size_t i = 0;
    while (i + 8 <= n && std::memcmp(a + i, b + i, 8) == 0) {
        i += 8;
    }
    while (i < n && a[i] == b[i]) {
        ++i;
    }
    return i;
}
std::size_t lastDifference(const std::uint8_t* a, const std::uint8_t* b, std::size_t n) {
    std::size_t end = n;
    while (end >= 8 && std::memcmp(a + end - 8, b + end - 8, 8) == 0) {
        end -= 8;
    }
    while (end > 0 && a[end - 1] == b[end - 1]) {
        --end;
    }
    return end - 1;
}

// Where picture `a` differs from picture `b`: runs of changed rows, each as wide as the changes in its
// rows reach. Everywhere when they can't be compared (another size or format, frames in GPU memory).
PictureChange pictureChange(const AVFrame& a, const AVFrame& b) {
    if (a.format != b.format || a.width != b.width || a.height != b.height || a.format < 0) {
        return PictureChange::everywhere();
    }
    const auto format = static_cast<AVPixelFormat>(a.format);
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(format);
    if (desc == nullptr ||
        (desc->flags & (AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_PAL)) != 0) {
        return PictureChange::everywhere();
    }
    int rowBytes[4] = {};
    if (av_image_fill_linesizes(rowBytes, format, a.width) < 0) {
        return PictureChange::everywhere();
    }
    const int width = a.width;
    const int height = a.height;
    // The changed pixels of each row of the picture, as [left, right).
    std::vector<int> left(static_cast<std::size_t>(height), width);
    std::vector<int> right(static_cast<std::size_t>(height), 0);
    const int planes = av_pix_fmt_count_planes(format);
    for (int p = 0; p < planes; ++p) {
        const bool chroma = (p == 1 || p == 2) && (desc->flags & AV_PIX_FMT_FLAG_RGB) == 0;
        const int shiftW = chroma ? desc->log2_chroma_w : 0;
        const int shiftH = chroma ? desc->log2_chroma_h : 0;
        const int planeWidth = AV_CEIL_RSHIFT(width, shiftW);
        const int bytesPerPixel = std::max(1, rowBytes[p] / std::max(1, planeWidth));
        const int rows = AV_CEIL_RSHIFT(height, shiftH);
        const auto n = static_cast<std::size_t>(rowBytes[p]);
        for (int y = 0; y < rows; ++y) {
            const std::uint8_t* ra = a.data[p] + static_cast<std::ptrdiff_t>(y) * a.linesize[p];
            const std::uint8_t* rb = b.data[p] + static_cast<std::ptrdiff_t>(y) * b.linesize[p];
            if (std::memcmp(ra, rb, n) == 0) {
                continue;
            }
            const std::size_t first = firstDifference(ra, rb, n);
            const std::size_t last = lastDifference(ra, rb, n);
            const int x0 = (static_cast<int>(first) / bytesPerPixel) << shiftW;
            const int x1 = std::min(width, ((static_cast<int>(last) / bytesPerPixel) + 1) << shiftW);
            for (int py = y << shiftH; py < std::min(height, (y + 1) << shiftH); ++py) {
                left[static_cast<std::size_t>(py)] = std::min(left[static_cast<std::size_t>(py)], x0);
                right[static_cast<std::size_t>(py)] = std::max(right[static_cast<std::size_t>(py)], x1);
            }
        }
        // The areas found at the end hold these rows' changes, so a picture whose first plane already
        // changed over most of it is whole: the other planes needn't be looked at.
        std::int64_t changed = 0;
        for (int y = 0; y < height; ++y) {
            changed += std::max(0, right[static_cast<std::size_t>(y)] - left[static_cast<std::size_t>(y)]);
        }
        if (changed * 2 > static_cast<std::int64_t>(width) * height) {
            return PictureChange::everywhere();
        }
    }

    PictureChange change = PictureChange::nowhere();
    for (int gap = areaGap;; gap *= 2) {
        change.areas.clear();
        int lastChanged = -1;
        for (int y = 0; y < height; ++y) {
            const auto i = static_cast<std::size_t>(y);
            if (right[i] <= left[i]) {
                continue;
            }
            if (lastChanged >= 0 && y - lastChanged <= gap) {
                PixelRect& area = change.areas.back();
                const int x1 = std::max(area.x + area.width, right[i]);
                area.x = std::min(area.x, left[i]);
                area.width = x1 - area.x;
                area.height = y + 1 - area.y;
            } else {
                change.areas.push_back({left[i], y, right[i] - left[i], 1});
            }
            lastChanged = y;
        }
        if (change.areas.size() <= mostAreas) {
            break;
        }
    }
    std::int64_t changed = 0;
    for (PixelRect& area : change.areas) {
        const int x0 = std::max(0, area.x - conversionReach);
        const int y0 = std::max(0, area.y - conversionReach);
        const int x1 = std::min(width, area.x + area.width + conversionReach);
        const int y1 = std::min(height, area.y + area.height + conversionReach);
        area = {x0, y0, x1 - x0, y1 - y0};
        changed += static_cast<std::int64_t>(area.width) * area.height;
    }
    // A picture changed over most of its area is converted, drawn and uploaded whole: bringing a reused
    // image up to date first would copy the whole of it for the few places that stayed.
    if (changed * 2 > static_cast<std::int64_t>(width) * height) {
        return PictureChange::everywhere();
    }
    return change;
}

} // namespace

std::optional<double> VideoDecoder::next(BgraImage& image, const std::function<bool(double)>& wanted,
                                         PictureChange* change) {
    if (change != nullptr) {
        return next(
            wanted, [&image](const PictureChange&) -> BgraImage& { return image; }, *change);
    }
    State& s = *m_state;
    while (s.receive()) {
        const double time = s.frameTime(*s.frame);
        s.lastTime = time;
        if (wanted(time)) {
            s.convert(*s.frame, image);
            av_frame_unref(s.frame.get());
            return time;
        }
        av_frame_unref(s.frame.get());
    }
    return std::nullopt;
}

std::optional<double> VideoDecoder::next(const std::function<bool(double)>& wanted,
                                         const std::function<BgraImage&(const PictureChange&)>& place,
                                         PictureChange& change) {
    State& s = *m_state;
    while (s.receive()) {
        const double time = s.frameTime(*s.frame);
        s.lastTime = time;
        if (wanted(time)) {
            change = s.previous->data[0] != nullptr ? pictureChange(*s.frame, *s.previous)
                                                    : PictureChange::everywhere();
            av_frame_unref(s.previous.get());
            av_frame_ref(s.previous.get(), s.frame.get());
            if (change.whole) {
                s.convert(*s.frame, place(change));
            } else if (!change.areas.empty()) {
                s.convert(*s.frame, place(change), &change.areas);
            }
            av_frame_unref(s.frame.get());
            return time;
        }
        av_frame_unref(s.frame.get());
    }
    return std::nullopt;
}

void VideoDecoder::seek(double time) {
    State& s = *m_state;
    const auto target =
        static_cast<int64_t>(std::floor((std::max(time, 0.0) + s.start) / av_q2d(s.stream->time_base)));
    const int result = av_seek_frame(s.format.get(), s.stream->index, target, AVSEEK_FLAG_BACKWARD);
    if (result < 0) {
        failWith(MediaErrorKind::decodingFailed, s.path, "can't seek", result);
    }
    s.decoder->flush();
    s.decoder->skipFramesSupersededBy(target);
    s.lastTime = -1;
    av_frame_unref(s.previous.get());
}

std::optional<VideoDecoder::Frame> VideoDecoder::frameAt(double time) {
    State& s = *m_state;
    seek(time);
    // Decode on from the keyframe before `time`, holding the latest frame that starts by then.
    bool holding = false;
    double heldTime = 0;
    while (s.receive()) {
        const double t = s.frameTime(*s.frame);
        s.lastTime = t;
        if (holding && t > time + timeTolerance) {
            av_frame_unref(s.frame.get());
            break;
        }
        av_frame_unref(s.held.get());
        av_frame_move_ref(s.held.get(), s.frame.get());
        heldTime = t;
        holding = true;
        if (t > time + timeTolerance) {
            break; // the first frame already lies after `time`: it is what shows
        }
    }
    if (!holding) {
        return std::nullopt;
    }
    Frame out{heldTime, s.convert(*s.held)};
    av_frame_unref(s.held.get());
    return out;
}

} // namespace marlowick
