#include "model/TimeMap.h"

#include "model/ModelCoding.h"

#include <algorithm>

namespace marlowick {

TimeMap::TimeMap(std::vector<Range> removals, double sourceDuration)
    : m_sourceDuration(std::max(sourceDuration, 0.0)) {
    std::vector<Range> kept;
    for (Range r : removals) {
        r.lower = std::max(r.lower, 0.0);
        r.upper = std::min(r.upper, m_sourceDuration);
        if (r.lower < r.upper) {
            kept.push_back(r);
        }
    }
    std::stable_sort(kept.begin(), kept.end(),
                     [](const Range& a, const Range& b) { return a.lower < b.lower; });
    for (const Range& r : kept) {
        if (!m_removals.empty() && r.lower <= m_removals.back().upper) {
            m_removals.back().upper = std::max(m_removals.back().upper, r.upper);
        } else {
            m_removals.push_back(r);
        }
    }
}

double TimeMap::removedDuration() const {
    double total = 0;
    for (const Range& r : m_removals) {
        total += r.length();
    }
    return total;
}

double TimeMap::outputDuration() const {
    return std::max(m_sourceDuration - removedDuration(), 0.0);
}

std::vector<Range> TimeMap::keptRanges() const {
    std::vector<Range> kept;
    double cursor = 0;
    for (const Range& r : m_removals) {
        if (cursor < r.lower) {
            kept.push_back({cursor, r.lower});
        }
        cursor = r.upper;
    }
    if (cursor < m_sourceDuration) {
        kept.push_back({cursor, m_sourceDuration});
    }
    return kept;
}

bool TimeMap::isRemoved(double t) const {
    return std::any_of(m_removals.begin(), m_removals.end(), [t](const Range& r) { return r.contains(t); });
}

double TimeMap::outputTimeForSource(double t) const {
    double c = std::clamp(t, 0.0, m_sourceDuration);
    double removedBefore = 0;
    for (const Range& r : m_removals) {
        if (r.upper <= c) {
            removedBefore += r.length();
            continue;
        }
        if (r.lower <= c) {
            c = r.lower;
        }
        break;
    }
    return c - removedBefore;
}

double TimeMap::sourceTimeForOutput(double t) const {
    double c = std::min(std::max(t, 0.0), outputDuration());
    // Walks the kept stretches without building them, so that per-frame lookups allocate nothing.
    double cursor = 0;
    auto take = [&](double lower, double upper) -> std::optional<double> {
        const double length = upper - lower;
        if (c <= length) {
            return lower + c;
        }
        c -= length;
        return std::nullopt;
    };
    for (const Range& r : m_removals) {
        if (cursor < r.lower) {
            if (auto s = take(cursor, r.lower)) {
                return *s;
            }
        }
        cursor = r.upper;
    }
    if (cursor < m_sourceDuration) {
        if (auto s = take(cursor, m_sourceDuration)) {
            return *s;
        }
    }
    return m_sourceDuration;
}

std::optional<ZoomBeat> TimeMap::apply(const ZoomBeat& beat) const {
    const double start = outputTimeForSource(beat.start);
    const double end = outputTimeForSource(beat.end);
    if (end - start < ZoomBeat::minimumDuration) {
        return std::nullopt;
    }
    ZoomBeat moved = beat;
    moved.start = start;
    moved.end = end;
    return moved;
}

CameraTrack TimeMap::apply(const CameraTrack& track) const {
    CameraTrack moved{{}, track.style};
    for (const ZoomBeat& beat : track.beats) {
        if (auto b = apply(beat)) {
            moved.beats.push_back(*b);
        }
    }
    return moved;
}

std::optional<CaptionTrack::Cue> TimeMap::apply(const CaptionTrack::Cue& cue) const {
    // A word squeezed by a cut still shows for this long.
    constexpr double shortestWord = 0.05;
    CaptionTrack::Cue moved{cue.id, {}};
    for (const CaptionTrack::Word& word : cue.words) {
        if (isRemoved((word.start + word.end) * 0.5)) {
            continue;
        }
        CaptionTrack::Word w = word;
        w.start = outputTimeForSource(word.start);
        w.end = std::max(outputTimeForSource(word.end), w.start + shortestWord);
        moved.words.push_back(std::move(w));
    }
    if (moved.words.empty()) {
        return std::nullopt;
    }
    return moved;
}

CaptionTrack TimeMap::apply(const CaptionTrack& track) const {
    CaptionTrack moved{{}, track.style, track.isEnabled};
    for (const CaptionTrack::Cue& cue : track.cues) {
        if (auto c = apply(cue)) {
            moved.cues.push_back(std::move(*c));
        }
    }
    return moved;
}

std::vector<InputEvent> TimeMap::apply(const std::vector<InputEvent>& events) const {
    std::vector<InputEvent> moved;
    moved.reserve(events.size());
    for (const InputEvent& e : events) {
        if (!isRemoved(e.time)) {
            moved.push_back({outputTimeForSource(e.time), e.kind, e.location});
        }
    }
    return moved;
}

Json Coder<TimeMap>::encode(const TimeMap& map) {
    Json removals = Json::array();
    for (const Range& r : map.removals()) {
        removals.push_back({{"start", toJson(r.lower)}, {"end", toJson(r.upper)}});
    }
    return {{"removals", std::move(removals)}, {"sourceDuration", toJson(map.sourceDuration())}};
}

TimeMap Coder<TimeMap>::decode(const JsonReader& r) {
    std::vector<Range> removals;
    for (const JsonReader& element : r.at("removals").elements()) {
        const double start = element.decode<double>("start");
        const double end = element.decode<double>("end");
        // Nothing writes a reversed removal; if one turns up, the stretch between its ends is still what
        // was meant to go.
        removals.push_back({std::min(start, end), std::max(start, end)});
    }
    return TimeMap(std::move(removals), r.decode<double>("sourceDuration"));
}

} // namespace marlowick
