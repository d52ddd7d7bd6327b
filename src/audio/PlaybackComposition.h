#pragma once

#include "model/TimeMap.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace marlowick {

// The edit list the preview plays: the source's video laid end to end with the cut parts left out, and
// the sound either the source's own tracks cut the same way or the processed mix, which is cut already.
// A model only: nothing is decoded here, the player reads the files.
struct PlaybackComposition {
    // One stretch of the source on the composition's clock, in seconds.
    struct Segment {
        double sourceStart = 0;
        double duration = 0;
        double compositionStart = 0;
        friend bool operator==(const Segment&, const Segment&) = default;
    };

    struct AudioEntry {
        std::filesystem::path file;
        std::size_t track = 0;   // among the file's audio tracks, in file order
        bool preTrimmed = false; // the processed mix: played whole from 0, not cut again
        friend bool operator==(const AudioEntry&, const AudioEntry&) = default;
    };

    std::vector<Segment> segments; // for the video, and for every sound that isn't pre-trimmed
    std::size_t videoTracks = 0;
    std::vector<AudioEntry> audio; // played together

    double duration() const;

    // None when the source can't be opened, or has neither video nor sound to play. A processed mix that
    // can't be opened or has no sound leaves the source's own sound in use.
    static std::optional<PlaybackComposition>
    make(const std::filesystem::path& source, const std::optional<TimeMap>& trim,
         const std::optional<std::filesystem::path>& processedAudio);
};

} // namespace marlowick
