#pragma once

#include "model/MarlowickDocument.h"

#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace marlowick::cli {

// A command's arguments, split into plain words, switches ("--json") and options with a value
// ("--style cinematic" or "--style=cinematic").
struct Arguments {
    std::string command; // the command's name, for messages
    std::vector<std::string> words;
    std::set<std::string, std::less<>> switches;
    std::map<std::string, std::string, std::less<>> values;

    bool has(std::string_view name) const { return switches.contains(name); }
    std::optional<std::string> value(std::string_view name) const;

    // The option's number, or none when it wasn't given. A value that isn't a number from `low` to `high`
    // throws UsageError naming the command, the option, what it takes and what it got:
    // "frame: --at takes seconds, got 'abc'".
    std::optional<double> number(std::string_view option, std::string_view takes, double low,
                                 double high) const;
    // The option's WIDTHxHEIGHT, or none when it wasn't given; a bad value throws UsageError likewise.
    std::optional<std::pair<int, int>> size(std::string_view option, bool even = false) const;
};

// A command line that can't be followed; `main` prints it and exits with status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
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

// Whether a command may write its output at `target`, reporting in one line why not: the target is a
// folder, lies inside a Marlowick package (whose files only a save writes), or doesn't end in `extension`
// (".mp4"), which names what is written.
bool acceptsOutput(std::string_view command, const std::filesystem::path& target, std::string_view extension);

// Reads the package, or reports in one line why it can't be opened; then there is no result.
std::optional<MarlowickDocument> openPackage(const std::filesystem::path& package);

// Saves the document, or reports in one line why it can't be saved. Returns whether it saved.
bool savePackage(const MarlowickDocument& document, const std::filesystem::path& package);

} // namespace marlowick::cli
