#include "model/CaptionTrack.h"

#include "model/ModelCoding.h"

#include <algorithm>

namespace marlowick {

std::string displayName(CaptionStyle::Position position) {
    std::string name(enumName(position));
    if (!name.empty() && name[0] >= 'a' && name[0] <= 'z') {
        name[0] = static_cast<char>(name[0] - 'a' + 'A');
    }
    return name;
}

std::string CaptionTrack::Cue::text() const {
    std::string joined;
    for (const Word& w : words) {
        if (!joined.empty()) {
            joined.push_back(' ');
        }
        joined += w.text;
    }
    return joined;
}

CaptionTrack::Cue CaptionTrack::Cue::withText(std::string_view text) const {
    Cue corrected = *this;
    std::vector<Word> spread = spreadWords(text, start(), end());
    if (spread.size() == words.size()) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            corrected.words[i].text = std::move(spread[i].text);
        }
    } else {
        corrected.words = std::move(spread);
    }
    return corrected;
}

std::vector<CaptionTrack::Word> CaptionTrack::spreadWords(std::string_view text, double start, double end) {
    std::vector<std::string> pieces;
    std::size_t letters = 0;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t begin = text.find_first_not_of(" \t\r\n", at);
        if (begin == std::string_view::npos) {
            break;
        }
        const std::size_t stop = std::min(text.find_first_of(" \t\r\n", begin), text.size());
        pieces.emplace_back(text.substr(begin, stop - begin));
        letters += stop - begin;
        at = stop;
    }
    std::vector<Word> words;
    double from = start;
    std::size_t counted = 0;
    for (std::string& piece : pieces) {
        counted += piece.size();
        // Each end is placed from the letters counted so far, so rounding never piles up at the last word.
        const double to = start + (end - start) * static_cast<double>(counted) / static_cast<double>(letters);
        words.push_back({std::move(piece), from, to, 1.0});
        from = to;
    }
    return words;
}

std::optional<std::size_t> CaptionTrack::Cue::activeWordAt(double t) const {
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i].start <= t && t <= words[i].end) {
            return i;
        }
    }
    return std::nullopt;
}

const CaptionTrack::Cue* CaptionTrack::cueAt(double t) const {
    for (const Cue& cue : cues) {
        if (cue.contains(t)) {
            return &cue;
        }
    }
    return nullptr;
}

std::vector<CaptionTrack::Cue> CaptionTrack::cuesFromWords(const std::vector<Word>& words,
                                                           std::size_t maximumWords, double pauseBreak) {
    std::vector<Cue> result;
    std::vector<Word> current;
    auto close = [&] {
        result.push_back(Cue{Uuid::random(), std::move(current)});
        current.clear();
    };
    for (const Word& word : words) {
        if (!current.empty() && word.start - current.back().end >= pauseBreak) {
            close();
        }
        current.push_back(word);
        // Only the very last character counts: "end.\"" doesn't close a sentence.
        const bool endsSentence = !word.text.empty() && (word.text.back() == '.' || word.text.back() == '?' ||
                                                         word.text.back() == '!');
        if (endsSentence || current.size() >= maximumWords) {
            close();
        }
    }
    if (!current.empty()) {
        close();
    }
    return result;
}

Json Coder<CaptionTrack::Word>::encode(const CaptionTrack::Word& w) {
    return {{"text", w.text},
            {"start", toJson(w.start)},
            {"end", toJson(w.end)},
            {"confidence", toJson(w.confidence)}};
}

CaptionTrack::Word Coder<CaptionTrack::Word>::decode(const JsonReader& r) {
    return {r.decode<std::string>("text"), r.decode<double>("start"), r.decode<double>("end"),
            r.decode<double>("confidence")};
}

Json Coder<CaptionTrack::Cue>::encode(const CaptionTrack::Cue& c) {
    return {{"id", toJson(c.id)}, {"words", toJson(c.words)}};
}

CaptionTrack::Cue Coder<CaptionTrack::Cue>::decode(const JsonReader& r) {
    return {r.decode<Uuid>("id"), r.decode<std::vector<CaptionTrack::Word>>("words")};
}

Json Coder<CaptionStyle>::encode(const CaptionStyle& s) {
    return {{"fontName", s.fontName},
            {"fontScale", toJson(s.fontScale)},
            {"highlightPerWord", s.highlightPerWord},
            {"position", toJson(s.position)},
            {"textColor", s.textColor},
            {"highlightColor", s.highlightColor},
            {"backgroundOpacity", toJson(s.backgroundOpacity)}};
}

CaptionStyle Coder<CaptionStyle>::decode(const JsonReader& r) {
    return {r.decode<std::string>("fontName"),    r.decode<double>("fontScale"),
            r.decode<bool>("highlightPerWord"),   r.decode<CaptionStyle::Position>("position"),
            r.decode<std::string>("textColor"),   r.decode<std::string>("highlightColor"),
            r.decode<double>("backgroundOpacity")};
}

Json Coder<CaptionTrack>::encode(const CaptionTrack& t) {
    return {{"cues", toJson(t.cues)}, {"style", toJson(t.style)}, {"isEnabled", t.isEnabled}};
}

CaptionTrack Coder<CaptionTrack>::decode(const JsonReader& r) {
    return {r.decode<std::vector<CaptionTrack::Cue>>("cues"), r.decode<CaptionStyle>("style"),
            r.decode<bool>("isEnabled")};
}

} // namespace marlowick
