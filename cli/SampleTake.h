#pragma once

#include "model/InputEvent.h"

#include <filesystem>
#include <functional>
#include <vector>

namespace marlowick::cli {

// A built-in take for the demo and the benchmarks: a movie of a small synthetic desktop (an editor, a
// browser, a top bar and a dock) in which someone clicks into the editor and types, saves in the
// browser, scrolls, and opens a menu; the pointer telemetry of those actions; and two audio tracks, a
// system sound bed with the clicks' ticks and, when `voice` is on, a narration spoken by flite. The
// pointer is not drawn into the movie: the cursor comes from the telemetry, as in a real take.
struct SampleTake {
    int width = 1280;
    int height = 720;
    double frameRate = 30;
    double seconds = 0; // 0: as long as the narration needs, at least 12 s
    bool voice = true;

    struct Result {
        std::filesystem::path movie;
        double duration = 0; // seconds
        std::vector<InputEvent> telemetry;
    };

    // Writes the movie (H.264 in QuickTime, system audio first, then the voice) at `movie`. `progress`
    // hears the fraction of the frames drawn. Throws std::runtime_error when flite is missing or fails,
    // MediaError when the movie can't be written.
    Result write(const std::filesystem::path& movie, const std::function<void(double)>& progress = {}) const;
};

} // namespace marlowick::cli
