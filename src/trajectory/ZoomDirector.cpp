#include "trajectory/ZoomDirector.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace marlowick {

namespace {

bool isAction(InputEvent::Kind kind) {
    return kind == InputEvent::Kind::down || kind == InputEvent::Kind::scroll ||
           kind == InputEvent::Kind::keyPress;
}

bool isTravel(InputEvent::Kind kind) {
    return kind == InputEvent::Kind::move || kind == InputEvent::Kind::drag;
}

// The members of a cluster as running sums, in list order, so that no cluster is ever copied.
class Cluster {
public:
    bool empty() const { return m_count == 0; }
    double firstTime() const { return m_firstTime; }
    double lastTime() const { return m_lastTime; }

    void add(const InputEvent& e) {
        if (m_count == 0) {
            m_firstTime = e.time;
        }
        m_lastTime = e.time;
        m_sumX += e.location.x;
        m_sumY += e.location.y;
        m_minX = std::min(m_minX, e.location.x);
        m_maxX = std::max(m_maxX, e.location.x);
        m_minY = std::min(m_minY, e.location.y);
        m_maxY = std::max(m_maxY, e.location.y);
        ++m_count;
    }

    // The mean location over the frame size; an axis of size 0 sits in the middle. Not clamped.
    Point normalisedCentroid(Size size) const {
        const double n = static_cast<double>(m_count);
        return {size.width == 0 ? 0.5 : (m_sumX / n) / size.width,
                size.height == 0 ? 0.5 : (m_sumY / n) / size.height};
    }

    // How far the members wander: the larger of the x and y extents as fractions of the frame, at most 1.
    double spread(Size size) const {
        if (m_count < 2 || !(size.width > 0) || !(size.height > 0)) {
            return 0;
        }
        const double extent = std::max((m_maxX - m_minX) / size.width, (m_maxY - m_minY) / size.height);
        return extent >= 1.0 ? 1.0 : extent;
    }

private:
    std::size_t m_count = 0;
    double m_firstTime = 0;
    double m_lastTime = 0;
    double m_sumX = 0;
    double m_sumY = 0;
    double m_minX = std::numeric_limits<double>::infinity();
    double m_maxX = -std::numeric_limits<double>::infinity();
    double m_minY = std::numeric_limits<double>::infinity();
    double m_maxY = -std::numeric_limits<double>::infinity();
};

void sortByStart(std::vector<ZoomBeat>& beats) {
    std::stable_sort(beats.begin(), beats.end(),
                     [](const ZoomBeat& a, const ZoomBeat& b) { return a.start < b.start; });
}

} // namespace

std::vector<ZoomBeat> ZoomDirector::beatsFor(const Recording& recording) const {
    std::vector<ZoomBeat> beats;
    if (style == CameraTrack::Style::off) {
        return beats;
    }
    const double largest = maximumScale(style);

    auto close = [&](const Cluster& cluster) {
        const double scale =
            std::min(std::max(largest * (1 - cluster.spread(recording.size)), smallestScale), largest);
        const double start = std::max(cluster.firstTime() - transition, 0.0);
        // The constructor keeps the beat at least the minimum long.
        beats.emplace_back(Uuid::random(), start, cluster.lastTime() + tailHold + transition,
                           cluster.normalisedCentroid(recording.size), scale, transition, transition,
                           Easing::easeInOut, true);
    };
    auto cluster = [&](auto&& forEachAnchor) {
        Cluster current;
        forEachAnchor([&](const InputEvent& anchor) {
            // A pause of exactly the gap stays in the cluster.
            if (!current.empty() && anchor.time - current.lastTime() > clusterGap) {
                close(current);
                current = Cluster();
            }
            current.add(anchor);
        });
        if (!current.empty()) {
            close(current);
        }
    };

    const auto& events = recording.inputEvents;
    if (std::any_of(events.begin(), events.end(), [](const InputEvent& e) { return isAction(e.kind); })) {
        cluster([&](auto&& visit) {
            for (const InputEvent& e : events) {
                if (isAction(e.kind)) {
                    visit(e);
                }
            }
        });
    } else {
        const std::vector<InputEvent> dwells = dwellAnchors(recording);
        cluster([&](auto&& visit) {
            for (const InputEvent& e : dwells) {
                visit(e);
            }
        });
    }
    sortByStart(beats);
    return beats;
}

std::vector<InputEvent> ZoomDirector::dwellAnchors(const Recording& recording) const {
    std::vector<InputEvent> anchors;
    const auto& events = recording.inputEvents;
    if (std::count_if(events.begin(), events.end(), [](const InputEvent& e) { return isTravel(e.kind); }) <
        2) {
        return anchors;
    }
    const double radius = dwellRadius * std::min(recording.size.width, recording.size.height);

    // The run in progress: its first event, its last, and the sum of its locations.
    const InputEvent* first = nullptr;
    const InputEvent* last = nullptr;
    double sumX = 0;
    double sumY = 0;
    std::size_t count = 0;
    auto closeRun = [&] {
        // A rest of exactly the minimum counts.
        if (last->time - first->time >= dwellMinimum) {
            const double n = static_cast<double>(count);
            anchors.push_back({first->time, InputEvent::Kind::down, {sumX / n, sumY / n}});
        }
    };
    for (const InputEvent& e : events) {
        if (!isTravel(e.kind)) {
            continue;
        }
        // Measured from the run's first event, so that a slow drift ends a run too.
        if (first != nullptr &&
            std::sqrt((e.location.x - first->location.x) * (e.location.x - first->location.x) +
                      (e.location.y - first->location.y) * (e.location.y - first->location.y)) > radius) {
            closeRun();
            first = nullptr;
        }
        if (first == nullptr) {
            first = &e;
            sumX = sumY = 0;
            count = 0;
        }
        last = &e;
        sumX += e.location.x;
        sumY += e.location.y;
        ++count;
    }
    closeRun();
    return anchors;
}

CameraTrack ZoomDirector::regenerate(const CameraTrack& track, const Recording& recording) const {
    CameraTrack result{{}, track.style};
    for (const ZoomBeat& beat : track.beats) {
        if (!beat.isGenerated) {
            result.beats.push_back(beat);
        }
    }
    const std::vector<ZoomBeat> generated = beatsFor(recording);
    result.beats.insert(result.beats.end(), generated.begin(), generated.end());
    sortByStart(result.beats);
    return result;
}

} // namespace marlowick
