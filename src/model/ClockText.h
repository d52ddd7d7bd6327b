#pragma once

#include <string>

namespace marlowick {

// A length in whole seconds as a person reads it on a clock: "0:42", "12:05", or "1:02:03" from an hour on.
// Negative lengths read as 0:00.
std::string clockText(double seconds);

} // namespace marlowick
