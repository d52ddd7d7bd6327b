#pragma once

#include "model/MarlowickDocument.h"

#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace marlowick::cli {

// A command's arguments, split into plain words, switches ("--json") and options with a value
// ("--style cinematic" or "--style=cinematic").
struct Arguments {
    std::vector<std::string> words;
    std::set<std::string, std::less<>> switches;
    std::map<std::string, std::string, std::less<>> values;

    bool has(std::string_view name) const { return switches.contains(name); }
    std::optional<std::string> value(std::string_view name) const;
};

// Splits `args` by the switches and options the command knows. An unknown option, an option without its
// value, or a count of words other than `words` is reported as a usage error naming `command`; then
// there is no result.
std::optional<Arguments> parseArguments(std::string_view command, const std::vector<std::string>& args,
                                        std::initializer_list<std::string_view> switches,
                                        std::initializer_list<std::string_view> options, std::size_t words);

// A finite decimal number, the whole text of it; none otherwise.
std::optional<double> parseNumber(std::string_view text);

// WIDTHxHEIGHT, as "1280x720", each from 1 to 16384; none otherwise.
std::optional<std::pair<int, int>> parseSize(const std::string& text);

// A count with its noun agreeing: "1 beat", "3 beats"; `plural` for a noun that doesn't just add "s".
std::string counted(std::size_t n, std::string_view noun, std::string_view plural = {});

// Reads the package, or reports in one line why it can't be opened; then there is no result.
std::optional<MarlowickDocument> openPackage(const std::filesystem::path& package);

// Saves the document, or reports in one line why it can't be saved. Returns whether it saved.
bool savePackage(const MarlowickDocument& document, const std::filesystem::path& package);

} // namespace marlowick::cli
