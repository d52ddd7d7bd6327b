#pragma once

#include "model/CameraTrack.h"

namespace marlowick {

// Where the camera is at a time. The camera rests on the whole frame; a beat raises it towards the
// beat's centre and scale over its ramp in and lowers it over its ramp out. Beats don't blend: where two
// overlap, the one that started later rules alone from its first instant. Evaluated for every frame of
// preview and export alike, so that both agree.
struct CameraSolver {
    struct Transform {
        Point center{0.5, 0.5}; // centre of the view in source space, 0 to 1 on each axis
        double scale = 1;       // 1 shows the whole frame

        static constexpr Transform identity() { return {}; }
        friend bool operator==(const Transform&, const Transform&) = default;
    };

    CameraTrack track;

    // t is on the clock of the track's beats. The view isn't kept inside the frame here: the centre is
    // the beat's own, and the frame layout keeps the picture inside the recording.
    Transform transformAt(double t) const;

private:
    // Among the beats containing t (ends included), the one with the latest start; the first in the list
    // on a tie. Null when none contains t.
    const ZoomBeat* beatAt(double t) const;
};

} // namespace marlowick
