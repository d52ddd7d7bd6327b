#pragma once

#include "audio/PlaybackComposition.h"

#include <filesystem>

namespace marlowick {

// What a player plays: the pictures of `movie` laid out by the composition's segments, and the
// composition's sounds played together. A movie played as it is has one segment over its whole length
// and its own first audio track, if it has one.
struct PlayerItem {
    std::filesystem::path movie;
    PlaybackComposition composition;

    // Seconds on the item's timeline.
    double duration() const { return composition.duration(); }

    // The movie as it is, `duration` seconds long, with its first audio track when `audioTracks` > 0.
    static PlayerItem ofMovie(const std::filesystem::path& movie, double duration, std::size_t audioTracks);
};

} // namespace marlowick
