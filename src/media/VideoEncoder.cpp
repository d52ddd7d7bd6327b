#include "media/VideoEncoder.h"

#include "media/FFmpeg.h"
#include "media/MediaError.h"
#include "media/PixelConverter.h"

#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <optional>

extern "C" {
#include <libavutil/hwcontext.h>
#include <libavutil/opt.h>
}

namespace marlowick {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const fs::path& path, const std::string& what, int code) {
    throw MediaError(path.string() + ": " + what + ": " + describeAvError(code));
}

const char* formatName(VideoEncoder::Container container) {
    return container == VideoEncoder::Container::mp4 ? "mp4" : "mov";
}

// An encoder that opened, with what its frames must be made of.
struct OpenEncoder {
    av::CodecContext codec;
    std::string name;
    av::BufferRef hardwareFrames;                      // the GPU's frame pool, for VAAPI only
    AVPixelFormat softwareFormat = AV_PIX_FMT_YUV420P; // what BGRA is converted into on the CPU
};

// Opens `name` with the common settings and whatever `configure` adds, or gives none when FFmpeg has no
// such encoder or it won't open (no device, no driver).
std::optional<OpenEncoder> tryOpen(const char* name, const VideoEncoder::Settings& settings,
                                   bool globalHeader, const std::function<bool(OpenEncoder&)>& configure,
                                   int* failure = nullptr) {
    const AVCodec* encoder = avcodec_find_encoder_by_name(name);
    if (encoder == nullptr) {
        return std::nullopt;
    }
    OpenEncoder open{av::CodecContext(avcodec_alloc_context3(encoder)), name, {}, AV_PIX_FMT_YUV420P};
    AVCodecContext& c = *open.codec;
    c.width = settings.width;
    c.height = settings.height;
    c.time_base = {1, settings.timeScale};
    c.framerate = av_d2q(settings.frameRate, 1000);
    c.sample_aspect_ratio = {1, 1};
    c.thread_count = 0; // as many as the machine has
    c.pix_fmt = AV_PIX_FMT_YUV420P;
    c.color_range = AVCOL_RANGE_MPEG;
    c.colorspace = AVCOL_SPC_BT709;
    c.color_primaries = AVCOL_PRI_BT709;
    c.color_trc = AVCOL_TRC_BT709;
    if (globalHeader) {
        c.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    if (settings.codec == VideoEncoder::Codec::hevc) {
        c.codec_tag = MKTAG('h', 'v', 'c', '1'); // what players on every platform expect in MP4/QuickTime
    }
    if (!configure(open)) {
        return std::nullopt;
    }
    if (const int result = avcodec_open2(&c, encoder, nullptr); result < 0) {
        if (failure != nullptr) {
            *failure = result;
        }
        return std::nullopt;
    }
    return open;
}

// The GPU encoders, NVENC first, then VAAPI on the default render node.
std::optional<OpenEncoder> openHardware(const VideoEncoder::Settings& settings, bool globalHeader) {
    const bool hevc = settings.codec == VideoEncoder::Codec::hevc;
    auto nvenc = tryOpen(hevc ? "hevc_nvenc" : "h264_nvenc", settings, globalHeader, [&](OpenEncoder& e) {
        // Constant quality in the range that keeps text sharp; NVENC's own presets run far above real time.
        av_opt_set(e.codec->priv_data, "preset", "p5", 0);
        av_opt_set(e.codec->priv_data, "tune", "hq", 0);
        av_opt_set(e.codec->priv_data, "rc", "vbr", 0);
        av_opt_set(e.codec->priv_data, "cq", hevc ? "23" : "21", 0);
        e.codec->bit_rate = 0;
        return true;
    });
    if (nvenc) {
        return nvenc;
    }
    return tryOpen(hevc ? "hevc_vaapi" : "h264_vaapi", settings, globalHeader, [&](OpenEncoder& e) {
        AVBufferRef* device = nullptr;
        if (av_hwdevice_ctx_create(&device, AV_HWDEVICE_TYPE_VAAPI, nullptr, nullptr, 0) < 0) {
            return false;
        }
        const av::BufferRef deviceRef(device);
        av::BufferRef frames(av_hwframe_ctx_alloc(device));
        if (!frames) {
            return false;
        }
        auto* context = reinterpret_cast<AVHWFramesContext*>(frames->data);
        context->format = AV_PIX_FMT_VAAPI;
        context->sw_format = AV_PIX_FMT_NV12;
        context->width = settings.width;
        context->height = settings.height;
        context->initial_pool_size = 16;
        if (av_hwframe_ctx_init(frames.get()) < 0) {
            return false;
        }
        e.codec->pix_fmt = AV_PIX_FMT_VAAPI;
        e.codec->hw_frames_ctx = av_buffer_ref(frames.get());
        e.codec->global_quality = hevc ? 24 : 22; // constant quantiser
        e.softwareFormat = AV_PIX_FMT_NV12;
        e.hardwareFrames = std::move(frames);
        return true;
    });
}

OpenEncoder openSoftware(const fs::path& path, const VideoEncoder::Settings& settings, bool globalHeader) {
    const bool prores = settings.codec == VideoEncoder::Codec::prores4444;
    const char* name =
        prores ? "prores_ks" : (settings.codec == VideoEncoder::Codec::hevc ? "libx265" : "libx264");
    if (avcodec_find_encoder_by_name(name) == nullptr) {
        throw MediaError(path.string() + ": no " + name + " encoder");
    }
    int failure = 0;
    auto open = tryOpen(
        name, settings, globalHeader,
        [&](OpenEncoder& e) {
            AVCodecContext& c = *e.codec;
            if (prores) {
                c.pix_fmt = AV_PIX_FMT_YUVA444P10LE;
                c.color_range = AVCOL_RANGE_UNSPECIFIED;
                c.colorspace = AVCOL_SPC_UNSPECIFIED;
                c.color_primaries = AVCOL_PRI_UNSPECIFIED;
                c.color_trc = AVCOL_TRC_UNSPECIFIED;
                av_opt_set(c.priv_data, "profile", "4444", 0);
                e.softwareFormat = AV_PIX_FMT_YUVA444P10LE;
                return true;
            }
            // Screen content is mostly flat areas and sharp text: a constant quality that keeps text crisp.
            // The presets trade compression for speed so that a long export on two cores doesn't crawl, and
            // 4K a step further, since it has four times the pixels.
            const bool large = settings.width * settings.height > 1920 * 1080;
            if (settings.codec == VideoEncoder::Codec::hevc) {
                av_opt_set(c.priv_data, "preset", large ? "superfast" : "fast", 0);
                av_opt_set(c.priv_data, "crf", "22", 0);
                av_opt_set(c.priv_data, "x265-params", "log-level=none", 0);
            } else {
                av_opt_set(c.priv_data, "preset", large ? "superfast" : "veryfast", 0);
                av_opt_set(c.priv_data, "crf", "18", 0);
            }
            return true;
        },
        &failure);
    if (!open) {
        fail(path, std::string("can't open the ") + name + " encoder", failure);
    }
    return std::move(*open);
}

// One audio stream of another file, copied packet by packet into an output stream.
struct AudioCopy {
    fs::path file;
    av::InputFormat input;
    AVStream* source = nullptr;
    AVStream* target = nullptr;
    av::Packet packet{av_packet_alloc()};
    bool holding = false; // `packet` was read and waits for its time
    bool ended = false;

    // Seconds at which the held packet is due, on the source's clock.
    double due() const {
        const int64_t t = packet->dts != AV_NOPTS_VALUE ? packet->dts : packet->pts;
        return t == AV_NOPTS_VALUE ? 0 : static_cast<double>(t) * av_q2d(source->time_base);
    }

    // Reads up to the next packet of the stream; false at the end.
    bool read() {
        for (;;) {
            const int result = av_read_frame(input.get(), packet.get());
            if (result == AVERROR_EOF) {
                return false;
            }
            if (result < 0) {
                fail(file, "reading the sound", result);
            }
            if (packet->stream_index == source->index) {
                return true;
            }
            av_packet_unref(packet.get());
        }
    }
};

int audioStreamIndex(const AVFormatContext& input, const VideoEncoder::AudioTrack& track) {
    const std::vector<int> streams = av::streamsOfType(input, AVMEDIA_TYPE_AUDIO);
    if (track.track >= streams.size()) {
        throw MediaError(track.file.string() + ": has no audio track " + std::to_string(track.track));
    }
    return streams[track.track];
}

} // namespace

