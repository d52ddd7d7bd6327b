#include "media/FFmpeg.h"

#include "media/MediaError.h"
#include "media/MediaInfo.h"

#include <mutex>

namespace marlowick {

std::string describeAvError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

MediaInfo MediaInfo::of(const std::filesystem::path& path) {
    const av::InputFormat input = av::openInput(path);
    return {av::streamsOfType(*input, AVMEDIA_TYPE_AUDIO).size(),
            av::streamsOfType(*input, AVMEDIA_TYPE_VIDEO).size(),
            input->duration == AV_NOPTS_VALUE ? 0 : static_cast<double>(input->duration) / AV_TIME_BASE};
}

namespace av {

void quietLog() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

InputFormat openInput(const std::filesystem::path& path) {
    quietLog();
    AVFormatContext* raw = nullptr;
    int result = avformat_open_input(&raw, path.c_str(), nullptr, nullptr);
    if (result < 0) {
        throw MediaError(path.string() + ": can't open: " + describeAvError(result));
    }
    InputFormat format(raw);
    if ((result = avformat_find_stream_info(raw, nullptr)) < 0) {
        throw MediaError(path.string() + ": can't read the streams: " + describeAvError(result));
    }
    return format;
}

std::vector<int> streamsOfType(const AVFormatContext& format, AVMediaType type) {
    std::vector<int> indices;
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        if (format.streams[i]->codecpar->codec_type == type) {
            indices.push_back(static_cast<int>(i));
        }
    }
    return indices;
}

} // namespace av

} // namespace marlowick

namespace marlowick::av {

StreamDecoder::StreamDecoder(AVFormatContext& input, int streamIndex, const std::filesystem::path& path)
    : m_input(&input)
    , m_streamIndex(streamIndex)
    , m_path(path) {
    const AVCodecParameters* parameters = input.streams[streamIndex]->codecpar;
    const AVCodec* decoder = avcodec_find_decoder(parameters->codec_id);
    if (decoder == nullptr) {
        throw MediaError(path.string() + ": no decoder for stream " + std::to_string(streamIndex));
    }
    m_codec.reset(avcodec_alloc_context3(decoder));
    avcodec_parameters_to_context(m_codec.get(), parameters);
    m_codec->thread_count = 0; // as many as the machine has
    if (const int result = avcodec_open2(m_codec.get(), decoder, nullptr); result < 0) {
        throw MediaError(path.string() + ": can't open the decoder: " + describeAvError(result));
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
            throw MediaError(m_path.string() + ": decoding: " + describeAvError(result));
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
            throw MediaError(m_path.string() + ": reading: " + describeAvError(result));
        }
        if (m_packet->stream_index == m_streamIndex) {
            result = avcodec_send_packet(m_codec.get(), m_packet.get());
            // A damaged packet is skipped; the decoder goes on with the next one.
            if (result < 0 && result != AVERROR(EAGAIN) && result != AVERROR_INVALIDDATA) {
                av_packet_unref(m_packet.get());
                throw MediaError(m_path.string() + ": decoding: " + describeAvError(result));
            }
        }
        av_packet_unref(m_packet.get());
    }
}

void StreamDecoder::flush() {
    avcodec_flush_buffers(m_codec.get());
    m_draining = false;
}

} // namespace marlowick::av

namespace marlowick::av {

void StreamEncoder::send(const AVFrame* frame) {
    int result = avcodec_send_frame(m_codec, frame);
    if (result < 0) {
        throw MediaError(m_path.string() + ": encoding: " + describeAvError(result));
    }
    while ((result = avcodec_receive_packet(m_codec, m_packet.get())) == 0) {
        av_packet_rescale_ts(m_packet.get(), m_codec->time_base, m_stream->time_base);
        m_packet->stream_index = m_stream->index;
        if ((result = av_interleaved_write_frame(m_output, m_packet.get())) < 0) {
            throw MediaError(m_path.string() + ": writing: " + describeAvError(result));
        }
    }
    if (result != AVERROR(EAGAIN) && result != AVERROR_EOF) {
        throw MediaError(m_path.string() + ": encoding: " + describeAvError(result));
    }
}

} // namespace marlowick::av
