#include "ui/ZoomClock.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace marlowick {

ZoomClock::ZoomClock(const Project& project)
    : m_trim(project.effectiveTrim())
    , m_stored(project.camera)
    , m_shown(m_trim.apply(project.camera)) {}

std::vector<ZoomClock::Listed> ZoomClock::listed() const {
    std::vector<Listed> beats;
    for (const ZoomBeat& beat : m_stored.ordered()) {
        beats.push_back(*listedBeat(beat.id));
    }
    return beats;
}

std::optional<ZoomClock::Listed> ZoomClock::listedBeat(const Uuid& id) const {
    const auto storedBeat = std::find_if(m_stored.beats.begin(), m_stored.beats.end(),
                                         [&](const ZoomBeat& beat) { return beat.id == id; });
    if (storedBeat == m_stored.beats.end()) {
        return std::nullopt;
    }
    const auto shownBeat = std::find_if(m_shown.beats.begin(), m_shown.beats.end(),
                                        [&](const ZoomBeat& beat) { return beat.id == id; });
    if (shownBeat != m_shown.beats.end()) {
        return Listed{*shownBeat, false};
    }
    ZoomBeat hidden = *storedBeat;
    hidden.start = m_trim.outputTimeForSource(storedBeat->start);
    hidden.end = m_trim.outputTimeForSource(storedBeat->end);
    return Listed{hidden, true};
}

ZoomBeat ZoomClock::stored(const ZoomBeat& edited) const {
    const auto storedBeat = std::find_if(m_stored.beats.begin(), m_stored.beats.end(),
                                         [&](const ZoomBeat& beat) { return beat.id == edited.id; });
    const std::optional<Listed> listedAs = listedBeat(edited.id);
    const bool known = storedBeat != m_stored.beats.end() && listedAs;
    const double start =
        known && edited.start == listedAs->beat.start ? storedBeat->start : sourceTime(edited.start);
    const double end = known && edited.end == listedAs->beat.end ? storedBeat->end : sourceTime(edited.end);
    // A stretch of output time is never longer than the source behind it, so a beat of the shortest length
    // on output time stays at least that long; the constructor holds the limit.
    ZoomBeat beat(edited.id, start, end, edited.center, edited.scale, edited.rampIn, edited.rampOut,
                  edited.easing, edited.isGenerated);
    // A beat made the shortest length may still come out a rounding step short of it once moved onto
    // output time, and would then vanish from the movie and the rail: its start goes down by as many
    // steps, or at the recording's start its end goes up (the end can't, at the recording's end).
    constexpr double infinity = std::numeric_limits<double>::infinity();
    // A beat a cut hides stays as it is stored: only its other fields were edited.
    const bool hidden = listedAs && listedAs->hiddenByCut;
    for (int step = 0; step < 64 && !hidden && !m_trim.apply(beat); ++step) {
        if (beat.start > 0) {
            beat.start = std::max(std::nextafter(beat.start, -infinity), 0.0);
        } else {
            beat.end = std::nextafter(beat.end, infinity);
        }
    }
    return beat;
}

} // namespace marlowick
