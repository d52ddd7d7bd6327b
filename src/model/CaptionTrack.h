#pragma once

#include "model/EnumNames.h"
#include "model/Uuid.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace marlowick {

struct CaptionStyle {
    enum class Position { top, center, bottom };

    std::string fontName = "SF Pro Rounded";
    double fontScale = 0.055; // text height relative to the canvas
    bool highlightPerWord = true;
    Position position = Position::bottom;
    std::string textColor = "#FFFFFF";
    std::string highlightColor = "#FFD24A";
    double backgroundOpacity = 0.55; // of the plate behind the text, 0 to 1

    friend bool operator==(const CaptionStyle&, const CaptionStyle&) = default;
};

// "Top", "Center", "Bottom".
std::string displayName(CaptionStyle::Position position);

// Cues of timed words, in source seconds.
struct CaptionTrack {
    struct Word {
        std::string text; // as spoken, punctuation included
        double start = 0;
        double end = 0;
        double confidence = 0;

        friend bool operator==(const Word&, const Word&) = default;
    };

    struct Cue {
        Uuid id;
        std::vector<Word> words;

        // The first word's start and the last word's end; 0 for a cue without words.
        double start() const { return words.empty() ? 0 : words.front().start; }
        double end() const { return words.empty() ? 0 : words.back().end; }
        // The words joined by one blank.
        std::string text() const;
        // Both ends included.
        bool contains(double t) const { return start() <= t && t <= end(); }
        // The first word with start <= t <= end; none between words.
        std::optional<std::size_t> activeWordAt(double t) const;
        // The cue with its text corrected to `text`: where the words are as many as before, each keeps its
        // times (a spelling fixed); otherwise the new words are spread over the cue's span in proportion to
        // their length. Words are split at blanks; a text without words leaves a cue without words.
        Cue withText(std::string_view text) const;

        friend bool operator==(const Cue&, const Cue&) = default;
    };

    std::vector<Cue> cues;
    CaptionStyle style;
    bool isEnabled = true;

    // The first cue in list order that contains t, or null. Where two cues touch, the earlier wins.
    const Cue* cueAt(double t) const;

    // Groups words into cues: a pause of at least `pauseBreak` seconds starts a new cue, and a word ending
    // in ".", "?" or "!", or reaching `maximumWords`, closes one.
    static std::vector<Cue> cuesFromWords(const std::vector<Word>& words, std::size_t maximumWords,
                                          double pauseBreak);
    // The words of `text`, split at blanks, laid end to end over [start, end], each as long as its share of
    // the letters; confidence 1, since a person wrote them.
    static std::vector<Word> spreadWords(std::string_view text, double start, double end);

    friend bool operator==(const CaptionTrack&, const CaptionTrack&) = default;
};

template <> struct EnumNames<CaptionStyle::Position> {
    using P = CaptionStyle::Position;
    static constexpr std::array<std::pair<P, std::string_view>, 3> names{{
        {P::top, "top"},
        {P::center, "center"},
        {P::bottom, "bottom"},
    }};
};

} // namespace marlowick
