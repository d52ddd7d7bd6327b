#pragma once

#include "model/CameraTrack.h"
#include "model/Recording.h"

#include <vector>

namespace marlowick {

// Turns a recording's telemetry into camera moves: the user's actions are grouped into clusters by their
// pauses, and each cluster gets one beat centred on its centroid, zoomed in as far as the cluster's
// spread across the frame allows. Position-only telemetry (no clicks, scrolls or keys) uses the places
// where the pointer rested instead. A pure computation; only the beats' identifiers are fresh each call.
struct ZoomDirector {
    CameraTrack::Style style = CameraTrack::Style::dynamic;
    double clusterGap = 1.2;   // seconds; a longer pause between two actions ends a cluster
    double tailHold = 0.8;     // seconds the camera stays after a cluster's last action
    double transition = 0.35;  // seconds of lead before the first action; also every beat's ramps
    double dwellMinimum = 0.7; // seconds; the shortest pointer rest that counts as a dwell
    double dwellRadius = 0.04; // a dwell's circle, as a fraction of the recording's shorter side

    // No generated beat zooms in less than this.
    static constexpr double smallestScale = 1.15;

    // The generated beats, ascending by start. Reads the recording's `size` and `inputEvents`, which the
    // caller fills with the document's telemetry.
    std::vector<ZoomBeat> beatsFor(const Recording& recording) const;

    // Synthetic actions for position-only telemetry: one `down` at the start of each rest of the pointer
    // (move and drag events staying within the dwell circle of a run's first event for `dwellMinimum`),
    // placed at the rest's mean location.
    std::vector<InputEvent> dwellAnchors(const Recording& recording) const;

    // Keeps the beats a person edited and replaces the generated ones, all ascending by start (a kept
    // beat first at an equal start). The track's own style is kept: a caller changing the style stores
    // the new one in the result.
    CameraTrack regenerate(const CameraTrack& track, const Recording& recording) const;
};

} // namespace marlowick
