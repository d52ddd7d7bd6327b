#pragma once

#include "model/CaptionTrack.h"

#include <optional>
#include <string>
#include <vector>

namespace marlowick {

// How the recogniser's tokens become the words a caption shows. Pure functions; any thread.
namespace CaptionText {

// A pause at least this long ends a sentence; it is also where a new cue starts.
constexpr double sentencePause = 0.6;

// The spoken word a token stands for: "can(2)" (the dictionary's second pronunciation) is "can"; fillers
// and noises ("<s>", "</s>", "<sil>", "[NOISE]", "++BREATH++", anything bracketed) are none.
std::optional<std::string> spokenWord(const std::string& token);

// Writes the recogniser's lower-case, unpunctuated words as sentences: the first word of the list and the
// first after a pause of `sentencePause` or more get a capital, as does the pronoun "i" ("i'm", "i'll",
// "i've", "i'd"); the last word before such a pause, and the last of all, get a full stop.
void shapeSentences(std::vector<CaptionTrack::Word>& words);

} // namespace CaptionText

} // namespace marlowick
