#include "Commands.h"
#include "Errors.h"

#include "model/MarlowickDocument.h"

#include <iostream>

namespace marlowick::cli {

namespace {

constexpr std::string_view help = R"(Usage: marlowick resave IN OUT

Reads the package IN and writes it to OUT through the same reading and saving the application uses, so
that a package from an older version is brought up to date. OUT may be IN itself. The new package is
built beside OUT and swapped in whole: if anything fails, OUT stays as it was. An existing OUT is
replaced only if it is a package.
)";

} // namespace

int runResave(const std::vector<std::string>& args) {
    if (wantsHelp(args)) {
        std::cout << help;
        return 0;
    }
    if (args.size() != 2 || args[0].starts_with("-") || args[1].starts_with("-")) {
        report("resave takes two packages, IN and OUT; see 'marlowick resave --help'");
        return exitUsage;
    }
    const std::filesystem::path in = args[0];
    const std::filesystem::path out = args[1];
    std::optional<MarlowickDocument> document;
    try {
        document = MarlowickDocument::read(in);
    } catch (const std::exception& e) {
        report(describe(e, in, Operation::opening));
        return exitFailure;
    }
    try {
        document->write(out);
    } catch (const std::exception& e) {
        report(describe(e, out, Operation::saving));
        return exitFailure;
    }
    std::cout << "Saved " << out.string() << '\n';
    return 0;
}

} // namespace marlowick::cli
