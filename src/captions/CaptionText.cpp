#include "captions/CaptionText.h"

#include <array>
#include <cctype>
#include <string_view>

namespace marlowick::CaptionText {

std::optional<std::string> spokenWord(const std::string& token) {
    if (token.empty()) {
        return std::nullopt;
    }
    const char first = token.front();
    const char last = token.back();
    if ((first == '<' && last == '>') || (first == '[' && last == ']') ||
        (token.size() >= 4 && token.starts_with("++") && token.ends_with("++"))) {
        return std::nullopt;
    }
    std::string word = token;
    // "read(2)": the number says which pronunciation matched, which a caption doesn't show.
    if (const std::size_t open = word.rfind('('); open != std::string::npos && open > 0 && last == ')') {
        word.erase(open);
    }
    return word;
}

namespace {

bool isPronounI(const std::string& word) {
    constexpr std::array<std::string_view, 5> forms{"i", "i'm", "i'll", "i've", "i'd"};
    for (const std::string_view form : forms) {
        if (word == form) {
            return true;
        }
    }
    return false;
}

void capitalise(std::string& word) {
    if (!word.empty()) {
        word[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(word[0])));
    }
}

} // namespace

void shapeSentences(std::vector<CaptionTrack::Word>& words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        CaptionTrack::Word& word = words[i];
        const bool startsSentence = i == 0 || word.start - words[i - 1].end >= sentencePause;
        const bool endsSentence = i + 1 == words.size() || words[i + 1].start - word.end >= sentencePause;
        if (startsSentence || isPronounI(word.text)) {
            capitalise(word.text);
        }
        if (endsSentence) {
            word.text += '.';
        }
    }
}

} // namespace marlowick::CaptionText
