#include "media/EncoderChoice.h"

#include "media/MediaError.h"

#include <cmath>
#include <functional>

extern "C" {
#include <libavutil/hwcontext.h>
#include <libavutil/opt.h>
}

namespace marlowick::av {

namespace fs = std::filesystem;

namespace {

using Codec = EncoderRequest::Codec;

bool isLive(const EncoderRequest& request) {
    return request.purpose == EncoderRequest::Purpose::live;
}

// Opens `name` with the common settings and whatever `configure` adds, or gives none when FFmpeg has no
// such encoder or it won't open (no device, no driver); `failure` then holds FFmpeg's code.
std::optional<OpenEncoder> tryOpen(const char* name, const EncoderRequest& request,
                                   const std::function<bool(OpenEncoder&)>& configure,
                                   int* failure = nullptr) {
    const AVCodec* encoder = avcodec_find_encoder_by_name(name);
    if (encoder == nullptr) {
        return std::nullopt;
    }
    OpenEncoder open{CodecContext(avcodec_alloc_context3(encoder)), name, {}, AV_PIX_FMT_YUV420P};
    AVCodecContext& c = *open.codec;
    c.width = request.width;
    c.height = request.height;
    c.time_base = {1, request.timeScale};
    c.framerate = av_d2q(request.frameRate, 1000);
    c.sample_aspect_ratio = {1, 1};
    c.thread_count = 0; // as many as the machine has
    c.pix_fmt = AV_PIX_FMT_YUV420P;
    c.color_range = AVCOL_RANGE_MPEG;
    c.colorspace = AVCOL_SPC_BT709;
    c.color_primaries = AVCOL_PRI_BT709;
    c.color_trc = AVCOL_TRC_BT709;
    if (isLive(request)) {
        // A keyframe every second at the latest: a fragment of the movie ends at each one.
        c.gop_size = std::max(1, static_cast<int>(std::lround(request.frameRate)));
    }
    if (request.globalHeader) {
        c.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    if (request.codec == Codec::hevc) {
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

} // namespace

std::optional<OpenEncoder> openHardwareEncoder(const EncoderRequest& request) {
    if (request.codec == Codec::prores4444) {
        return std::nullopt;
    }
    const bool hevc = request.codec == Codec::hevc;
    const bool live = isLive(request);
    auto nvenc = tryOpen(hevc ? "hevc_nvenc" : "h264_nvenc", request, [&](OpenEncoder& e) {
        // Constant quality in the range that keeps text sharp; NVENC's own presets run far above real
        // time, and a live capture takes the fastest, which still keeps several 4K streams going.
        av_opt_set(e.codec->priv_data, "preset", live ? "p1" : "p5", 0);
        av_opt_set(e.codec->priv_data, "tune", live ? "ll" : "hq", 0);
        av_opt_set(e.codec->priv_data, "rc", "vbr", 0);
        av_opt_set(e.codec->priv_data, "cq", hevc ? "23" : "21", 0);
        e.codec->bit_rate = 0;
        return true;
    });
    if (nvenc) {
        return nvenc;
    }
    return tryOpen(hevc ? "hevc_vaapi" : "h264_vaapi", request, [&](OpenEncoder& e) {
        AVBufferRef* device = nullptr;
        if (av_hwdevice_ctx_create(&device, AV_HWDEVICE_TYPE_VAAPI, nullptr, nullptr, 0) < 0) {
            return false;
        }
        const BufferRef deviceRef(device);
        BufferRef frames(av_hwframe_ctx_alloc(device));
        if (!frames) {
            return false;
        }
        auto* context = reinterpret_cast<AVHWFramesContext*>(frames->data);
        context->format = AV_PIX_FMT_VAAPI;
        context->sw_format = AV_PIX_FMT_NV12;
        context->width = request.width;
        context->height = request.height;
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

OpenEncoder openSoftwareEncoder(const fs::path& path, const EncoderRequest& request) {
    const bool prores = request.codec == Codec::prores4444;
    const char* name = prores ? "prores_ks" : (request.codec == Codec::hevc ? "libx265" : "libx264");
    if (avcodec_find_encoder_by_name(name) == nullptr) {
        throw MediaError(MediaErrorKind::unsupported, path.string() + ": no " + name + " encoder");
    }
    int failure = 0;
    auto open = tryOpen(
        name, request,
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
            const bool large = request.width * request.height > 1920 * 1080;
            if (isLive(request)) {
                // A capture must keep pace with the screen: x264's fastest preset holds 60 fps at 1080p on
                // about 60% of one core (the next one up needs 80%). CRF 20 keeps text legible at that
                // preset; the take is re-encoded on export anyway.
                av_opt_set(c.priv_data, "preset", "ultrafast", 0);
                av_opt_set(c.priv_data, "crf", "20", 0);
                if (request.codec == Codec::hevc) {
                    av_opt_set(c.priv_data, "x265-params", "log-level=none", 0);
                }
                return true;
            }
            // Screen content is mostly flat areas and sharp text: a constant quality that keeps text crisp.
            // The presets trade compression for speed so that a long export on two cores doesn't crawl, and
            // 4K a step further, since it has four times the pixels.
            if (request.codec == Codec::hevc) {
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
        throw MediaError(MediaErrorKind::unsupported, path.string() + ": can't open the " + name +
                                                          " encoder: " + describeAvError(failure));
    }
    return std::move(*open);
}

void sendPicture(OpenEncoder& encoder, StreamEncoder& encoding, AVFrame* picture, AVFrame* scratch,
                 const fs::path& path) {
    if (!encoder.hardwareFrames) {
        encoding.send(picture);
        return;
    }
    av_frame_unref(scratch);
    int result = av_hwframe_get_buffer(encoder.hardwareFrames.get(), scratch, 0);
    if (result >= 0) {
        result = av_hwframe_transfer_data(scratch, picture, 0);
    }
    if (result < 0) {
        throw MediaError(MediaErrorKind::encodingFailed,
                         path.string() + ": can't hand the frame to the GPU: " + describeAvError(result));
    }
    scratch->pts = picture->pts;
    encoding.send(scratch);
}

} // namespace marlowick::av
