#pragma once

#include "audio/PlaybackComposition.h"
#include "media/AudioReader.h"

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace marlowick {

// A composition's sound as one stream on the item's timeline, mono at 48 kHz: every entry read from its
// file, the source's own tracks cut by the segments, a pre-trimmed mix played as it is from 0, all added
// together. Silence past the item's end. One thread at a time.
class SoundMixer {
public:
    // Opens every entry's file; throws MediaError when one can't be read.
    explicit SoundMixer(const PlaybackComposition& composition);

    bool silent() const { return m_tracks.empty(); }
    // The next `read` starts at `time` on the item's timeline.
    void seek(double time);
    // Fills `out` with what follows. A failure to decode leaves silence for the rest of that entry.
    void read(std::span<float> out);

private:
    struct Track {
        std::unique_ptr<AudioReader> reader;
        bool preTrimmed = false;
        std::int64_t nextSource = -1; // the source sample the reader reads next, or -1 when unknown
        bool failed = false;
    };
    // The part of `out` at item sample `from`, for one track.
    void readTrack(Track& track, std::int64_t from, std::span<float> out);

    std::vector<PlaybackComposition::Segment> m_segments;
    std::int64_t m_end = 0;      // the item's last sample, exclusive
    std::int64_t m_position = 0; // the item sample the next read starts at
    std::vector<Track> m_tracks;
    std::vector<float> m_scratch;
};

} // namespace marlowick
