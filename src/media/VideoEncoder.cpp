#include "media/VideoEncoder.h"

#include "media/FFmpeg.h"
#include "media/MediaError.h"

#include <cmath>

extern "C" {
#include <libavutil/opt.h>
}

namespace marlowick {

namespace fs = std::filesystem;

namespace {

// Frame times are counted in 1/90000 s, fine enough for any frame rate's timestamps.
constexpr AVRational timeBase{1, 90000};

[[noreturn]] void fail(const fs::path& path, const std::string& what, int code) {
    throw MediaError(path.string() + ": " + what + ": " + describeAvError(code));
}

} // namespace

struct VideoEncoder::State {
    fs::path path;
    Settings settings;
    av::OutputFormat output;
    av::CodecContext codec;
    AVStream* stream = nullptr;
    std::unique_ptr<av::StreamEncoder> encoding;
    av::Frame frame{av_frame_alloc()};
    av::ScaleContext scaler;
    int64_t lastPts = -1;
    bool finished = false;
};

VideoEncoder::VideoEncoder(const fs::path& path, const Settings& settings)
    : m_state(std::make_unique<State>()) {
    av::quietLog();
    State& s = *m_state;
    s.path = path;
    s.settings = settings;

    AVFormatContext* raw = nullptr;
    int result = avformat_alloc_output_context2(
        &raw, nullptr, settings.container == Container::mp4 ? "mp4" : "mov", path.c_str());
    if (result < 0) {
        fail(path, "can't write", result);
    }
    s.output.reset(raw);

    const bool prores = settings.codec == Codec::prores4444;
    const char* name = prores ? "prores_ks" : (settings.codec == Codec::hevc ? "libx265" : "libx264");
    const AVCodec* encoder = avcodec_find_encoder_by_name(name);
    if (encoder == nullptr) {
        throw MediaError(path.string() + ": no " + name + " encoder");
    }
    s.codec.reset(avcodec_alloc_context3(encoder));
    AVCodecContext& c = *s.codec;
    c.width = settings.width;
    c.height = settings.height;
    c.time_base = timeBase;
    c.framerate = av_d2q(settings.frameRate, 1000);
    c.sample_aspect_ratio = {1, 1};
    c.thread_count = 0; // as many as the machine has
    if (prores) {
        c.pix_fmt = AV_PIX_FMT_YUVA444P10LE;
        av_opt_set(c.priv_data, "profile", "4444", 0);
    } else {
        c.pix_fmt = AV_PIX_FMT_YUV420P;
        c.color_range = AVCOL_RANGE_MPEG;
        c.colorspace = AVCOL_SPC_BT709;
        c.color_primaries = AVCOL_PRI_BT709;
        c.color_trc = AVCOL_TRC_BT709;
        // Screen content is mostly flat areas and sharp text: a constant quality that keeps text crisp.
        // The presets trade compression for speed so that a long export on two cores doesn't crawl,
        // and 4K a step further, since it has four times the pixels.
        const bool large = settings.width * settings.height > 1920 * 1080;
        if (settings.codec == Codec::hevc) {
            av_opt_set(c.priv_data, "preset", large ? "superfast" : "fast", 0);
            av_opt_set(c.priv_data, "crf", "22", 0);
            av_opt_set(c.priv_data, "x265-params", "log-level=none", 0);
            c.codec_tag = MKTAG('h', 'v', 'c', '1'); // what players on every platform expect in MP4/QuickTime
        } else {
            av_opt_set(c.priv_data, "preset", large ? "superfast" : "veryfast", 0);
            av_opt_set(c.priv_data, "crf", "18", 0);
        }
    }
    if (raw->oformat->flags & AVFMT_GLOBALHEADER) {
        c.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    if ((result = avcodec_open2(&c, encoder, nullptr)) < 0) {
        fail(path, std::string("can't open the ") + name + " encoder", result);
    }
    s.stream = avformat_new_stream(raw, nullptr);
    avcodec_parameters_from_context(s.stream->codecpar, &c);
    s.stream->time_base = timeBase;
    s.stream->avg_frame_rate = c.framerate;
    if ((result = avio_open(&raw->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) {
        fail(path, "can't create", result);
    }
    if ((result = avformat_write_header(raw, nullptr)) < 0) {
        fail(path, "can't write", result);
    }
    s.encoding = std::make_unique<av::StreamEncoder>(*raw, c, *s.stream, path);

    s.frame->format = c.pix_fmt;
    s.frame->width = c.width;
    s.frame->height = c.height;
    if ((result = av_frame_get_buffer(s.frame.get(), 0)) < 0) {
        fail(path, "no frame buffer", result);
    }
    s.scaler.reset(sws_getContext(c.width, c.height, AV_PIX_FMT_BGRA, c.width, c.height, c.pix_fmt, SWS_POINT,
                                  nullptr, nullptr, nullptr));
    if (!s.scaler) {
        throw MediaError(path.string() + ": no conversion from BGRA to the codec's format");
    }
    if (!prores) {
        // Into limited-range BT.709, as the stream says.
        const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
        sws_setColorspaceDetails(s.scaler.get(), bt709, 1, bt709, 0, 0, 1 << 16, 1 << 16);
    }
}

VideoEncoder::~VideoEncoder() = default;

void VideoEncoder::encode(const std::uint8_t* bgra, int stride, double time) {
    State& s = *m_state;
    int result = av_frame_make_writable(s.frame.get());
    if (result < 0) {
        fail(s.path, "no frame buffer", result);
    }
    const uint8_t* planes[1] = {bgra};
    const int strides[1] = {stride};
    sws_scale(s.scaler.get(), planes, strides, 0, s.settings.height, s.frame->data, s.frame->linesize);
    // Timestamps must rise; a time that rounds onto the last one moves a tick on.
    int64_t pts = std::llround(time * timeBase.den / timeBase.num);
    if (pts <= s.lastPts) {
        pts = s.lastPts + 1;
    }
    s.lastPts = pts;
    s.frame->pts = pts;
    s.encoding->send(s.frame.get());
}

void VideoEncoder::finish() {
    State& s = *m_state;
    if (s.finished) {
        return;
    }
    s.encoding->send(nullptr);
    if (const int result = av_write_trailer(s.output.get()); result < 0) {
        fail(s.path, "writing", result);
    }
    s.finished = true;
}

} // namespace marlowick
