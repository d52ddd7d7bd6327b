#include "trajectory/RetakeSwap.h"

#include "trajectory/ZoomDirector.h"

#include <algorithm>
#include <cmath>

namespace marlowick {

namespace {

double scaleBetween(double previous, double next) {
    return previous > 0 ? next / previous : 1;
}

} // namespace

double RetakeSwap::Report::timeScale() const {
    return scaleBetween(previousDuration, newDuration);
}

bool RetakeSwap::Report::needsReview() const {
    return remappedBeats >= 1 && previousDuration > 0 && std::abs(newDuration / previousDuration - 1) > 0.02;
}

RetakeSwap::Result RetakeSwap::apply(const Recording& retake, const MarlowickDocument& document) const {
    const Project& old = document.project;
    const double s = scaleBetween(old.source.duration, retake.duration);
    const double d = retake.duration;

    Project project = old;
    project.source = retake;
    project.source.inputEvents.clear();

    const CameraTrack::Style chosen = style.value_or(old.camera.style);
    ZoomDirector director;
    director.style = chosen;
    std::vector<ZoomBeat> beats = director.beatsFor(retake);
    const int regenerated = static_cast<int>(beats.size());

    int remapped = 0;
    for (const ZoomBeat& beat : old.camera.beats) {
        if (beat.isGenerated) {
            continue;
        }
        // Never dropped: at least the minimum beat remains wherever the take is long enough for it.
        ZoomBeat moved = beat;
        moved.start = std::min(std::max(s * beat.start, 0.0), std::max(d - ZoomBeat::minimumDuration, 0.0));
        moved.end = std::min(std::max(moved.start + ZoomBeat::minimumDuration, s * beat.end), d);
        beats.push_back(moved);
        ++remapped;
    }
    std::stable_sort(beats.begin(), beats.end(),
                     [](const ZoomBeat& a, const ZoomBeat& b) { return a.start < b.start; });
    project.camera = CameraTrack{std::move(beats), chosen};

    bool captionsCleared = false;
    if (project.captions) {
        captionsCleared = !project.captions->cues.empty();
        project.captions->cues.clear();
    }

    return {MarlowickDocument(std::move(project), retake.inputEvents),
            {old.source.duration, retake.duration, regenerated, remapped, captionsCleared}};
}

} // namespace marlowick
