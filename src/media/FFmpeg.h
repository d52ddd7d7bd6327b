#pragma once

// One owning type per FFmpeg object, each released with its own function.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <vector>

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

} // namespace marlowick::av

extern "C" {
#include <libswresample/swresample.h>
}

#include <filesystem>

namespace marlowick::av {

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

// Silences FFmpeg's own log, once for the process: every failure reaches our callers as an error, and the
// encoders' chatter would only land on standard error.
void quietLog();

// Opens a file for reading and reads its stream information; throws MediaError naming the file.
InputFormat openInput(const std::filesystem::path& path);

// The indices of a file's streams of one kind, in file order.
std::vector<int> streamsOfType(const AVFormatContext& format, AVMediaType type);

} // namespace marlowick::av

namespace marlowick::av {

// The one decode loop: feeds the packets of one stream of an open input to its decoder and hands out the
// decoded frames in order. Used from one thread at a time; the input must outlive it.
class StreamDecoder {
public:
    // Opens the decoder for the stream; throws MediaError naming `path` when it can't.
    StreamDecoder(AVFormatContext& input, int streamIndex, const std::filesystem::path& path);

    AVStream& stream() const { return *m_input->streams[m_streamIndex]; }
    AVCodecContext& codec() const { return *m_codec; }

    // The next decoded frame into `frame` (unreferenced first by the caller), or false at the end.
    bool receive(AVFrame* frame);
    // After a seek of the input: forgets what the decoder held.
    void flush();

private:
    AVFormatContext* m_input;
    int m_streamIndex;
    std::filesystem::path m_path;
    CodecContext m_codec;
    Packet m_packet{av_packet_alloc()};
    bool m_draining = false; // the input is at its end and the decoder is being emptied
};

} // namespace marlowick::av

namespace marlowick::av {

// The one encode loop: hands frames to an open encoder and writes every packet it gives back into the
// output's stream, in the stream's time base. Used from one thread; the output must outlive it.
class StreamEncoder {
public:
    StreamEncoder(AVFormatContext& output, AVCodecContext& codec, AVStream& stream,
                  const std::filesystem::path& path)
        : m_output(&output)
        , m_codec(&codec)
        , m_stream(&stream)
        , m_path(path) {}

    // A frame to encode, or null to drain the encoder at the end. Throws MediaError.
    void send(const AVFrame* frame);

private:
    AVFormatContext* m_output;
    AVCodecContext* m_codec;
    AVStream* m_stream;
    std::filesystem::path m_path;
    Packet m_packet{av_packet_alloc()};
};

} // namespace marlowick::av
