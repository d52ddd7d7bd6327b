#include "Arguments.h"
#include "Commands.h"

#include "model/MarlowickDocument.h"

#include <iostream>

namespace marlowick::cli {

namespace {

constexpr std::string_view help = R"(Usage: marlowick resave IN OUT

Reads the package IN and writes it to OUT through the same reading and saving the application uses, so
that a package from an older version is brought up to date. OUT may be IN itself. The new package is
built beside OUT and swapped in whole: if anything fails, OUT stays as it was. An existing OUT is
replaced only if it is a package.

Examples:
  marlowick resave old.marlowick old.marlowick
  marlowick resave take.marlowick "take copy.marlowick"
)";

} // namespace

int runResave(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    const auto parsed = parseArguments("resave", args, {}, {}, 2);
    if (!parsed) {
        return exitUsage;
    }
    const std::filesystem::path out = parsed->words[1];
    const auto document = openPackage(parsed->words[0]);
    if (!document || !savePackage(*document, out)) {
        return exitFailure;
    }
    std::cout << "Saved " << out.string() << '\n';
    return 0;
}

} // namespace marlowick::cli
