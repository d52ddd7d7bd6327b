#pragma once

#include "model/CaptionTrack.h"
#include "model/EnumNames.h"
#include "model/TimeMap.h"

#include <filesystem>
#include <string>
#include <vector>

namespace marlowick {

// Subtitle files that travel beside an exported movie: SubRip (".srt") and WebVTT (".vtt").
enum class SubtitleFormat { srt, vtt };

template <> struct EnumNames<SubtitleFormat> {
    static constexpr std::array<std::pair<SubtitleFormat, std::string_view>, 2> names{{
        {SubtitleFormat::srt, "srt"},
        {SubtitleFormat::vtt, "vtt"},
    }};
};

// One cue as the finished video shows it: seconds on the output clock, after the cuts.
struct SubtitleCue {
    double start = 0;
    double end = 0;
    std::string text;

    friend bool operator==(const SubtitleCue&, const SubtitleCue&) = default;
};

// The captions' cues moved onto the output clock. A cue that a cut removes whole is dropped; one that
// a cut overlaps starts or ends at the cut's edge, and loses the words the finished video loses (those
// whose middle is cut). Cues keep their order.
std::vector<SubtitleCue> subtitleCues(const CaptionTrack& captions, const TimeMap& trim);

// The file's text: numbered cues for SubRip, a "WEBVTT" header for WebVTT, times to the millisecond.
std::string subtitleText(const std::vector<SubtitleCue>& cues, SubtitleFormat format);

// Writes the file at `target` through a staged output, so an earlier file there survives a failure.
// Throws filesystem_error when it can't be written. Any thread.
void writeSubtitles(const std::filesystem::path& target, const std::vector<SubtitleCue>& cues,
                    SubtitleFormat format);

} // namespace marlowick
