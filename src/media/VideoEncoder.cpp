#include "media/VideoEncoder.h"

#include "media/AvInput.h"
#include "media/EncoderChoice.h"
#include "media/MediaError.h"
#include "media/PixelConverter.h"
#include "media/StreamEncoder.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>

namespace marlowick {

namespace fs = std::filesystem;

namespace {

const char* formatName(VideoEncoder::Container container) {
    return container == VideoEncoder::Container::mp4 ? "mp4" : "mov";
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
                failWith(MediaErrorKind::decodingFailed, file, "reading the sound", result);
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
        throw MediaError(MediaErrorKind::missingTrack,
                         track.file.string() + ": has no audio track " + std::to_string(track.track));
    }
    return streams[track.track];
}

} // namespace

struct VideoEncoder::State {
    fs::path path;
    Settings settings;
    av::OutputFormat output;
    av::OpenEncoder encoder;
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
                    failWith(MediaErrorKind::writingFailed, path, "writing the sound", result);
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
        failWith(MediaErrorKind::writingFailed, path, "can't write", result);
    }
    s.output.reset(raw);

    av::EncoderRequest request;
    request.codec = settings.codec == Codec::h264   ? av::EncoderRequest::Codec::h264
                    : settings.codec == Codec::hevc ? av::EncoderRequest::Codec::hevc
                                                    : av::EncoderRequest::Codec::prores4444;
    request.width = settings.width;
    request.height = settings.height;
    request.frameRate = settings.frameRate;
    request.timeScale = s.settings.timeScale;
    request.globalHeader = (raw->oformat->flags & AVFMT_GLOBALHEADER) != 0;
    std::optional<av::OpenEncoder> hardware;
    // MARLOWICK_SOFTWARE_ENCODER keeps to libx264/libx265, to compare or to work around a driver.
    if (settings.allowHardware && std::getenv("MARLOWICK_SOFTWARE_ENCODER") == nullptr) {
        hardware = av::openHardwareEncoder(request);
    }
    s.encoder = hardware ? std::move(*hardware) : av::openSoftwareEncoder(path, request);
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
            throw MediaError(MediaErrorKind::unsupported,
                             path.string() + ": can't store the " +
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
        failWith(MediaErrorKind::writingFailed, path, "can't create", result);
    }
    if ((result = avformat_write_header(raw, nullptr)) < 0) {
        failWith(MediaErrorKind::writingFailed, path, "can't write", result);
    }
    s.encoding = std::make_unique<av::StreamEncoder>(*raw, c, *s.stream, path);

    s.frame->format = s.encoder.softwareFormat;
    s.frame->width = c.width;
    s.frame->height = c.height;
    if ((result = av_frame_get_buffer(s.frame.get(), 0)) < 0) {
        failWith(MediaErrorKind::encodingFailed, path, "no frame buffer", result);
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
    encodeChanged(bgra, stride, time, {{0, 0, m_state->settings.width, m_state->settings.height}});
}

void VideoEncoder::encodeChanged(const std::uint8_t* bgra, int stride, double time,
                                 const std::vector<PixelRect>& areas) {
    State& s = *m_state;
    if (!areas.empty()) {
        // A picture an encoder still holds is copied first, so the rows left alone keep the last frame's.
        if (const int result = av_frame_make_writable(s.frame.get()); result < 0) {
            failWith(MediaErrorKind::encodingFailed, s.path, "no frame buffer", result);
        }
        const uint8_t* planes[4] = {bgra};
        const int strides[4] = {stride};
        s.converter->convertAreas(planes, strides, s.frame->data, s.frame->linesize, areas);
    }
    int64_t pts = std::llround(time * s.settings.timeScale);
    if (pts <= s.lastPts) {
        pts = s.lastPts + 1;
    }
    s.lastPts = pts;
    s.frame->pts = pts;
    av::sendPicture(s.encoder, *s.encoding, s.frame.get(), s.hardwareFrame.get(), s.path);
    s.copyAudio(time, {});
}

std::vector<PixelRect> VideoEncoder::tilesMeeting(const std::vector<PixelRect>& areas, int width,
                                                  int height) {
    return av::PixelConverter::tilesMeeting(areas, width, height);
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
        failWith(MediaErrorKind::writingFailed, s.path, "writing", result);
    }
    s.finished = true;
    return true;
}

} // namespace marlowick