struct VideoEncoder::State {
    fs::path path;
    Settings settings;
    av::OutputFormat output;
    OpenEncoder encoder;
    AVStream* stream = nullptr;
    std::unique_ptr<av::StreamEncoder> encoding;
    av::Frame frame{av_frame_alloc()};         // the converted picture, in the CPU's memory
    av::Frame hardwareFrame{av_frame_alloc()}; // its copy in the GPU's pool, for VAAPI
    std::unique_ptr<av::PixelConverter> converter;
    std::vector<AudioCopy> audio;
    int64_t lastPts = -1;
    bool drained = false; // the video encoder has given out its last packet
    bool finished = false;

    // Writes every held or readable audio packet due by `until` seconds; false when stopped first.
    bool copyAudio(double until, const std::stop_token& stop) {
        for (AudioCopy& copy : audio) {
            while (!copy.ended) {
                if (stop.stop_requested()) {
                    return false;
                }
                if (!copy.holding) {
                    copy.holding = copy.read();
                    if (!copy.holding) {
                        copy.ended = true;
                        break;
                    }
                }
                if (copy.due() > until) {
                    break;
                }
                av_packet_rescale_ts(copy.packet.get(), copy.source->time_base, copy.target->time_base);
                copy.packet->stream_index = copy.target->index;
                copy.packet->pos = -1;
                copy.holding = false;
                if (const int result = av_interleaved_write_frame(output.get(), copy.packet.get());
                    result < 0) {
                    fail(path, "writing the sound", result);
                }
            }
        }
        return true;
    }
};

