#pragma once

#include "media/AvPointers.h"

#include <filesystem>

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
