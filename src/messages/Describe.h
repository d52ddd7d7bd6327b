#pragma once

#include <exception>
#include <string>

namespace marlowick {

// What the person asked for when a package failed: the same fault reads differently when a package is
// opened and when one is saved (a missing movie, a damaged file).
enum class PackageAccess { opening, saving };

// The one wording of every failure the core raises, shared by the command-line tool and the application.
// The sentence names what went wrong and, where the person can do something, what; it never names the
// package it happened to, so that the tool can put the package's path first ("demo.marlowick: ...") and
// the application a job's prefix ("Could not analyse audio: ..."). Errors of no known type read as their
// own text.
std::string describe(const std::exception& error, PackageAccess access = PackageAccess::opening);

} // namespace marlowick
