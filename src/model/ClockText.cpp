#include "model/ClockText.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace marlowick {

std::string clockText(double seconds) {
    const long long total = std::llround(std::max(0.0, seconds));
    char text[32];
    if (total >= 3600) {
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", total / 3600, total / 60 % 60, total % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld:%02lld", total / 60, total % 60);
    }
    return text;
}

} // namespace marlowick
