#include "media/VideoDecoder.h"

#include "media/FFmpeg.h"
#include "media/MediaError.h"

#include <cmath>
#include <mutex>

namespace marlowick {

std::string describeAvError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

namespace {

// Every failure reaches the caller as a MediaError that names the file; FFmpeg's own log would only
// repeat it on standard error.
void quietLog() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

// A frame that starts within this of the asked time counts as starting at it.
constexpr double timeTolerance = 1e-6;

} // namespace

struct VideoDecoder::State {
    std::filesystem::path path;
    av::InputFormat format;
    av::CodecContext codec;
    AVStream* stream = nullptr;
    av::Packet packet{av_packet_alloc()};
    av::Frame frame{av_frame_alloc()};
    av::Frame held{av_frame_alloc()};
    av::ScaleContext scaler;
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

    // The one decode loop: feeds packets of the video stream until the decoder gives a frame into
    // `frame`. False at the end of the stream.
    bool receive() {
        for (;;) {
            int result = avcodec_receive_frame(codec.get(), frame.get());
            if (result == 0) {
                return true;
            }
            if (result == AVERROR_EOF) {
                return false;
            }
            if (result != AVERROR(EAGAIN)) {
                fail("decoding", result);
            }
            result = av_read_frame(format.get(), packet.get());
            if (result == AVERROR_EOF || (result < 0 && draining)) {
                if (!draining) {
                    draining = true;
                    avcodec_send_packet(codec.get(), nullptr);
                    continue;
                }
                return false;
            }
            if (result < 0) {
                fail("reading", result);
            }
            if (packet->stream_index == stream->index) {
                result = avcodec_send_packet(codec.get(), packet.get());
                if (result < 0 && result != AVERROR(EAGAIN) && result != AVERROR_INVALIDDATA) {
                    av_packet_unref(packet.get());
                    fail("decoding", result);
                }
            }
            av_packet_unref(packet.get());
        }
    }

    BgraImage convert(const AVFrame& f) {
        scaler.reset(sws_getCachedContext(scaler.release(), f.width, f.height,
                                          static_cast<AVPixelFormat>(f.format), f.width, f.height,
                                          AV_PIX_FMT_BGRA, SWS_POINT, nullptr, nullptr, nullptr));
        if (!scaler) {
            throw MediaError(path.string() + ": no conversion of the video's pixel format to BGRA");
        }
        // Screen recordings are usually BT.709; the converter assumes BT.601 unless told.
        const int space = f.colorspace == AVCOL_SPC_BT709 ? SWS_CS_ITU709 : SWS_CS_DEFAULT;
        const int* coefficients = sws_getCoefficients(space);
        sws_setColorspaceDetails(scaler.get(), coefficients, f.color_range == AVCOL_RANGE_JPEG, coefficients,
                                 1, 0, 1 << 16, 1 << 16);
        BgraImage image = BgraImage::blank(f.width, f.height);
        uint8_t* planes[4] = {image.bytes.data(), nullptr, nullptr, nullptr};
        const int strides[4] = {image.stride, 0, 0, 0};
        sws_scale(scaler.get(), f.data, f.linesize, 0, f.height, planes, strides);
        return image;
    }
};

VideoDecoder::VideoDecoder(const std::filesystem::path& movie)
    : m_state(std::make_unique<State>()) {
    quietLog();
    State& s = *m_state;
    s.path = movie;
    AVFormatContext* raw = nullptr;
    int result = avformat_open_input(&raw, movie.c_str(), nullptr, nullptr);
    if (result < 0) {
        s.fail("can't open", result);
    }
    s.format.reset(raw);
    if ((result = avformat_find_stream_info(raw, nullptr)) < 0) {
        s.fail("can't read the streams", result);
    }
    const AVCodec* decoder = nullptr;
    const int index = av_find_best_stream(raw, AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (index < 0 || decoder == nullptr) {
        throw MediaError(movie.string() + ": no video stream that can be decoded");
    }
    s.stream = raw->streams[index];
    s.codec.reset(avcodec_alloc_context3(decoder));
    avcodec_parameters_to_context(s.codec.get(), s.stream->codecpar);
    s.codec->thread_count = 0; // as many as the machine has
    if ((result = avcodec_open2(s.codec.get(), decoder, nullptr)) < 0) {
        s.fail("can't open the video decoder", result);
    }
    s.start = s.stream->start_time == AV_NOPTS_VALUE
                  ? 0
                  : static_cast<double>(s.stream->start_time) * av_q2d(s.stream->time_base);
}

VideoDecoder::~VideoDecoder() = default;

int VideoDecoder::width() const {
    return m_state->codec->width;
}
int VideoDecoder::height() const {
    return m_state->codec->height;
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

void VideoDecoder::seek(double time) {
    State& s = *m_state;
    const auto target =
        static_cast<int64_t>(std::floor((std::max(time, 0.0) + s.start) / av_q2d(s.stream->time_base)));
    const int result = av_seek_frame(s.format.get(), s.stream->index, target, AVSEEK_FLAG_BACKWARD);
    if (result < 0) {
        s.fail("can't seek", result);
    }
    avcodec_flush_buffers(s.codec.get());
    s.draining = false;
    s.lastTime = -1;
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
