#pragma once

// One owning type per FFmpeg object, each released with its own function.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>

namespace marlowick::av {

struct FormatContextDeleter {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct CodecContextDeleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FrameDeleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketDeleter {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct ScaleContextDeleter {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};

using InputFormat = std::unique_ptr<AVFormatContext, FormatContextDeleter>;
using CodecContext = std::unique_ptr<AVCodecContext, CodecContextDeleter>;
using Frame = std::unique_ptr<AVFrame, FrameDeleter>;
using Packet = std::unique_ptr<AVPacket, PacketDeleter>;
using ScaleContext = std::unique_ptr<SwsContext, ScaleContextDeleter>;

struct ResamplerDeleter {
    void operator()(SwrContext* context) const { swr_free(&context); }
};
struct OutputFormatDeleter {
    void operator()(AVFormatContext* context) const {
        if (context->pb != nullptr && !(context->oformat->flags & AVFMT_NOFILE)) {
            avio_closep(&context->pb);
        }
        avformat_free_context(context);
    }
};
struct BufferDeleter {
    void operator()(AVBufferRef* buffer) const { av_buffer_unref(&buffer); }
};
using Resampler = std::unique_ptr<SwrContext, ResamplerDeleter>;
using BufferRef = std::unique_ptr<AVBufferRef, BufferDeleter>; // hardware device and frame pools
using OutputFormat = std::unique_ptr<AVFormatContext, OutputFormatDeleter>;

} // namespace marlowick::av
