#pragma once

#include "messages/Describe.h"

#include <exception>
#include <filesystem>
#include <string>

namespace marlowick::cli {

// Prints "marlowick: " and the line to standard error.
void report(const std::string& line);

// Prints "marlowick: PACKAGE: " and the failure, in the words the application uses too.
void reportFailure(const std::filesystem::path& package, const std::exception& error,
                   PackageAccess access = PackageAccess::opening);

} // namespace marlowick::cli
