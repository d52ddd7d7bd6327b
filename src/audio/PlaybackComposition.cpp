#include "audio/PlaybackComposition.h"

#include "media/AudioFile.h"
#include "media/MediaError.h"
#include "media/MediaInfo.h"

namespace marlowick {

double PlaybackComposition::duration() const {
    return segments.empty() ? 0 : segments.back().compositionStart + segments.back().duration;
}

std::optional<PlaybackComposition>
PlaybackComposition::make(const std::filesystem::path& source, const std::optional<TimeMap>& trim,
                          const std::optional<std::filesystem::path>& processedAudio) {
    PlaybackComposition c;
    std::size_t sourceAudio = 0;
    double sourceDuration = 0;
    try {
        const MediaInfo info = MediaInfo::of(source);
        sourceAudio = info.audioTracks;
        sourceDuration = info.duration;
        c.videoTracks = info.videoTracks;
    } catch (const MediaError&) {
        return std::nullopt;
    }

    std::vector<Range> ranges;
    if (trim && !trim->isIdentity()) {
        ranges = trim->keptRanges();
    } else {
        ranges = {{0, sourceDuration}};
    }
    double at = 0;
    for (const Range& r : ranges) {
        c.segments.push_back({r.lower, r.upper - r.lower, at});
        at += r.upper - r.lower;
    }

    if (processedAudio) {
        try {
            if (AudioFile::trackCount(*processedAudio) > 0) {
                c.audio.push_back({*processedAudio, 0, true});
            }
        } catch (const MediaError&) {
            // Falls back to the source's own sound below.
        }
    }
    if (c.audio.empty()) {
        for (std::size_t t = 0; t < sourceAudio; ++t) {
            c.audio.push_back({source, t, false});
        }
    }
    if (c.videoTracks == 0 && c.audio.empty()) {
        return std::nullopt;
    }
    return c;
}

} // namespace marlowick
