#include "media/AudioReader.h"

#include "media/AudioFile.h"
#include "media/AvInput.h"
#include "media/MediaError.h"
#include "media/StreamDecoder.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace marlowick {

struct AudioReader::State {
    std::filesystem::path path;
    av::InputFormat input;
    int streamIndex = 0;
    std::unique_ptr<av::StreamDecoder> decoder;
    av::Resampler resampler;
    av::Frame frame{av_frame_alloc()};
    double start = 0;           // seconds: the stream's first timestamp
    std::vector<float> pending; // converted samples not read yet, from `taken` on
    std::size_t taken = 0;
    double target = 0;     // where the reading starts after a seek, until its first frame is placed
    bool placing = true;   // the next decoded frame decides how much to drop (or pad) to reach `target`
    std::int64_t drop = 0; // converted samples still to be dropped before `target`
    bool ended = false;

    // Converts `count` samples (none: what the resampler still holds) onto the end of `pending`.
    void convert(const uint8_t** data, int count) {
        const int room = swr_get_out_samples(resampler.get(), count);
        if (room <= 0) {
            return;
        }
        const std::size_t at = pending.size();
        pending.resize(at + static_cast<std::size_t>(room));
        uint8_t* out[1] = {reinterpret_cast<uint8_t*>(pending.data() + at)};
        const int made = swr_convert(resampler.get(), out, room, data, count);
        if (made < 0) {
            failWith(MediaErrorKind::decodingFailed, path, "can't convert the sound", made);
        }
        pending.resize(at + static_cast<std::size_t>(made));
    }

    // Decodes one more frame into `pending`; false at the end of the track.
    bool decodeMore() {
        if (!decoder->receive(frame.get())) {
            convert(nullptr, 0);
            return false;
        }
        if (placing) {
            placing = false;
            const int64_t pts = frame->best_effort_timestamp;
            const double time =
                pts == AV_NOPTS_VALUE
                    ? 0
                    : static_cast<double>(pts) * av_q2d(input->streams[streamIndex]->time_base) - start;
            drop = std::llround((target - time) * AudioFile::sampleRate);
            if (drop < 0) {
                // The track starts after `target`: silence until it does.
                pending.insert(pending.end(), static_cast<std::size_t>(-drop), 0.0F);
                drop = 0;
            }
        }
        convert(const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
        av_frame_unref(frame.get());
        return true;
    }
};

AudioReader::AudioReader(const std::filesystem::path& path, std::size_t track)
    : m_state(std::make_unique<State>()) {
    State& s = *m_state;
    s.path = path;
    s.input = av::openInput(path);
    const std::vector<int> streams = av::streamsOfType(*s.input, AVMEDIA_TYPE_AUDIO);
    if (track >= streams.size()) {
        throw MediaError(MediaErrorKind::missingTrack,
                         path.string() + ": has no audio track " + std::to_string(track));
    }
    s.streamIndex = streams[track];
    for (unsigned i = 0; i < s.input->nb_streams; ++i) {
        s.input->streams[i]->discard =
            static_cast<int>(i) == s.streamIndex ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    const AVStream& stream = *s.input->streams[s.streamIndex];
    s.start = stream.start_time == AV_NOPTS_VALUE
                  ? 0
                  : static_cast<double>(stream.start_time) * av_q2d(stream.time_base);
    s.decoder = std::make_unique<av::StreamDecoder>(*s.input, s.streamIndex, path);
    const AVCodecContext& codec = s.decoder->codec();
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    AVChannelLayout in{};
    av_channel_layout_copy(&in, &codec.ch_layout);
    SwrContext* raw = nullptr;
    int result = swr_alloc_set_opts2(&raw, &mono, AV_SAMPLE_FMT_FLT, AudioFile::sampleRate, &in,
                                     codec.sample_fmt, codec.sample_rate, 0, nullptr);
    av_channel_layout_uninit(&in);
    s.resampler.reset(raw);
    if (result < 0 || (result = swr_init(raw)) < 0) {
        failWith(MediaErrorKind::decodingFailed, path, "can't convert the sound", result);
    }
}

AudioReader::~AudioReader() = default;

void AudioReader::seek(double time) {
    State& s = *m_state;
    const AVStream& stream = *s.input->streams[s.streamIndex];
    const auto timestamp =
        static_cast<int64_t>(std::floor((std::max(time, 0.0) + s.start) / av_q2d(stream.time_base)));
    const int result = av_seek_frame(s.input.get(), s.streamIndex, timestamp, AVSEEK_FLAG_BACKWARD);
    if (result < 0) {
        failWith(MediaErrorKind::decodingFailed, s.path, "can't seek", result);
    }
    s.decoder->flush();
    // Initialising again empties what the resampler held from before the seek.
    if (const int reset = swr_init(s.resampler.get()); reset < 0) {
        failWith(MediaErrorKind::decodingFailed, s.path, "can't convert the sound", reset);
    }
    s.pending.clear();
    s.taken = 0;
    s.target = time;
    s.placing = true;
    s.drop = 0;
    s.ended = false;
    if (time < 0) {
        // Before the track: its first frame starts at 0, so the silence before it is padded.
        s.placing = false;
        s.pending.assign(static_cast<std::size_t>(std::llround(-time * AudioFile::sampleRate)), 0.0F);
    }
}

std::size_t AudioReader::read(std::span<float> out) {
    State& s = *m_state;
    std::size_t filled = 0;
    while (filled < out.size()) {
        if (s.taken < s.pending.size()) {
            if (s.drop > 0) {
                const auto dropped =
                    std::min<std::size_t>(static_cast<std::size_t>(s.drop), s.pending.size() - s.taken);
                s.taken += dropped;
                s.drop -= static_cast<std::int64_t>(dropped);
                continue;
            }
            const std::size_t count = std::min(out.size() - filled, s.pending.size() - s.taken);
            std::copy_n(s.pending.data() + s.taken, count, out.data() + filled);
            s.taken += count;
            filled += count;
            continue;
        }
        s.pending.clear();
        s.taken = 0;
        if (s.ended) {
            break;
        }
        if (!s.decodeMore()) {
            s.ended = true;
        }
    }
    return filled;
}

} // namespace marlowick
