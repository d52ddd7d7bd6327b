#include "media/StreamEncoder.h"

#include "media/MediaError.h"

namespace marlowick::av {

void StreamEncoder::send(const AVFrame* frame) {
    int result = avcodec_send_frame(m_codec, frame);
    if (result < 0) {
        failWith(MediaErrorKind::encodingFailed, m_path, "encoding", result);
    }
    while ((result = avcodec_receive_packet(m_codec, m_packet.get())) == 0) {
        av_packet_rescale_ts(m_packet.get(), m_codec->time_base, m_stream->time_base);
        m_packet->stream_index = m_stream->index;
        if ((result = av_interleaved_write_frame(m_output, m_packet.get())) < 0) {
            failWith(MediaErrorKind::writingFailed, m_path, "writing", result);
        }
    }
    if (result != AVERROR(EAGAIN) && result != AVERROR_EOF) {
        failWith(MediaErrorKind::encodingFailed, m_path, "encoding", result);
    }
}

} // namespace marlowick::av
