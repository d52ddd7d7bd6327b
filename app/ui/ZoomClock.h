#pragma once

#include "model/CameraTrack.h"
#include "model/Project.h"
#include "model/TimeMap.h"

#include <vector>

namespace marlowick {

// The two clocks of the zoom views. The person sees and edits the beats on output time, on the edited
// movie's timeline, while the project stores them on source time. This moves the stored beats onto
// output time for showing, and an edited beat back onto source time for writing, so that a beat edited in
// a project with cuts lands where the person put it. A value, taken from a project as it stands.
class ZoomClock {
public:
    explicit ZoomClock(const Project& project);

    // The seconds the edited movie lasts.
    double duration() const { return m_trim.outputDuration(); }
    // The stored beats on output time; a beat that a cut leaves shorter than the shortest beat is not
    // there, as it never shows in the movie.
    const CameraTrack& shown() const { return m_shown; }
    // A stored beat as the person reads it on output time. A cut may hide it from the movie: it is then
    // listed where the cut is, and marked.
    struct Listed {
        ZoomBeat beat;
        bool hiddenByCut = false;
    };
    // Every stored beat in start order, on output time, hidden ones included.
    std::vector<Listed> listed() const;
    // The stored beat `id` on output time, hidden or not; none if no beat has that id.
    std::optional<Listed> listedBeat(const Uuid& id) const;
    // An output time on the recording's clock. An output time exactly on a cut is the end of the kept
    // stretch before it.
    double sourceTime(double outputTime) const { return m_trim.sourceTimeForOutput(outputTime); }
    // The beat to write for `edited`, a beat of `shown` with new fields: its output times moved back onto
    // source time. An end the edit left where it was keeps its stored value, since a stored time inside a
    // cut, or behind the recording's end, shows at the cut's or the end's instant and would otherwise
    // move. A beat that isn't stored comes back with its times mapped.
    ZoomBeat stored(const ZoomBeat& edited) const;

private:
    TimeMap m_trim;
    CameraTrack m_stored;
    CameraTrack m_shown;
};

} // namespace marlowick
