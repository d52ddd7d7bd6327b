#include "Errors.h"

#include <iostream>

namespace marlowick::cli {

void report(const std::string& line) {
    std::cerr << "marlowick: " << line << '\n';
}

void reportFailure(const std::filesystem::path& package, const std::exception& error, PackageAccess access) {
    report(package.string() + ": " + describe(error, access));
}

} // namespace marlowick::cli
