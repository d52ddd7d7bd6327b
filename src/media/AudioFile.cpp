#include "media/AudioFile.h"

#include "media/AvInput.h"
#include "media/MediaError.h"
#include "media/MediaInfo.h"
#include "media/StreamDecoder.h"
#include "media/StreamEncoder.h"
#include "model/FileOps.h"

#include <algorithm>

extern "C" {
#include <libavutil/opt.h>
}

namespace marlowick::AudioFile {

namespace fs = std::filesystem;

namespace {} // namespace

std::size_t trackCount(const fs::path& path) {
    return MediaInfo::of(path).audioTracks;
}

double duration(const fs::path& path) {
    return MediaInfo::of(path).duration;
}

namespace {

// Decodes a track chunk by chunk, first telling `expect` how many samples the container promises (0 when
// it doesn't say), so that a caller keeping them all can make room once.
void decode(const fs::path& path, std::size_t track, int rate, const std::function<void(std::size_t)>& expect,
            const std::function<void(std::span<const float>)>& consume) {
    const av::InputFormat input = av::openInput(path);
    const std::vector<int> streams = av::streamsOfType(*input, AVMEDIA_TYPE_AUDIO);
    if (track >= streams.size()) {
        throw MediaError(MediaErrorKind::missingTrack,
                         path.string() + ": has no audio track " + std::to_string(track));
    }
    // Only the chosen stream's packets are wanted.
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        input->streams[i]->discard =
            static_cast<int>(i) == streams[track] ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    av::StreamDecoder decoder(*input, streams[track], path);
    const AVCodecContext& codec = decoder.codec();

    // The down-mix to one channel and the resampling are FFmpeg's.
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    AVChannelLayout in{};
    av_channel_layout_copy(&in, &codec.ch_layout);
    SwrContext* raw = nullptr;
    int result = swr_alloc_set_opts2(&raw, &mono, AV_SAMPLE_FMT_FLT, rate, &in, codec.sample_fmt,
                                     codec.sample_rate, 0, nullptr);
    av_channel_layout_uninit(&in);
    av::Resampler resampler(raw);
    if (result < 0 || (result = swr_init(raw)) < 0) {
        failWith(MediaErrorKind::decodingFailed, path, "can't convert the sound", result);
    }

    expect(input->duration == AV_NOPTS_VALUE
               ? 0
               : static_cast<std::size_t>(static_cast<double>(input->duration) / AV_TIME_BASE * rate));
    std::vector<float> chunk;
    const av::Frame frame(av_frame_alloc());
    auto convert = [&](const uint8_t** data, int count) {
        const int room = swr_get_out_samples(raw, count);
        if (room <= 0) {
            return;
        }
        chunk.resize(static_cast<std::size_t>(room));
        uint8_t* out[1] = {reinterpret_cast<uint8_t*>(chunk.data())};
        const int made = swr_convert(raw, out, room, data, count);
        if (made < 0) {
            failWith(MediaErrorKind::decodingFailed, path, "can't convert the sound", made);
        }
        if (made > 0) {
            consume(std::span<const float>(chunk.data(), static_cast<std::size_t>(made)));
        }
    };
    while (decoder.receive(frame.get())) {
        convert(const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
        av_frame_unref(frame.get());
    }
    convert(nullptr, 0); // what the resampler still holds
}

} // namespace

void decodeTrack(const fs::path& path, std::size_t track,
                 const std::function<void(std::span<const float>)>& consume, int rate) {
    decode(
        path, track, rate, [](std::size_t) {}, consume);
}

std::vector<float> decodeTrack(const fs::path& path, std::size_t track) {
    std::vector<float> samples;
    decode(
        path, track, sampleRate, [&](std::size_t expected) { samples.reserve(expected + 4096); },
        [&](std::span<const float> chunk) { samples.insert(samples.end(), chunk.begin(), chunk.end()); });
    return samples;
}

void writeAac(const fs::path& path, std::span<const float> samples,
              const std::function<void(double)>& progress) {
    av::quietLog();
    // A file already there is replaced by a new one, never written through (it may be linked elsewhere),
    // and the new one keeps its permissions: a private file stays private.
    std::error_code missing;
    const fs::file_status existing = fs::status(path, missing);
    if (!missing && fs::is_regular_file(existing)) {
        std::error_code ignored;
        fs::remove(path, ignored);
        try {
            fileops::createNewFile(path, existing.permissions() & fs::perms::all);
        } catch (const fs::filesystem_error& error) {
            throw MediaError(MediaErrorKind::writingFailed,
                             path.string() + ": can't create: " + error.code().message());
        }
    } else {
        std::error_code ignored;
        fs::remove(path, ignored);
    }

    AVFormatContext* raw = nullptr;
    int result = avformat_alloc_output_context2(&raw, nullptr, "ipod", path.c_str()); // the .m4a muxer
    if (result < 0) {
        failWith(MediaErrorKind::writingFailed, path, "can't write", result);
    }
    av::OutputFormat output(raw);
    const AVCodec* encoder = avcodec_find_encoder_by_name("aac");
    if (encoder == nullptr) {
        throw MediaError(MediaErrorKind::unsupported, path.string() + ": no AAC encoder");
    }
    av::CodecContext codec(avcodec_alloc_context3(encoder));
    codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
    codec->sample_rate = sampleRate;
    codec->ch_layout = AV_CHANNEL_LAYOUT_MONO;
    codec->bit_rate = 192000;
    codec->time_base = {1, sampleRate};
    if (raw->oformat->flags & AVFMT_GLOBALHEADER) {
        codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    // The encoder's fast search: at 192 kbit/s for one channel of voice the default two-loop search buys
    // little that can be heard, and it makes the encoder, the slowest stage of a render, several times
    // slower.
    av_opt_set(codec->priv_data, "aac_coder", "fast", 0);
    if ((result = avcodec_open2(codec.get(), encoder, nullptr)) < 0) {
        failWith(MediaErrorKind::unsupported, path, "can't open the AAC encoder", result);
    }
    AVStream* stream = avformat_new_stream(raw, nullptr);
    avcodec_parameters_from_context(stream->codecpar, codec.get());
    stream->time_base = codec->time_base;
    if ((result = avio_open(&raw->pb, path.c_str(), AVIO_FLAG_WRITE)) < 0) {
        failWith(MediaErrorKind::writingFailed, path, "can't create", result);
    }
    if ((result = avformat_write_header(raw, nullptr)) < 0) {
        failWith(MediaErrorKind::writingFailed, path, "can't write", result);
    }

    av::StreamEncoder encoding(*raw, *codec, *stream, path);

    // The encoder takes frames of its own size (1024 samples for AAC); time is counted in samples.
    const av::Frame frame(av_frame_alloc());
    const auto frameSize = static_cast<std::size_t>(codec->frame_size > 0 ? codec->frame_size : 1024);
    for (std::size_t offset = 0; offset < samples.size(); offset += frameSize) {
        const std::size_t count = std::min(frameSize, samples.size() - offset);
        av_frame_unref(frame.get());
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->sample_rate = sampleRate;
        frame->ch_layout = AV_CHANNEL_LAYOUT_MONO;
        frame->nb_samples = static_cast<int>(count);
        if ((result = av_frame_get_buffer(frame.get(), 0)) < 0) {
            failWith(MediaErrorKind::encodingFailed, path, "encoding", result);
        }
        std::copy_n(samples.data() + offset, count, reinterpret_cast<float*>(frame->data[0]));
        frame->pts = static_cast<int64_t>(offset);
        encoding.send(frame.get());
        // About once a second of sound.
        if (progress && (offset / frameSize) % 48 == 0) {
            progress(static_cast<double>(offset) / static_cast<double>(samples.size()));
        }
    }
    encoding.send(nullptr);
    if ((result = av_write_trailer(raw)) < 0) {
        failWith(MediaErrorKind::writingFailed, path, "writing", result);
    }
}

} // namespace marlowick::AudioFile
