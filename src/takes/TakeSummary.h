#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace marlowick {

// What a person needs to tell one take from another: when it was recorded, how long it is, and whether
// edits were made to it.
struct TakeSummary {
    std::filesystem::path movie;
    // When the take started: the movie's last write less its length.
    std::chrono::system_clock::time_point started;
    // Seconds of movie that read back; none when the movie can't be read at all.
    std::optional<double> duration;
    // A recovery copy of the take's project lies beside it.
    bool hasEdits = false;

    // "the take of 25 Nov 2026 at 15:04, 0:42 long", in local time; without the length when it is unknown.
    std::string description() const;
    // "25 Nov 2026 at 15:04"
    std::string startText() const;
    // "0:42", "1:02:03"; "?" when unknown.
    std::string durationText() const;
};

} // namespace marlowick
