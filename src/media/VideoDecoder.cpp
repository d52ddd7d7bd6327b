#include "media/VideoDecoder.h"

#include "media/FFmpeg.h"
#include "media/MediaError.h"
#include "media/PixelConverter.h"

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

    [[noreturn]] void fail(const std::string& what, int code) const {
        throw MediaError(path.string() + ": " + what + ": " + describeAvError(code));
    }

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

    void convert(const AVFrame& f, BgraImage& image) {
        const auto pixelFormat = static_cast<AVPixelFormat>(f.format);
        if (!converter || converter->width() != f.width || converter->height() != f.height ||
            converter->from() != pixelFormat) {
            try {
                converter =
                    std::make_unique<av::PixelConverter>(f.width, f.height, pixelFormat, AV_PIX_FMT_BGRA);
            } catch (const MediaError&) {
                throw MediaError(path.string() + ": no conversion of the video's pixel format to BGRA");
            }
        }
        // Screen recordings are usually BT.709; the converter assumes BT.601 unless told.
        const int space = f.colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_DEFAULT;
        const int* coefficients = sws_getCoefficients(space);
        converter->setColorspace(coefficients, f.color_range == AVCOL_RANGE_JPEG, coefficients, true);
        if (image.width != f.width || image.height != f.height) {
            image = BgraImage::blank(f.width, f.height);
        }
        uint8_t* planes[4] = {image.bytes.data(), nullptr, nullptr, nullptr};
        const int strides[4] = {image.stride, 0, 0, 0};
        converter->convert(f.data, f.linesize, planes, strides);
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
        throw MediaError(movie.string() + ": no video stream");
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

// Whether two decoded pictures hold the same pixels, compared plane by plane and row by row.
bool samePicture(const AVFrame& a, const AVFrame& b) {
    if (a.format != b.format || a.width != b.width || a.height != b.height || a.format < 0) {
        return false;
    }
    const auto format = static_cast<AVPixelFormat>(a.format);
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(format);
    if (desc == nullptr || (desc->flags & (AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BITSTREAM)) != 0) {
        return false;
    }
    int rowBytes[4] = {};
    if (av_image_fill_linesizes(rowBytes, format, a.width) < 0) {
        return false;
    }
    const int planes = av_pix_fmt_count_planes(format);
    for (int p = 0; p < planes; ++p) {
        const bool chroma = (p == 1 || p == 2) && (desc->flags & AV_PIX_FMT_FLAG_RGB) == 0;
        const int rows = chroma ? AV_CEIL_RSHIFT(a.height, desc->log2_chroma_h) : a.height;
        for (int y = 0; y < rows; ++y) {
            if (std::memcmp(a.data[p] + static_cast<std::ptrdiff_t>(y) * a.linesize[p],
                            b.data[p] + static_cast<std::ptrdiff_t>(y) * b.linesize[p],
                            static_cast<std::size_t>(rowBytes[p])) != 0) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

std::optional<double> VideoDecoder::next(BgraImage& image, const std::function<bool(double)>& wanted,
                                         bool* changed) {
    State& s = *m_state;
    while (s.receive()) {
        const double time = s.frameTime(*s.frame);
        s.lastTime = time;
        if (wanted(time)) {
            if (changed != nullptr) {
                *changed = !samePicture(*s.frame, *s.previous);
                av_frame_unref(s.previous.get());
                av_frame_ref(s.previous.get(), s.frame.get());
                if (!*changed) {
                    av_frame_unref(s.frame.get());
                    return time;
                }
            }
            s.convert(*s.frame, image);
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
        s.fail("can't seek", result);
    }
    s.decoder->flush();
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
