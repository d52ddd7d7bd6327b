#include "compositor/CameraSolver.h"

#include "compositor/Easing.h"

#include <algorithm>

namespace marlowick {

const ZoomBeat* CameraSolver::beatAt(double t) const {
    const ZoomBeat* best = nullptr;
    for (const ZoomBeat& beat : track.beats) {
        if (beat.contains(t) && (best == nullptr || beat.start > best->start)) {
            best = &beat;
        }
    }
    return best;
}

CameraSolver::Transform CameraSolver::transformAt(double t) const {
    const ZoomBeat* beat = beatAt(t);
    if (beat == nullptr) {
        return Transform::identity();
    }
    // Each ramp takes at most half the beat, so the two never cross.
    const ZoomBeat::Ramps ramps = beat->effectiveRamps();
    double w = 1; // a ramp of 0 is a cut
    if (ramps.in > 0 && t < beat->start + ramps.in) {
        w = apply(beat->easing, (t - beat->start) / ramps.in);
    } else if (ramps.out > 0 && t > beat->end - ramps.out) {
        // The ramp in run backwards, not a mirrored curve.
        w = apply(beat->easing, (beat->end - t) / ramps.out);
    }
    return {{0.5 + w * (beat->center.x - 0.5), 0.5 + w * (beat->center.y - 0.5)}, 1 + w * (beat->scale - 1)};
}

} // namespace marlowick
