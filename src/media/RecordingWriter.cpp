#include "media/RecordingWriter.h"

#include "media/AvInput.h"
#include "media/EncoderChoice.h"
#include "media/MediaError.h"
#include "media/PixelConverter.h"
#include "media/StreamEncoder.h"
#include "model/FileOps.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <random>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libavutil/opt.h>
}

namespace marlowick {

namespace fs = std::filesystem;

namespace {

constexpr int audioBitRate = 160000;
constexpr int aacPriming = 1024; // samples the native AAC encoder puts before the sound

// One stereo AAC track, fed in whole encoder frames (1024 samples) gathered from the pieces the capture
// delivers.
struct AudioTrack {
    av::CodecContext codec;
    AVStream* stream = nullptr;
    std::unique_ptr<av::StreamEncoder> encoding;
    av::Frame frame{av_frame_alloc()};
    int filled = 0;           // samples in `frame` so far
    std::int64_t written = 0; // samples handed over, counted from the movie's start (the frames' pts)

    void startFrame(const fs::path& path) {
        av_frame_unref(frame.get());
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->sample_rate = RecordingWriter::sampleRate;
        frame->ch_layout = AV_CHANNEL_LAYOUT_STEREO;
        frame->nb_samples = codec->frame_size;
        if (const int result = av_frame_get_buffer(frame.get(), 0); result < 0) {
            failWith(MediaErrorKind::encodingFailed, path, "no sound buffer", result);
        }
        frame->pts = written;
        filled = 0;
    }

    void append(const float* samples, std::int64_t count, const fs::path& path) {
        while (count > 0) {
            const int take = static_cast<int>(std::min<std::int64_t>(count, codec->frame_size - filled));
            auto* left = reinterpret_cast<float*>(frame->data[0]) + filled;
            auto* right = reinterpret_cast<float*>(frame->data[1]) + filled;
            if (samples == nullptr) {
                std::fill_n(left, take, 0.0f);
                std::fill_n(right, take, 0.0f);
            } else {
                for (int i = 0; i < take; ++i) {
                    left[i] = samples[2 * i];
                    right[i] = samples[2 * i + 1];
                }
                samples += 2 * take;
            }
            filled += take;
            written += take;
            count -= take;
            if (filled == codec->frame_size) {
                encoding->send(frame.get());
                startFrame(path);
            }
        }
    }

