// Locales, the models found on disk and the choice of language, without decoding anything.

#include "captions/SpeechModels.h"
#include "captions/CaptionText.h"
#include "captions/CaptionTranscriber.h"
#include "support/TempDir.h"

#include <map>

#include <gtest/gtest.h>

using namespace marlowick;
using namespace marlowick::test;
namespace fs = std::filesystem;

namespace {

Environment environmentOf(std::map<std::string, std::string> values) {
    return [values = std::move(values)](const std::string& name) -> std::optional<std::string> {
        const auto it = values.find(name);
        return it == values.end() ? std::nullopt : std::optional<std::string>(it->second);
    };
}

std::vector<Locale> locales(std::initializer_list<const char*> identifiers) {
    std::vector<Locale> out;
    for (const char* identifier : identifiers) {
        out.emplace_back(identifier);
    }
    return out;
}

// A model that looks complete; nothing in it can be decoded with.
void fakeModel(const fs::path& directory) {
    fs::create_directories(directory / "acoustic");
    writeText(directory / "acoustic" / "mdef", "");
    writeText(directory / "acoustic" / "feat.params", "");
    writeText(directory / "words.lm", "");
    writeText(directory / "words.dict", "");
}

} // namespace

TEST(Locale, IdentifiersCodesAndNames) {
    EXPECT_EQ(Locale("en_us").identifier(), "en-US");
    EXPECT_EQ(Locale("ZH-hant-tw").identifier(), "zh-Hant-TW");
    EXPECT_EQ(Locale("en-US").languageCode(), "en");
    EXPECT_EQ(Locale("en-US").regionCode(), "US");
    EXPECT_EQ(Locale("x-private").languageCode(), std::nullopt);
    EXPECT_EQ(Locale("en-US").displayName(), "English (United States)");
    EXPECT_EQ(Locale("fr").displayName(), "French");
    EXPECT_EQ(Locale("de-XY").displayName(), "German (XY)");
    EXPECT_EQ(Locale("tlh-KX").displayName(), "tlh-KX");
    EXPECT_EQ(Locale::fromPosix("en_US.UTF-8"), Locale("en-US"));
    EXPECT_EQ(Locale::fromPosix("de_DE@euro"), Locale("de-DE"));
    EXPECT_EQ(Locale::fromPosix("C.UTF-8"), std::nullopt);
    EXPECT_EQ(Locale::fromPosix("POSIX"), std::nullopt);
    EXPECT_EQ(Locale::fromPosix(""), std::nullopt);
}

TEST(SpeechModels, PreferredLanguagesComeFromTheEnvironmentInOrder) {
    EXPECT_EQ(preferredLocales(environmentOf({{"LANGUAGE", "fr_CA:C::de"},
                                              {"LC_ALL", ""},
                                              {"LC_MESSAGES", "POSIX"},
                                              {"LANG", "en_GB.UTF-8"}})),
              locales({"fr-CA", "de", "en-GB"}));
    EXPECT_TRUE(preferredLocales(environmentOf({})).empty());
}

TEST(SpeechModels, ChoiceTriesEachPreferenceExactlyThenByLanguage) {
    // A region of the language that isn't installed gives another region of it.
    EXPECT_EQ(chooseLocale(locales({"fr-CA"}), locales({"en-US", "fr-FR"})), Locale("fr-FR"));
    // The first preference's language match wins over the second's exact match.
    EXPECT_EQ(chooseLocale(locales({"de-AT", "fr-FR"}), locales({"fr-FR", "de-DE"})), Locale("de-DE"));
    // Exact before language within one preference, case aside.
    EXPECT_EQ(chooseLocale(locales({"EN-gb"}), locales({"en-US", "en-GB"})), Locale("en-GB"));
    // Two identifiers without a language code count as the same language.
    EXPECT_EQ(chooseLocale(locales({"x-one"}), locales({"en-US", "x-two"})), Locale("x-two"));
    // Nothing preferred is installed: the first installed one.
    EXPECT_EQ(chooseLocale(locales({"ja-JP"}), locales({"de-DE", "fr-FR"})), Locale("de-DE"));
    EXPECT_EQ(chooseLocale(locales({"ja-JP"}), {}), std::nullopt);

    TempDir dir;
    fakeModel(dir / "fr-fr");
    fakeModel(dir / "de-de");
    const SpeechRoots roots{{dir.path()}};
    EXPECT_EQ(CaptionTranscriber::defaultLocale(roots, environmentOf({{"LANG", "fr_CA.UTF-8"}})),
              Locale("fr-FR"));
    EXPECT_EQ(CaptionTranscriber::defaultLocale(roots, environmentOf({{"LANG", "C"}})), Locale("fr-FR"))
        << "the first by display name: French before German";
    // No models at all.
    EXPECT_EQ(CaptionTranscriber::defaultLocale(SpeechRoots{{dir / "empty"}},
                                                environmentOf({{"LANG", "fr_FR.UTF-8"}})),
              Locale("en-US"));
}

