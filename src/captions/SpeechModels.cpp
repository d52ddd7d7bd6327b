#include "captions/SpeechModels.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace marlowick {

namespace fs = std::filesystem;

namespace {

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool isAcousticModel(const fs::path& directory) {
    std::error_code error;
    return fs::is_regular_file(directory / "mdef", error) &&
           fs::is_regular_file(directory / "feat.params", error);
}

bool isLanguageModel(const std::string& name) {
    return endsWith(name, ".lm.bin") || endsWith(name, ".lm") || endsWith(name, ".lm.DMP");
}

// Debian's en-us directory also holds en-us-phone.lm.bin, a model of phones rather than words: a language
// model named after the directory comes first, one of phones last.
int languageModelRank(const std::string& name, const std::string& directoryName) {
    if (name.rfind(directoryName + ".", 0) == 0) {
        return 0;
    }
    return name.find("phone") == std::string::npos ? 1 : 2;
}

std::optional<SpeechModel> modelIn(const fs::path& directory) {
    std::error_code error;
    std::vector<fs::path> entries;
    for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
        entries.push_back(it->path());
    }
    // The same choice on every machine, whatever order the directory lists in.
    std::sort(entries.begin(), entries.end());
    const std::string directoryName = directory.filename().string();
    SpeechModel model{Locale(directoryName), {}, {}, {}};
    if (isAcousticModel(directory)) {
        model.acousticModel = directory;
    }
    int bestRank = 3;
    for (const fs::path& entry : entries) {
        const std::string name = entry.filename().string();
        if (fs::is_directory(entry, error)) {
            if (model.acousticModel.empty() && isAcousticModel(entry)) {
                model.acousticModel = entry;
            }
        } else if (isLanguageModel(name)) {
            if (const int rank = languageModelRank(name, directoryName); rank < bestRank) {
                bestRank = rank;
                model.languageModel = entry;
            }
        } else if (endsWith(name, ".dict") && model.dictionary.empty()) {
            model.dictionary = entry;
        }
    }
    if (model.acousticModel.empty() || model.languageModel.empty() || model.dictionary.empty()) {
        return std::nullopt;
    }
    return model;
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

} // namespace

Environment processEnvironment() {
    return [](const std::string& name) -> std::optional<std::string> {
        const char* value = std::getenv(name.c_str());
        return value == nullptr ? std::nullopt : std::optional<std::string>(value);
    };
}

SpeechRoots SpeechRoots::standard(const Environment& environment) {
    SpeechRoots roots;
    const std::optional<std::string> dataHome = environment("XDG_DATA_HOME");
    const std::optional<std::string> home = environment("HOME");
    // An empty or relative XDG_DATA_HOME is to be ignored, as the XDG base directory rules say.
    if (dataHome && !dataHome->empty() && fs::path(*dataHome).is_absolute()) {
        roots.directories.push_back(fs::path(*dataHome) / "marlowick" / "speech");
    } else if (home && !home->empty()) {
        roots.directories.push_back(fs::path(*home) / ".local" / "share" / "marlowick" / "speech");
    }
    roots.directories.emplace_back("/usr/share/pocketsphinx/model");
    return roots;
}

std::vector<SpeechModel> findSpeechModels(const SpeechRoots& roots) {
    std::vector<SpeechModel> models;
    for (const fs::path& root : roots.directories) {
        std::error_code error;
        std::vector<fs::path> directories;
        for (fs::directory_iterator it(root, error), end; !error && it != end; it.increment(error)) {
            if (fs::is_directory(it->path(), error)) {
                directories.push_back(it->path());
            }
        }
        std::sort(directories.begin(), directories.end());
        for (const fs::path& directory : directories) {
            std::optional<SpeechModel> model = modelIn(directory);
            const bool known = model && std::any_of(models.begin(), models.end(), [&](const SpeechModel& m) {
                                   return m.locale == model->locale;
                               });
            if (model && !known) {
                models.push_back(std::move(*model));
            }
        }
    }
    std::stable_sort(models.begin(), models.end(), [](const SpeechModel& a, const SpeechModel& b) {
        return a.locale.displayName() < b.locale.displayName();
    });
    return models;
}

std::vector<Locale> preferredLocales(const Environment& environment) {
    std::vector<Locale> locales;
    auto add = [&](const std::string& name) {
        if (std::optional<Locale> locale = Locale::fromPosix(name)) {
            locales.push_back(std::move(*locale));
        }
    };
    if (const std::optional<std::string> languages = environment("LANGUAGE")) {
        std::size_t start = 0;
        while (start <= languages->size()) {
            const std::size_t colon = std::min(languages->find(':', start), languages->size());
            add(languages->substr(start, colon - start));
            start = colon + 1;
        }
    }
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (const std::optional<std::string> value = environment(name)) {
            add(*value);
        }
    }
    return locales;
}

std::optional<Locale> chooseLocale(const std::vector<Locale>& preferred,
                                   const std::vector<Locale>& available) {
    if (available.empty()) {
        return std::nullopt;
    }
    for (const Locale& wanted : preferred) {
        for (const Locale& candidate : available) {
            if (lower(candidate.identifier()) == lower(wanted.identifier())) {
                return candidate;
            }
        }
        for (const Locale& candidate : available) {
            if (candidate.languageCode() == wanted.languageCode()) {
                return candidate;
            }
        }
    }
    return available.front();
}

} // namespace marlowick