    void finish() {
        if (filled > 0) {
            frame->nb_samples = filled;
            encoding->send(frame.get());
        }
        encoding->send(nullptr);
    }
};

} // namespace

struct RecordingWriter::State {
    fs::path path;
    int width = 0; // of the movie's pictures
    int height = 0;
    av::OutputFormat output;
    av::OpenEncoder encoder;
    AVStream* videoStream = nullptr;
    std::unique_ptr<av::StreamEncoder> video;
    av::Frame hardwareFrame{av_frame_alloc()};
    std::vector<AudioTrack> audio;
    bool finished = false;
};

RecordingWriter::RecordingWriter(const fs::path& path, const Settings& settings)
    : m_state(std::make_unique<State>()) {
    av::quietLog();
    State& s = *m_state;
    s.path = path;
    s.width = settings.width;
    s.height = settings.height;

    AVFormatContext* raw = nullptr;
    int result = avformat_alloc_output_context2(&raw, nullptr, "mov", path.c_str());
    if (result < 0) {
        failWith(MediaErrorKind::writingFailed, path, "can't write", result);
    }
    s.output.reset(raw);

    av::EncoderRequest request;
    request.purpose = av::EncoderRequest::Purpose::live;
    request.width = settings.width;
    request.height = settings.height;
    request.frameRate = settings.frameRate;
    request.timeScale = videoTimeScale;
    request.globalHeader = true;
    std::optional<av::OpenEncoder> hardware;
    if (settings.allowHardware && std::getenv("MARLOWICK_SOFTWARE_ENCODER") == nullptr) {
        request.codec = av::EncoderRequest::Codec::hevc;
        hardware = av::openHardwareEncoder(request);
    }
    request.codec = av::EncoderRequest::Codec::h264;
    s.encoder = hardware ? std::move(*hardware) : av::openSoftwareEncoder(path, request);
    s.videoStream = avformat_new_stream(raw, nullptr);
    avcodec_parameters_from_context(s.videoStream->codecpar, s.encoder.codec.get());
    s.videoStream->time_base = {1, videoTimeScale};
    s.videoStream->avg_frame_rate = s.encoder.codec->framerate;

    const AVCodec* aac = avcodec_find_encoder_by_name("aac");
    if (aac == nullptr && settings.audioTracks > 0) {
        throw MediaError(MediaErrorKind::unsupported, path.string() + ": no AAC encoder");
    }
    for (int i = 0; i < settings.audioTracks; ++i) {
        AudioTrack track;
        track.codec.reset(avcodec_alloc_context3(aac));
        AVCodecContext& c = *track.codec;
        c.sample_fmt = AV_SAMPLE_FMT_FLTP;
        c.sample_rate = sampleRate;
        c.ch_layout = AV_CHANNEL_LAYOUT_STEREO;
        c.bit_rate = audioBitRate;
        c.time_base = {1, sampleRate};
        c.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        // The fast search: the default one costs several times the CPU for nothing a listener notices at
        // this rate, and a capture has none to spare.
        av_opt_set(c.priv_data, "aac_coder", "fast", 0);
        if ((result = avcodec_open2(&c, aac, nullptr)) < 0) {
            failWith(MediaErrorKind::unsupported, path, "can't open the AAC encoder", result);
        }
        track.stream = avformat_new_stream(raw, nullptr);
        avcodec_parameters_from_context(track.stream->codecpar, &c);
        track.stream->time_base = c.time_base;
        s.audio.push_back(std::move(track));
    }

    // A take is a picture of someone's screen: a new movie is created readable by its owner alone before
    // the muxer opens it (FFmpeg would create it readable by all), and it keeps that mode through
    // `finalise`. A file already there keeps its own mode, as the muxer truncates it.
    std::error_code ignored;
    if (!fs::exists(fs::symlink_status(path, ignored))) {
        try {
            fileops::createPrivateFile(path);
        } catch (const fs::filesystem_error& error) {
            throw MediaError(MediaErrorKind::writingFailed,
                             path.string() + ": can't create: " + error.code().message());
        }
    }
    if ((result = avio_open(&raw->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) {
        failWith(MediaErrorKind::writingFailed, path, "can't create", result);
    }
    // Each fragment goes out whole as soon as the next keyframe closes it; an audio track that falls
    // silent holds the video back by one second at most.
    raw->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    raw->max_interleave_delta = AV_TIME_BASE;
    raw->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "frag_keyframe+empty_moov+default_base_moof", 0);
    result = avformat_write_header(raw, &options);
    av_dict_free(&options);
    if (result < 0) {
        failWith(MediaErrorKind::writingFailed, path, "can't write", result);
    }
    s.video = std::make_unique<av::StreamEncoder>(*raw, *s.encoder.codec, *s.videoStream, path);
    for (AudioTrack& track : s.audio) {
        track.encoding = std::make_unique<av::StreamEncoder>(*raw, *track.codec, *track.stream, path);
        track.startFrame(path);
    }
}

RecordingWriter::~RecordingWriter() = default;

RecordingWriter::Picture::~Picture() {
    av_frame_free(&m_frame);
}

// Converts at the movie's size on the tiled converter, which shares a large picture among threads where
// the machine has cores to spare, and at another size through one scaling context.
struct RecordingWriter::Converter::State {
    int width = 0; // of the movie
    int height = 0;
    AVPixelFormat format = AV_PIX_FMT_NONE;
    int fromWidth = 0; // of the pictures the conversion is set up for
    int fromHeight = 0;
    std::unique_ptr<av::PixelConverter> same;
    av::ScaleContext scaling;
};

RecordingWriter::Converter::Converter(std::unique_ptr<State> state)
    : m_state(std::move(state)) {}

RecordingWriter::Converter::~Converter() = default;

void RecordingWriter::Converter::convert(const std::uint8_t* pixels, int stride, int width, int height,
                                         Picture& into) {
    State& s = *m_state;
    const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
    if (s.fromWidth != width || s.fromHeight != height || (!s.same && !s.scaling)) {
        s.fromWidth = width;
        s.fromHeight = height;
        s.same.reset();
        s.scaling.reset();
        if (width == s.width && height == s.height) {
            s.same = std::make_unique<av::PixelConverter>(width, height, AV_PIX_FMT_BGR0, s.format);
            s.same->setColorspace(bt709, true, bt709, false);
        } else {
            s.scaling.reset(sws_getContext(width, height, AV_PIX_FMT_BGR0, s.width, s.height, s.format,
                                           SWS_BILINEAR, nullptr, nullptr, nullptr));
            if (!s.scaling) {
                throw MediaError(MediaErrorKind::unsupported, "no conversion of " + std::to_string(width) +
                                                                  "×" + std::to_string(height) +
                                                                  " pictures to " + std::to_string(s.width) +
                                                                  "×" + std::to_string(s.height));
            }
            sws_setColorspaceDetails(s.scaling.get(), bt709, 1, bt709, 0, 0, 1 << 16, 1 << 16);
        }
    }
    AVFrame& frame = *into.m_frame;
    if (const int result = av_frame_make_writable(&frame); result < 0) {
        throw MediaError(MediaErrorKind::encodingFailed,
                         "no memory for a picture: " + describeAvError(result));
    }
    const std::uint8_t* planes[4] = {pixels};
    const int strides[4] = {stride};
    if (s.same) {
        s.same->convert(planes, strides, frame.data, frame.linesize);
    } else {
        sws_scale(s.scaling.get(), planes, strides, 0, height, frame.data, frame.linesize);
    }
}

std::unique_ptr<RecordingWriter::Picture> RecordingWriter::makePicture() const {
    std::unique_ptr<Picture> picture(new Picture);
    picture->m_frame = av_frame_alloc();
    AVFrame* frame = picture->m_frame;
    if (frame == nullptr) {
        throw MediaError(MediaErrorKind::encodingFailed,
                         m_state->path.string() + ": no memory for the pictures");
    }
    frame->format = m_state->encoder.softwareFormat;
    frame->width = m_state->width;
    frame->height = m_state->height;
    if (const int result = av_frame_get_buffer(frame, 0); result < 0) {
        failWith(MediaErrorKind::encodingFailed, m_state->path, "no memory for the pictures", result);
    }
    return picture;
}

std::unique_ptr<RecordingWriter::Converter> RecordingWriter::makeConverter() const {
    auto state = std::make_unique<Converter::State>();
    state->width = m_state->width;
    state->height = m_state->height;
    state->format = m_state->encoder.softwareFormat;
    return std::unique_ptr<Converter>(new Converter(std::move(state)));
}

std::string RecordingWriter::encoderName() const {
    return m_state->encoder.name;
}

void RecordingWriter::writeVideo(Picture& picture, std::int64_t ticks) {
    State& s = *m_state;
    picture.m_frame->pts = ticks;
    av::sendPicture(s.encoder, *s.video, picture.m_frame, s.hardwareFrame.get(), s.path);
}

void RecordingWriter::writeAudio(int track, const float* samples, std::int64_t frames) {
    m_state->audio.at(static_cast<std::size_t>(track)).append(samples, frames, m_state->path);
}

std::int64_t RecordingWriter::audioFrames(int track) const {
    return m_state->audio.at(static_cast<std::size_t>(track)).written;
}

void RecordingWriter::finish() {
    State& s = *m_state;
    if (s.finished) {
        return;
    }
    s.video->send(nullptr);
    for (AudioTrack& track : s.audio) {
        track.finish();
    }
    if (const int result = av_write_trailer(s.output.get()); result < 0) {
        failWith(MediaErrorKind::writingFailed, s.path, "writing", result);
    }
    s.finished = true;
}

namespace {

void syncPath(const fs::path& path, int flags) {
    const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
    if (fd < 0 || ::fsync(fd) != 0) {
        const int error = errno;
        if (fd >= 0) {
            ::close(fd);
        }
        throw MediaError(MediaErrorKind::writingFailed,
                         path.string() + ": can't flush to the disk: " + std::strerror(error));
    }
    ::close(fd);
}

} // namespace

void RecordingWriter::finalise(const fs::path& path) {
    av::quietLog();
    const av::InputFormat input = av::openInput(path);
    std::random_device random;
    fs::path scratch = path;
    scratch.replace_filename("." + path.filename().string() + ".finishing-" + std::to_string(random()));
    struct Scratch {
        fs::path path;
        bool keep = false;
        ~Scratch() {
            if (!keep) {
                std::error_code ignored;
                fs::remove(path, ignored);
            }
        }
    } guard{scratch};
    // The rewritten movie takes the place of the take: it is created with the take's permissions, so that
    // a private take never becomes readable by others on the way.
    try {
        fileops::createNewFile(scratch, fs::status(path).permissions() & fs::perms::all);
    } catch (const fs::filesystem_error& error) {
        throw MediaError(MediaErrorKind::writingFailed,
                         scratch.string() + ": can't create: " + error.code().message());
    }

    AVFormatContext* raw = nullptr;
    int result = avformat_alloc_output_context2(&raw, nullptr, "mov", scratch.c_str());
    if (result < 0) {
        failWith(MediaErrorKind::writingFailed, path, "can't rewrite", result);
    }
    const av::OutputFormat output(raw);
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream* from = input->streams[i];
        AVStream* to = avformat_new_stream(raw, nullptr);
        avcodec_parameters_copy(to->codecpar, from->codecpar);
        to->time_base = from->time_base;
        to->avg_frame_rate = from->avg_frame_rate;
    }
    if ((result = avio_open(&raw->pb, scratch.c_str(), AVIO_FLAG_WRITE)) < 0 ||
        (result = avformat_write_header(raw, nullptr)) < 0) {
        failWith(MediaErrorKind::writingFailed, scratch, "can't write", result);
    }
    // The fragments can't say that an AAC track begins with the encoder's priming (1024 samples of the
    // native encoder) and the track starts with it at 0; an ordinary movie can, with an edit list, so its
    // packets move back by that much and players skip the priming.
    std::vector<std::int64_t> shift(input->nb_streams, 0);
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVCodecParameters& p = *input->streams[i]->codecpar;
        if (p.codec_id == AV_CODEC_ID_AAC && input->streams[i]->start_time == 0) {
            shift[i] = av_rescale_q(p.initial_padding > 0 ? p.initial_padding : aacPriming,
                                    {1, p.sample_rate > 0 ? p.sample_rate : sampleRate},
                                    input->streams[i]->time_base);
        }
    }
    const av::Packet packet(av_packet_alloc());
    std::int64_t packets = 0;
    // A take cut short by a crash may end in a torn fragment: what reads before it is kept.
    while ((result = av_read_frame(input.get(), packet.get())) >= 0) {
        ++packets;
        const AVStream* from = input->streams[packet->stream_index];
        const std::int64_t back = shift[static_cast<std::size_t>(packet->stream_index)];
        if (packet->pts != AV_NOPTS_VALUE) {
            packet->pts -= back;
        }
        if (packet->dts != AV_NOPTS_VALUE) {
            packet->dts -= back;
        }
        av_packet_rescale_ts(packet.get(), from->time_base, raw->streams[packet->stream_index]->time_base);
        packet->pos = -1;
        if ((result = av_interleaved_write_frame(raw, packet.get())) < 0) {
            failWith(MediaErrorKind::writingFailed, scratch, "writing", result);
        }
    }
    if (result != AVERROR_EOF && packets == 0) {
        failWith(MediaErrorKind::decodingFailed, path, "reading", result);
    }
    if ((result = av_write_trailer(raw)) < 0) {
        failWith(MediaErrorKind::writingFailed, scratch, "writing", result);
    }
    avio_closep(&raw->pb);
    syncPath(scratch, O_RDONLY);
    fs::rename(scratch, path);
    guard.keep = true;
    syncPath(path.parent_path().empty() ? fs::path(".") : path.parent_path(), O_RDONLY | O_DIRECTORY);
}

} // namespace marlowick
