#pragma once

#include "media/AvPointers.h"

#include <cstdint>
#include <filesystem>
#include <optional>

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
    // After a seek of the input: forgets what the decoder held, and decodes every frame again.
    void flush();
    // Until the next flush, a frame that no other frame refers to is not decoded when a frame read before
    // it shows after it and by `pts` (in the stream's time base): such a frame can't be the last one
    // starting by `pts`, which is what a seek to it wants, and with B-frames about half the frames between
    // a keyframe and the sought time are of this kind.
    void skipFramesSupersededBy(int64_t pts);

private:
    AVFormatContext* m_input;
    int m_streamIndex;
    std::filesystem::path m_path;
    CodecContext m_codec;
    Packet m_packet{av_packet_alloc()};
    bool m_draining = false;              // the input is at its end and the decoder is being emptied
    std::optional<int64_t> m_soughtPts;   // in the stream's time base; none: every frame is decoded
    int64_t m_latestPts = AV_NOPTS_VALUE; // the latest-showing packet read since the flush
};

} // namespace marlowick::av
