#pragma once

#include <exception>
#include <filesystem>
#include <string>

namespace marlowick::cli {

enum class Operation { opening, saving };

// One line for the user that names the package and what is wrong with it, for any failure of the model.
std::string describe(const std::exception& error, const std::filesystem::path& package, Operation operation);

// Prints "marlowick: " and the line to standard error.
void report(const std::string& line);

} // namespace marlowick::cli
