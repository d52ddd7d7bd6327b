#include "export/SubtitleFile.h"

#include "model/FileOps.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <system_error>

namespace marlowick {

namespace {

// A cue must last at least a millisecond to survive: the files count in milliseconds.
constexpr double shortestCue = 0.001;

std::string timestamp(double seconds, char fractionMark) {
    const auto ms = static_cast<long long>(std::llround(std::max(0.0, seconds) * 1000));
    char text[40];
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld%c%03lld", ms / 3600000, ms / 60000 % 60,
                  ms / 1000 % 60, fractionMark, ms % 1000);
    return text;
}

} // namespace

std::vector<SubtitleCue> subtitleCues(const CaptionTrack& captions, const TimeMap& trim) {
    std::vector<SubtitleCue> cues;
    for (const CaptionTrack::Cue& cue : captions.cues) {
        const double start = trim.outputTimeForSource(cue.start());
        const double end = trim.outputTimeForSource(cue.end());
        const auto kept = trim.apply(cue);
        if (!kept || end - start < shortestCue) {
            continue;
        }
        cues.push_back({start, end, kept->text()});
    }
    return cues;
}

std::string subtitleText(const std::vector<SubtitleCue>& cues, SubtitleFormat format) {
    const bool srt = format == SubtitleFormat::srt;
    std::string text = srt ? "" : "WEBVTT\n\n";
    for (std::size_t i = 0; i < cues.size(); ++i) {
        if (srt) {
            text += std::to_string(i + 1) + '\n';
        }
        const char mark = srt ? ',' : '.';
        text += timestamp(cues[i].start, mark) + " --> " + timestamp(cues[i].end, mark) + '\n';
        text += cues[i].text + "\n\n";
    }
    return text;
}

void writeSubtitles(const std::filesystem::path& target, const std::vector<SubtitleCue>& cues,
                    SubtitleFormat format) {
    fileops::StagedOutput output(target);
    {
        std::ofstream file(output.staging(), std::ios::binary | std::ios::trunc);
        file << subtitleText(cues, format);
        file.flush();
        if (!file) {
            throw std::filesystem::filesystem_error("can't write the subtitles", output.staging(),
                                                    std::make_error_code(std::errc::io_error));
        }
    }
    output.commit();
}

} // namespace marlowick
