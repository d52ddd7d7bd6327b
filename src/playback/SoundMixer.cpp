#include "playback/SoundMixer.h"

#include "media/AudioFile.h"
#include "media/MediaError.h"

#include <algorithm>
#include <cmath>

namespace marlowick {

namespace {

std::int64_t samplesOf(double seconds) {
    return std::llround(seconds * AudioFile::sampleRate);
}

} // namespace

SoundMixer::SoundMixer(const PlaybackComposition& composition)
    : m_segments(composition.segments)
    , m_end(samplesOf(composition.duration())) {
    for (const PlaybackComposition::AudioEntry& entry : composition.audio) {
        Track track;
        track.reader = std::make_unique<AudioReader>(entry.file, entry.track);
        track.preTrimmed = entry.preTrimmed;
        track.nextSource = track.preTrimmed ? -1 : 0;
        m_tracks.push_back(std::move(track));
    }
    seek(0);
}

void SoundMixer::seek(double time) {
    m_position = std::max<std::int64_t>(0, samplesOf(time));
    for (Track& track : m_tracks) {
        if (track.preTrimmed && !track.failed) {
            try {
                track.reader->seek(static_cast<double>(m_position) / AudioFile::sampleRate);
            } catch (const MediaError&) {
                track.failed = true;
            }
        }
        // A cut track is placed as its segments come up.
        track.nextSource = -1;
    }
}

void SoundMixer::read(std::span<float> out) {
    std::fill(out.begin(), out.end(), 0.0F);
    m_scratch.resize(out.size());
    for (Track& track : m_tracks) {
        if (track.failed) {
            continue;
        }
        std::fill(m_scratch.begin(), m_scratch.end(), 0.0F);
        try {
            readTrack(track, m_position, m_scratch);
        } catch (const MediaError&) {
            track.failed = true;
        }
        for (std::size_t i = 0; i < out.size(); ++i) {
            out[i] += m_scratch[i];
        }
    }
    if (m_tracks.size() > 1) {
        for (float& sample : out) {
            sample = std::clamp(sample, -1.0F, 1.0F);
        }
    }
    m_position += static_cast<std::int64_t>(out.size());
}

void SoundMixer::readTrack(Track& track, std::int64_t from, std::span<float> out) {
    const std::int64_t until = std::min(from + static_cast<std::int64_t>(out.size()), m_end);
    if (track.preTrimmed) {
        if (until > from) {
            track.reader->read(out.first(static_cast<std::size_t>(until - from)));
        }
        return;
    }
    std::int64_t at = from;
    while (at < until) {
        // The segment playing at `at`: the last one starting by then.
        auto segment = std::upper_bound(m_segments.begin(), m_segments.end(), at,
                                        [](std::int64_t sample, const PlaybackComposition::Segment& s) {
                                            return sample < samplesOf(s.compositionStart);
                                        });
        if (segment == m_segments.begin()) {
            return;
        }
        --segment;
        const std::int64_t segmentStart = samplesOf(segment->compositionStart);
        const std::int64_t segmentEnd = std::min(until, segmentStart + samplesOf(segment->duration));
        if (segmentEnd <= at) {
            return;
        }
        const std::int64_t source = samplesOf(segment->sourceStart) + (at - segmentStart);
        if (source != track.nextSource) {
            // A cut, or a seek: a segment joining the one before it in the source reads straight on.
            track.reader->seek(static_cast<double>(source) / AudioFile::sampleRate);
        }
        const auto count = static_cast<std::size_t>(segmentEnd - at);
        track.reader->read(out.subspan(static_cast<std::size_t>(at - from), count));
        track.nextSource = source + static_cast<std::int64_t>(count);
        at = segmentEnd;
    }
}

} // namespace marlowick
