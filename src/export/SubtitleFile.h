#pragma once

#include "model/CaptionTrack.h"
#include "model/EnumNames.h"
#include "model/TimeMap.h"
#include "model/TypedError.h"

#include <filesystem>
#include <string>
#include <string_view>
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

// A subtitle file that can't be read as one; the text says where and why ("line 7: ...").
enum class SubtitleErrorKind { unreadable, noCues };
using SubtitleError = TypedError<SubtitleErrorKind>;

// The cues of a SubRip or a WebVTT text, told apart by the "WEBVTT" header, in file order: a cue's lines
// joined by a blank, its markup (<i>, <v Name>) and a WebVTT cue's settings dropped; NOTE and STYLE blocks
// skipped. Times as the files write them, hours optional in WebVTT. Throws SubtitleError for a time line
// that can't be read or a text without cues.
std::vector<SubtitleCue> parseSubtitles(std::string_view text);
// The same, read from `file`; filesystem_error when it can't be read.
std::vector<SubtitleCue> readSubtitles(const std::filesystem::path& file);

// The caption cues that show `cues` (on the finished video's clock) in a project cut by `trim`: each cue's
// words spread over its span in proportion to their length, then moved back through the cuts onto the
// recording's clock. What `subtitleCues` makes of them gives the same cues back.
std::vector<CaptionTrack::Cue> captionCuesFrom(const std::vector<SubtitleCue>& cues, const TimeMap& trim);

} // namespace marlowick
