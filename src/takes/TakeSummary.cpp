#include "takes/TakeSummary.h"

#include "model/ClockText.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace marlowick {

std::string TakeSummary::startText() const {
    // The month's name from a table of our own: the words around it are English too, whatever the locale.
    static constexpr std::array<const char*, 12> months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t seconds = std::chrono::system_clock::to_time_t(started);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[64];
    std::snprintf(text, sizeof text, "%d %s %d at %02d:%02d", local.tm_mday,
                  months[static_cast<std::size_t>(local.tm_mon) % months.size()], local.tm_year + 1900,
                  local.tm_hour, local.tm_min);
    return text;
}

std::string TakeSummary::durationText() const {
    if (!duration) {
        return "?";
    }
    return clockText(*duration);
}

std::string TakeSummary::description() const {
    std::string text = "the take of " + startText();
    if (duration) {
        text += ", " + durationText() + " long";
    }
    return text;
}

} // namespace marlowick
