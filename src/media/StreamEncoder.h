#pragma once

#include "media/AvPointers.h"

#include <filesystem>

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
