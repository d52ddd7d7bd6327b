#include "media/StreamDecoder.h"

#include "media/MediaError.h"

#include <string>

namespace marlowick::av {

StreamDecoder::StreamDecoder(AVFormatContext& input, int streamIndex, const std::filesystem::path& path)
    : m_input(&input)
    , m_streamIndex(streamIndex)
    , m_path(path) {
    const AVCodecParameters* parameters = input.streams[streamIndex]->codecpar;
    const AVCodec* decoder = avcodec_find_decoder(parameters->codec_id);
    if (decoder == nullptr) {
        throw MediaError(MediaErrorKind::unsupported,
                         path.string() + ": no decoder for stream " + std::to_string(streamIndex));
    }
    m_codec.reset(avcodec_alloc_context3(decoder));
    avcodec_parameters_to_context(m_codec.get(), parameters);
    m_codec->thread_count = 0; // as many as the machine has
    if (const int result = avcodec_open2(m_codec.get(), decoder, nullptr); result < 0) {
        throw MediaError(MediaErrorKind::unsupported,
                         path.string() + ": can't open the decoder: " + describeAvError(result));
    }
}

bool StreamDecoder::receive(AVFrame* frame) {
    for (;;) {
        int result = avcodec_receive_frame(m_codec.get(), frame);
        if (result == 0) {
            return true;
        }
        if (result == AVERROR_EOF) {
            return false;
        }
        if (result != AVERROR(EAGAIN)) {
            failWith(MediaErrorKind::decodingFailed, m_path, "decoding", result);
        }
        if (m_draining) {
            return false;
        }
        result = av_read_frame(m_input, m_packet.get());
        if (result == AVERROR_EOF) {
            m_draining = true;
            avcodec_send_packet(m_codec.get(), nullptr);
            continue;
        }
        if (result < 0) {
            failWith(MediaErrorKind::decodingFailed, m_path, "reading", result);
        }
        if (m_packet->stream_index == m_streamIndex) {
            if (m_soughtPts) {
                const int64_t pts = m_packet->pts;
                const bool superseded = pts != AV_NOPTS_VALUE && m_latestPts != AV_NOPTS_VALUE &&
                                        pts < m_latestPts && m_latestPts <= *m_soughtPts;
                // With threads the decoder takes this setting along with each packet.
                m_codec->skip_frame = superseded ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
                if (pts != AV_NOPTS_VALUE && (m_latestPts == AV_NOPTS_VALUE || pts > m_latestPts)) {
                    m_latestPts = pts;
                }
            }
            result = avcodec_send_packet(m_codec.get(), m_packet.get());
            // A damaged packet is skipped; the decoder goes on with the next one.
            if (result < 0 && result != AVERROR(EAGAIN) && result != AVERROR_INVALIDDATA) {
                av_packet_unref(m_packet.get());
                failWith(MediaErrorKind::decodingFailed, m_path, "decoding", result);
            }
        }
        av_packet_unref(m_packet.get());
    }
}

void StreamDecoder::flush() {
    avcodec_flush_buffers(m_codec.get());
    m_draining = false;
    m_soughtPts.reset();
    m_latestPts = AV_NOPTS_VALUE;
    m_codec->skip_frame = AVDISCARD_DEFAULT;
}

void StreamDecoder::skipFramesSupersededBy(int64_t pts) {
    m_soughtPts = pts;
}

} // namespace marlowick::av
