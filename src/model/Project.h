#pragma once

#include "model/AudioSettings.h"
#include "model/CameraTrack.h"
#include "model/Canvas.h"
#include "model/CaptionTrack.h"
#include "model/CursorStyle.h"
#include "model/Recording.h"
#include "model/Span.h"
#include "model/TimeMap.h"
#include "model/Uuid.h"

#include <optional>
#include <string>
#include <vector>

namespace marlowick {

// The whole edit. A value: an edit changes a copy and puts the copy back. A default-made project holds
// the values a file with only `id`, `name` and `source` reads as.
struct Project {
    Uuid id;
    std::string name;
    Recording source;
    Canvas canvas;
    CameraTrack camera;
    CursorStyle cursor;
    std::optional<CaptionTrack> captions; // none until a transcription has run
    AudioSettings audio;
    std::optional<TimeMap> trim; // removals found by silence analysis; none until an analysis has run
    std::vector<Span> manualCuts;

    // The hand cuts, plus the stored silence removals while silence cutting is on, as one map over
    // `source.duration`.
    TimeMap effectiveTrim() const;

    struct Trimmed;
    // The project and the telemetry moved onto output time, for rendering only: never stored, and
    // `effectiveTrim` must not be asked of the result.
    Trimmed applyingTrim(const std::vector<InputEvent>& telemetry) const;

    // When the clicks of `telemetry` (in source time) fall on the finished video: the `down` events that
    // survive the cuts, moved through them, in output seconds. The mix plays its click sounds there.
    std::vector<double> clickTimes(const std::vector<InputEvent>& telemetry) const;

    friend bool operator==(const Project&, const Project&) = default;
};

struct Project::Trimmed {
    Project project;
    std::vector<InputEvent> telemetry;
};

} // namespace marlowick
