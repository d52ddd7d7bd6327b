#pragma once

#include "model/InputEvent.h"
#include "model/Project.h"
#include "trajectory/CursorSampler.h"

#include <optional>
#include <vector>

namespace marlowick {

// A project as the finished movie shows it: the cuts, and the project and its telemetry moved onto the
// finished movie's clock (output time), with the cursor drawn from that telemetry. The frames themselves
// come from the recording, before the cuts; everything drawn over them is on output time.
//
// A value, read-only once made: any number of threads may read it at once.
struct OutputTimeline {
    // `telemetry` is in source time.
    OutputTimeline(const Project& project, const std::vector<InputEvent>& telemetry);

    TimeMap map;                         // the cuts, from source time to output time
    Project project;                     // on output time: `effectiveTrim` must not be asked of it
    std::vector<InputEvent> telemetry;   // on output time
    std::optional<CursorSampler> cursor; // none without telemetry

    double outputTime(double sourceTime) const;
    double sourceTime(double outputTime) const;
    // The cursor drawn at an output time; none without telemetry.
    std::optional<CursorFrame> cursorAt(double outputTime) const;
};

} // namespace marlowick
