#pragma once

#include "model/CameraTrack.h"
#include "model/CaptionTrack.h"
#include "model/InputEvent.h"
#include "model/Span.h"

#include <optional>
#include <vector>

namespace marlowick {

// The mapping between source time (the recording's clock) and output time (the finished video's clock)
// once some stretches of the source are removed. A value: both fields are fixed at construction.
//
// Invariants the constructor establishes: `sourceDuration` >= 0; every removal has
// 0 <= lower < upper <= sourceDuration; removals are sorted and neither overlap nor touch.
class TimeMap {
public:
    TimeMap() = default;
    // Clamps each removal into 0..sourceDuration, drops empty ones, sorts and merges what overlaps or
    // touches. A negative duration counts as 0.
    TimeMap(std::vector<Range> removals, double sourceDuration);
    static TimeMap identity(double sourceDuration) { return TimeMap({}, sourceDuration); }

    const std::vector<Range>& removals() const { return m_removals; }
    double sourceDuration() const { return m_sourceDuration; }

    bool isIdentity() const { return m_removals.empty(); }
    double removedDuration() const;
    double outputDuration() const;
    std::vector<Range> keptRanges() const;
    // The start of a removal is removed, its end is not.
    bool isRemoved(double t) const;

    // A source time inside a removal collapses onto the output instant of the cut.
    double outputTimeForSource(double t) const;
    // An output time exactly on a cut maps to the end of the kept stretch before it.
    double sourceTimeForOutput(double t) const;

    // Beats that end up shorter than the minimum beat are dropped.
    std::optional<ZoomBeat> apply(const ZoomBeat& beat) const;
    CameraTrack apply(const CameraTrack& track) const;
    // Words whose midpoint is removed are dropped; a cue with no word left is dropped.
    std::optional<CaptionTrack::Cue> apply(const CaptionTrack::Cue& cue) const;
    CaptionTrack apply(const CaptionTrack& track) const;
    // Events inside a removal are dropped, the rest moved onto output time.
    std::vector<InputEvent> apply(const std::vector<InputEvent>& events) const;

    friend bool operator==(const TimeMap&, const TimeMap&) = default;

private:
    std::vector<Range> m_removals;
    double m_sourceDuration = 0;
};

} // namespace marlowick