bool VideoEncoder::canCarry(Container container, const AudioTrack& track) {
    const av::InputFormat input = av::openInput(track.file);
    const AVStream* stream = input->streams[audioStreamIndex(*input, track)];
    const AVOutputFormat* format = av_guess_format(formatName(container), nullptr, nullptr);
    return format != nullptr &&
           avformat_query_codec(format, stream->codecpar->codec_id, FF_COMPLIANCE_NORMAL) == 1;
}

VideoEncoder::VideoEncoder(const fs::path& path, const Settings& settings)
    : m_state(std::make_unique<State>()) {
    av::quietLog();
    State& s = *m_state;
    s.path = path;
    s.settings = settings;
    if (s.settings.timeScale <= 0) {
        s.settings.timeScale = 90000;
    }

    AVFormatContext* raw = nullptr;
    int result = avformat_alloc_output_context2(&raw, nullptr, formatName(settings.container), path.c_str());
    if (result < 0) {
        fail(path, "can't write", result);
    }
    s.output.reset(raw);
    const bool globalHeader = (raw->oformat->flags & AVFMT_GLOBALHEADER) != 0;

    std::optional<OpenEncoder> hardware;
    // MARLOWICK_SOFTWARE_ENCODER keeps to libx264/libx265, to compare or to work around a driver.
    if (settings.allowHardware && settings.codec != Codec::prores4444 &&
        std::getenv("MARLOWICK_SOFTWARE_ENCODER") == nullptr) {
        hardware = openHardware(s.settings, globalHeader);
    }
    s.encoder = hardware ? std::move(*hardware) : openSoftware(path, s.settings, globalHeader);
    AVCodecContext& c = *s.encoder.codec;

    s.stream = avformat_new_stream(raw, nullptr);
    avcodec_parameters_from_context(s.stream->codecpar, &c);
    s.stream->time_base = c.time_base;
    s.stream->avg_frame_rate = c.framerate;

    for (const AudioTrack& track : settings.audio) {
        AudioCopy copy;
        copy.file = track.file;
        copy.input = av::openInput(track.file);
        const int index = audioStreamIndex(*copy.input, track);
        for (unsigned i = 0; i < copy.input->nb_streams; ++i) {
            copy.input->streams[i]->discard =
                static_cast<int>(i) == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
        }
        copy.source = copy.input->streams[index];
        if (avformat_query_codec(raw->oformat, copy.source->codecpar->codec_id, FF_COMPLIANCE_NORMAL) != 1) {
            throw MediaError(path.string() + ": can't store the " +
                             avcodec_get_name(copy.source->codecpar->codec_id) + " sound of " +
                             track.file.string());
        }
        copy.target = avformat_new_stream(raw, nullptr);
        avcodec_parameters_copy(copy.target->codecpar, copy.source->codecpar);
        copy.target->codecpar->codec_tag = 0; // the container picks its own tag
        copy.target->time_base = copy.source->time_base;
        av_dict_copy(&copy.target->metadata, copy.source->metadata, 0);
        s.audio.push_back(std::move(copy));
    }

    if ((result = avio_open(&raw->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) {
        fail(path, "can't create", result);
    }
    if ((result = avformat_write_header(raw, nullptr)) < 0) {
        fail(path, "can't write", result);
    }
    s.encoding = std::make_unique<av::StreamEncoder>(*raw, c, *s.stream, path);

    s.frame->format = s.encoder.softwareFormat;
    s.frame->width = c.width;
    s.frame->height = c.height;
    if ((result = av_frame_get_buffer(s.frame.get(), 0)) < 0) {
        fail(path, "no frame buffer", result);
    }
    const AVPixelFormat input = settings.input == PixelOrder::rgba ? AV_PIX_FMT_RGBA : AV_PIX_FMT_BGRA;
    s.converter = std::make_unique<av::PixelConverter>(c.width, c.height, input, s.encoder.softwareFormat);
    if (settings.codec != Codec::prores4444) {
        // Into limited-range BT.709, as the stream says.
        const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
        s.converter->setColorspace(bt709, true, bt709, false);
    }
}

VideoEncoder::~VideoEncoder() = default;

std::string VideoEncoder::encoderName() const {
    return m_state->encoder.name;
}

void VideoEncoder::encode(const std::uint8_t* bgra, int stride, double time) {
    State& s = *m_state;
    int result = av_frame_make_writable(s.frame.get());
    if (result < 0) {
        fail(s.path, "no frame buffer", result);
    }
    const uint8_t* planes[1] = {bgra};
    const int strides[1] = {stride};
    s.converter->convert(planes, strides, s.frame->data, s.frame->linesize);
    int64_t pts = std::llround(time * s.settings.timeScale);
    if (pts <= s.lastPts) {
        pts = s.lastPts + 1;
    }
    s.lastPts = pts;
    AVFrame* send = s.frame.get();
    if (s.encoder.hardwareFrames) {
        av_frame_unref(s.hardwareFrame.get());
        if ((result = av_hwframe_get_buffer(s.encoder.hardwareFrames.get(), s.hardwareFrame.get(), 0)) < 0 ||
            (result = av_hwframe_transfer_data(s.hardwareFrame.get(), s.frame.get(), 0)) < 0) {
            fail(s.path, "can't hand the frame to the GPU", result);
        }
        send = s.hardwareFrame.get();
    }
    send->pts = pts;
    s.encoding->send(send);
    s.copyAudio(time, {});
}

bool VideoEncoder::finish(std::stop_token stop) {
    State& s = *m_state;
    if (s.finished) {
        return true;
    }
    if (!s.drained) {
        s.encoding->send(nullptr);
        s.drained = true;
    }
    if (!s.copyAudio(std::numeric_limits<double>::infinity(), stop)) {
        return false;
    }
    if (const int result = av_write_trailer(s.output.get()); result < 0) {
        fail(s.path, "writing", result);
    }
    s.finished = true;
    return true;
}

} // namespace marlowick
