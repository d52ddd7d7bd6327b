#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace marlowick::fuzz {

// Stops the run the way a crash does, so that libFuzzer keeps the input that broke a property.
[[noreturn]] inline void fuzzFailure(const std::string& what) {
    std::fprintf(stderr, "fuzz: %s\n", what.c_str());
    std::abort();
}

} // namespace marlowick::fuzz