TEST(SpeechModels, FindsCompleteModelsWhereTheyAreInstalled) {
    // Debian's English model, with the language model of words rather than of phones.
    const std::vector<SpeechModel> installed =
        findSpeechModels(SpeechRoots{{"/usr/share/pocketsphinx/model"}});
    ASSERT_EQ(installed.size(), 1u) << "install pocketsphinx-en-us";
    EXPECT_EQ(installed[0].locale, Locale("en-US"));
    EXPECT_EQ(installed[0].acousticModel, "/usr/share/pocketsphinx/model/en-us/en-us");
    EXPECT_EQ(installed[0].languageModel, "/usr/share/pocketsphinx/model/en-us/en-us.lm.bin");
    EXPECT_EQ(installed[0].dictionary, "/usr/share/pocketsphinx/model/en-us/cmudict-en-us.dict");
    const std::vector<Locale> standard = CaptionTranscriber::onDeviceLocales(
        SpeechRoots::standard(environmentOf({{"XDG_DATA_HOME", "/nonexistent"}})));
    EXPECT_NE(std::find(standard.begin(), standard.end(), Locale("en-US")), standard.end());

    // The user's own models come first, sorted by display name; an incomplete one is passed over, and the
    // user's en-us replaces the system's.
    TempDir dir;
    const fs::path user = dir / "data" / "marlowick" / "speech";
    fakeModel(user / "fr-fr");
    fakeModel(user / "de-de");
    fakeModel(user / "en-us");
    fs::create_directories(user / "es-es");
    writeText(user / "es-es" / "words.dict", "");
    const SpeechRoots roots =
        SpeechRoots::standard(environmentOf({{"XDG_DATA_HOME", (dir / "data").string()}}));
    EXPECT_EQ(roots.directories.front(), user);
    const std::vector<SpeechModel> found = findSpeechModels(roots);
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0].locale, Locale("en-US"));
    EXPECT_EQ(found[0].acousticModel, user / "en-us" / "acoustic");
    EXPECT_EQ(found[1].locale, Locale("fr-FR"));
    EXPECT_EQ(found[2].locale, Locale("de-DE"));
    // Without XDG_DATA_HOME, under the home directory.
    EXPECT_EQ(SpeechRoots::standard(environmentOf({{"HOME", "/home/ann"}})).directories.front(),
              "/home/ann/.local/share/marlowick/speech");
}

TEST(CaptionText, TokensBecomeWordsAndWordsSentences) {
    EXPECT_EQ(CaptionText::spokenWord("can(2)"), "can");
    EXPECT_EQ(CaptionText::spokenWord("i'm"), "i'm");
    for (const char* filler : {"<s>", "</s>", "<sil>", "[NOISE]", "++BREATH++", "[SPEECH]"}) {
        EXPECT_EQ(CaptionText::spokenWord(filler), std::nullopt) << filler;
    }
    std::vector<CaptionTrack::Word> words{
        {"i", 1.0, 1.1, 1},  {"think", 1.1, 1.4, 1}, {"i'm", 1.45, 1.6, 1}, {"here", 1.6, 2.0, 1},
        {"so", 2.6, 2.8, 1}, {"is", 3.3, 3.5, 1},    {"it", 3.5, 3.6, 1}};
    CaptionText::shapeSentences(words);
    std::string text;
    for (const auto& w : words) {
        text += w.text + " ";
    }
    // 2.0 to 2.6 is a pause of 0.6 s; 2.8 to 3.3 isn't.
    EXPECT_EQ(text, "I think I'm here. So is it. ");
}
