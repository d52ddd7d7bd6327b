#include "export/SubtitleFile.h"

#include "model/FileOps.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <optional>
#include <sstream>
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

// "01:02:03,456", "01:02:03.456" or, in WebVTT, "02:03.456", in seconds; none for anything else.
std::optional<double> readTimestamp(const std::string& text) {
    const auto mark = text.find_first_of(",.");
    if (mark == std::string::npos || text.size() - mark - 1 != 3) {
        return std::nullopt;
    }
    // The fields before the fraction, from the seconds up: seconds, minutes, and hours where given.
    std::vector<std::string> fields;
    std::size_t from = 0;
    for (std::size_t colon = text.find(':'); from <= mark; colon = text.find(':', from)) {
        const std::size_t to = std::min(colon, mark);
        fields.push_back(text.substr(from, to - from));
        from = to + 1;
    }
    fields.push_back(text.substr(mark + 1));
    const bool digits = std::all_of(fields.begin(), fields.end(), [](const std::string& field) {
        return !field.empty() && field.size() <= 3 &&
               std::all_of(field.begin(), field.end(), [](char c) { return c >= '0' && c <= '9'; });
    });
    if (!digits || fields.size() < 3 || fields.size() > 4) {
        return std::nullopt;
    }
    double seconds = std::stod(fields.back()) / 1000;
    double unit = 1;
    for (std::size_t i = fields.size() - 1; i-- > 0;) {
        seconds += std::stod(fields[i]) * unit;
        unit *= 60;
    }
    return seconds;
}

// The cue's text without markup: anything between '<' and '>' goes.
std::string withoutMarkup(const std::string& line) {
    std::string text;
    bool inTag = false;
    for (const char c : line) {
        if (c == '<') {
            inTag = true;
        } else if (c == '>') {
            inTag = false;
        } else if (!inTag) {
            text.push_back(c);
        }
    }
    return text;
}

std::string trimmed(std::string line) {
    const auto first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos) {
        return {};
    }
    const auto last = line.find_last_not_of(" \t\r");
    return line.substr(first, last - first + 1);
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

std::vector<SubtitleCue> parseSubtitles(std::string_view text) {
    std::istringstream input{std::string(text)};
    std::vector<SubtitleCue> cues;
    std::string line;
    int number = 0;
    std::optional<SubtitleCue> cue; // the cue whose text lines are being read
    bool skipping = false;          // inside a NOTE or STYLE block, or the header's block
    const auto finish = [&] {
        if (cue) {
            cues.push_back(std::move(*cue));
            cue.reset();
        }
    };
    while (std::getline(input, line)) {
        ++number;
        if (number == 1 && line.starts_with("\xEF\xBB\xBF")) {
            line.erase(0, 3);
        }
        line = trimmed(line);
        if (line.empty()) {
            finish();
            skipping = false;
            continue;
        }
        if (skipping) {
            continue;
        }
        if (cue) {
            const std::string shown = trimmed(withoutMarkup(line));
            if (!shown.empty()) {
                cue->text += (cue->text.empty() ? "" : " ") + shown;
            }
            continue;
        }
        if (line.starts_with("WEBVTT") || line.starts_with("NOTE") || line.starts_with("STYLE") ||
            line.starts_with("REGION")) {
            skipping = true;
            continue;
        }
        const auto arrow = line.find("-->");
        if (arrow == std::string::npos) {
            // A cue's number or identifier comes before its times.
            continue;
        }
        const std::string from = trimmed(line.substr(0, arrow));
        std::string rest = trimmed(line.substr(arrow + 3));
        // A WebVTT cue's settings follow its end time.
        const std::string to = rest.substr(0, rest.find_first_of(" \t"));
        const auto start = readTimestamp(from);
        const auto end = readTimestamp(to);
        if (!start || !end || *end < *start) {
            throw SubtitleError(SubtitleErrorKind::unreadable,
                                "line " + std::to_string(number) + ": \"" + line + "\" isn't a cue's times");
        }
        cue = SubtitleCue{*start, *end, {}};
    }
    finish();
    std::erase_if(cues, [](const SubtitleCue& c) { return c.text.empty(); });
    if (cues.empty()) {
        throw SubtitleError(SubtitleErrorKind::noCues);
    }
    return cues;
}

std::vector<SubtitleCue> readSubtitles(const std::filesystem::path& file) {
    return parseSubtitles(fileops::readFile(file));
}

std::vector<CaptionTrack::Cue> captionCuesFrom(const std::vector<SubtitleCue>& cues, const TimeMap& trim) {
    std::vector<CaptionTrack::Cue> captions;
    for (const SubtitleCue& cue : cues) {
        CaptionTrack::Cue caption;
        caption.id = Uuid::random();
        // Spread on the finished video's clock, where the person timed them, then moved word by word, so
        // that no word lands inside a cut.
        for (CaptionTrack::Word word : CaptionTrack::spreadWords(cue.text, cue.start, cue.end)) {
            // A start on a cut's instant begins after the cut, an end on it ends before.
            word.start = trim.sourceTimeForOutput(word.end > word.start ? std::nextafter(word.start, word.end)
                                                                        : word.start);
            word.end = trim.sourceTimeForOutput(word.end);
            caption.words.push_back(std::move(word));
        }
        if (!caption.words.empty()) {
            captions.push_back(std::move(caption));
        }
    }
    return captions;
}

} // namespace marlowick
