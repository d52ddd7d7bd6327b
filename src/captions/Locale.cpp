#include "captions/Locale.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <utility>
#include <vector>

namespace marlowick {

namespace {

bool allLetters(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isalpha(c); });
}

bool allDigits(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

std::vector<std::string> parts(const std::string& identifier) {
    std::vector<std::string> out(1);
    for (const char c : identifier) {
        if (c == '-' || c == '_') {
            out.emplace_back();
        } else {
            out.back() += c;
        }
    }
    return out;
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

bool isLanguage(std::string_view part) {
    return (part.size() == 2 || part.size() == 3) && allLetters(part);
}

bool isRegion(std::string_view part) {
    return (part.size() == 2 && allLetters(part)) || (part.size() == 3 && allDigits(part));
}

// The languages CMU Sphinx has published models for, and the common others.
constexpr std::array<std::pair<std::string_view, std::string_view>, 24> languageNames{{
    {"ar", "Arabic"},  {"ca", "Catalan"}, {"cs", "Czech"},     {"da", "Danish"},   {"de", "German"},
    {"el", "Greek"},   {"en", "English"}, {"es", "Spanish"},   {"fa", "Persian"},  {"fi", "Finnish"},
    {"fr", "French"},  {"hi", "Hindi"},   {"it", "Italian"},   {"ja", "Japanese"}, {"kk", "Kazakh"},
    {"ko", "Korean"},  {"nl", "Dutch"},   {"no", "Norwegian"}, {"pl", "Polish"},   {"pt", "Portuguese"},
    {"ru", "Russian"}, {"sv", "Swedish"}, {"uk", "Ukrainian"}, {"zh", "Chinese"},
}};

constexpr std::array<std::pair<std::string_view, std::string_view>, 27> regionNames{{
    {"AT", "Austria"},     {"AU", "Australia"},     {"BE", "Belgium"},        {"BR", "Brazil"},
    {"CA", "Canada"},      {"CH", "Switzerland"},   {"CN", "China"},          {"DE", "Germany"},
    {"ES", "Spain"},       {"FR", "France"},        {"GB", "United Kingdom"}, {"GR", "Greece"},
    {"IE", "Ireland"},     {"IN", "India"},         {"IT", "Italy"},          {"JP", "Japan"},
    {"KR", "South Korea"}, {"KZ", "Kazakhstan"},    {"MX", "Mexico"},         {"NL", "Netherlands"},
    {"NZ", "New Zealand"}, {"PT", "Portugal"},      {"RU", "Russia"},         {"SE", "Sweden"},
    {"TW", "Taiwan"},      {"US", "United States"}, {"ZA", "South Africa"},
}};

template <std::size_t N>
std::optional<std::string_view>
lookUp(const std::array<std::pair<std::string_view, std::string_view>, N>& table, std::string_view key) {
    for (const auto& [code, name] : table) {
        if (code == key) {
            return name;
        }
    }
    return std::nullopt;
}

} // namespace

Locale::Locale(const std::string& identifier) {
    // Each part is written the way its kind is: language lower case, script title case, region upper case.
    const std::vector<std::string> pieces = parts(identifier);
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        std::string piece = pieces[i];
        if (i == 0) {
            piece = lower(piece);
        } else if (piece.size() == 4 && allLetters(piece)) {
            piece = lower(piece);
            piece[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(piece[0])));
        } else if (isRegion(piece)) {
            piece = upper(piece);
        }
        m_identifier += (i == 0 ? "" : "-") + piece;
    }
}

std::optional<Locale> Locale::fromPosix(const std::string& name) {
    // "en_US.UTF-8@euro": the codeset and the modifier say nothing about the language.
    const std::string bare = name.substr(0, name.find_first_of(".@"));
    if (bare.empty() || bare == "C" || bare == "POSIX") {
        return std::nullopt;
    }
    return Locale(bare);
}

std::optional<std::string> Locale::languageCode() const {
    const std::string first = parts(m_identifier).front();
    if (!isLanguage(first)) {
        return std::nullopt;
    }
    return first;
}

std::optional<std::string> Locale::regionCode() const {
    const std::vector<std::string> pieces = parts(m_identifier);
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        if (isRegion(pieces[i])) {
            return pieces[i];
        }
    }
    return std::nullopt;
}

std::string Locale::displayName() const {
    const std::optional<std::string> language = languageCode();
    const std::optional<std::string_view> languageName =
        language ? lookUp(languageNames, *language) : std::nullopt;
    if (!languageName) {
        return m_identifier;
    }
    const std::optional<std::string> region = regionCode();
    if (!region) {
        return std::string(*languageName);
    }
    const std::optional<std::string_view> regionName = lookUp(regionNames, *region);
    return std::string(*languageName) + " (" + std::string(regionName ? *regionName : *region) + ")";
}

} // namespace marlowick
