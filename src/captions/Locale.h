#pragma once

#include <optional>
#include <string>

namespace marlowick {

// A language as speech recognition names it: a BCP 47 style identifier such as "en-US", written with a
// lower-case language, a title-case script and an upper-case region ("en_us" and "EN-us" read as "en-US").
// A plain value; any thread.
class Locale {
public:
    explicit Locale(const std::string& identifier);

    // The user's POSIX locale ("en_US.UTF-8", "de_DE@euro") as one of ours ("en-US", "de-DE"); none for
    // "C", "POSIX" or an empty text.
    static std::optional<Locale> fromPosix(const std::string& name);

    const std::string& identifier() const { return m_identifier; }
    // "en" of "en-US"; none when the identifier starts with no two- or three-letter language.
    std::optional<std::string> languageCode() const;
    // "US" of "en-US"; none without one.
    std::optional<std::string> regionCode() const;
    // "English (United States)" from a small table of language and region names; the identifier itself
    // for a language the table lacks.
    std::string displayName() const;

    friend bool operator==(const Locale&, const Locale&) = default;

private:
    std::string m_identifier;
};

} // namespace marlowick
