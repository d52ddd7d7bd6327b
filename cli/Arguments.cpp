#include "Arguments.h"

#include "Errors.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace marlowick::cli {

std::optional<std::string> Arguments::value(std::string_view name) const {
    const auto it = values.find(name);
    return it == values.end() ? std::nullopt : std::optional<std::string>(it->second);
}

namespace {

std::string shown(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

} // namespace

std::optional<double> Arguments::number(std::string_view option, std::string_view takes, double low,
                                        double high) const {
    const auto text = value(option);
    if (!text) {
        return std::nullopt;
    }
    const auto parsed = parseNumber(*text);
    if (parsed && *parsed >= low && *parsed <= high) {
        return parsed;
    }
    std::string range;
    if (std::isfinite(low) && std::isfinite(high)) {
        range = " from " + shown(low) + " to " + shown(high);
    } else if (std::isfinite(low)) {
        range = low == 0 ? " of zero or more" : " of " + shown(low) + " or more";
    }
    throw UsageError(command + ": " + std::string(option) + " takes " + std::string(takes) + range +
                     ", got '" + *text + "'");
}

std::optional<std::pair<int, int>> Arguments::size(std::string_view option, bool even) const {
    const auto text = value(option);
    if (!text) {
        return std::nullopt;
    }
    const auto parsed = parseSize(*text);
    if (parsed && (!even || (parsed->first % 2 == 0 && parsed->second % 2 == 0))) {
        return parsed;
    }
    throw UsageError(command + ": " + std::string(option) + " takes " + (even ? "an even " : "") +
                     "WIDTHxHEIGHT, as 1280x720, got '" + *text + "'");
}

std::optional<Arguments> parseArguments(std::string_view command, const std::vector<std::string>& args,
                                        std::initializer_list<std::string_view> switches,
                                        std::initializer_list<std::string_view> options, std::size_t words) {
    const std::string see = "; see 'marlowick " + std::string(command) + " --help'";
    auto known = [](std::initializer_list<std::string_view> names, std::string_view name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    Arguments parsed;
    parsed.command = command;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (!a.starts_with("-")) {
            parsed.words.push_back(a);
            continue;
        }
        const auto equals = a.find('=');
        const std::string name = a.substr(0, equals);
        if (equals == std::string::npos && known(switches, name)) {
            parsed.switches.insert(name);
        } else if (known(options, name)) {
            if (equals != std::string::npos) {
                parsed.values[name] = a.substr(equals + 1);
            } else if (i + 1 < args.size()) {
                parsed.values[name] = args[++i];
            } else {
                report(std::string(command) + ": " + name + " needs a value" + see);
                return std::nullopt;
            }
        } else {
            report(std::string(command) + ": unknown option '" + a + "'" + see);
            return std::nullopt;
        }
    }
    if (parsed.words.size() != words) {
        report(std::string(command) + " takes " +
               (words == 1 ? "one package" : std::to_string(words) + " packages") + see);
        return std::nullopt;
    }
    return parsed;
}

std::optional<double> parseNumber(std::string_view text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

std::string counted(std::size_t n, std::string_view noun, std::string_view plural) {
    return std::to_string(n) + " " +
           (n == 1           ? std::string(noun)
            : plural.empty() ? std::string(noun) + "s"
                             : std::string(plural));
}

bool acceptsOutput(std::string_view command, const std::filesystem::path& target,
                   std::string_view extension) {
    const std::string where = std::string(command) + ": " + target.string();
    std::error_code error;
    if (std::filesystem::is_directory(target, error)) {
        report(where + " is a folder; name a file to write");
        return false;
    }
    if (const auto package = MarlowickDocument::packageHolding(target)) {
        report(where + " lies inside the package " + package->string() +
               ", whose files only a save writes; write it elsewhere");
        return false;
    }
    std::string given = target.extension().string();
    std::transform(given.begin(), given.end(), given.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    if (given != extension) {
        std::filesystem::path suggested = target;
        suggested.replace_extension(extension);
        report(where + ": what is written is a " + std::string(extension.substr(1)) + " file; name it " +
               suggested.string());
        return false;
    }
    return true;
}

std::optional<MarlowickDocument> openPackage(const std::filesystem::path& package) {
    try {
        return MarlowickDocument::read(package);
    } catch (const std::exception& e) {
        reportFailure(package, e);
        return std::nullopt;
    }
}

bool savePackage(const MarlowickDocument& document, const std::filesystem::path& package) {
    try {
        document.write(package);
        return true;
    } catch (const std::exception& e) {
        reportFailure(package, e, PackageAccess::saving);
        return false;
    }
}

std::optional<std::pair<int, int>> parseSize(const std::string& text) {
    const auto x = text.find('x');
    if (x == std::string::npos) {
        return std::nullopt;
    }
    int w = 0;
    int h = 0;
    const char* begin = text.data();
    const auto a = std::from_chars(begin, begin + x, w);
    const auto b = std::from_chars(begin + x + 1, begin + text.size(), h);
    if (a.ec != std::errc() || b.ec != std::errc() || a.ptr != begin + x || b.ptr != begin + text.size() ||
        w < 1 || h < 1 || w > 16384 || h > 16384) {
        return std::nullopt;
    }
    return std::pair{w, h};
}

} // namespace marlowick::cli
