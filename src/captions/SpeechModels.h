#pragma once

#include "captions/Locale.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace marlowick {

// Reads one environment variable; none when it is unset. The process's own is `processEnvironment()`;
// tests hand in a table instead.
using Environment = std::function<std::optional<std::string>(const std::string& name)>;
Environment processEnvironment();

// The files PocketSphinx needs to recognise one language.
struct SpeechModel {
    Locale locale{"en-US"};
    std::filesystem::path acousticModel; // a directory holding mdef and feat.params, among others
    std::filesystem::path languageModel; // *.lm.bin, *.lm or *.lm.DMP
    std::filesystem::path dictionary;    // *.dict
};

// The directories searched for speech models, each holding one directory per locale ("en-us", "fr-fr").
// Earlier roots win where two hold the same locale, so a model the user adds replaces the system's.
struct SpeechRoots {
    std::vector<std::filesystem::path> directories;

    // $XDG_DATA_HOME/marlowick/speech (~/.local/share/marlowick/speech by default), then Debian's
    // /usr/share/pocketsphinx/model.
    static SpeechRoots standard(const Environment& environment = processEnvironment());
};

// Every complete model under the roots, sorted by the locale's display name. A locale directory counts
// when it holds a language model and a dictionary beside an acoustic model directory (itself or one of
// its subdirectories); anything else there is passed over. Reads the disk each time; any thread.
std::vector<SpeechModel> findSpeechModels(const SpeechRoots& roots);

// The user's preferred languages in order: LANGUAGE (colon-separated), then LC_ALL, LC_MESSAGES and LANG,
// each POSIX name read as a locale ("en_US.UTF-8" is "en-US"); "C", "POSIX" and empty ones are skipped.
std::vector<Locale> preferredLocales(const Environment& environment = processEnvironment());

// Which of `available` to use for someone who prefers `preferred`: for each preferred language in turn,
// the first available one with the same identifier (case aside), else the first with the same language
// code (two without one count as the same); when none matches, the first available. None when nothing
// is available.
std::optional<Locale> chooseLocale(const std::vector<Locale>& preferred,
                                   const std::vector<Locale>& available);

} // namespace marlowick
