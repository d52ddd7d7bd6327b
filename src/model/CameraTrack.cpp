#include "model/CameraTrack.h"

#include "model/ModelCoding.h"

#include <algorithm>
#include <optional>

namespace marlowick {

ZoomBeat::ZoomBeat(Uuid id_, double start_, double end_, Point center_, double scale_, double rampIn_,
                   double rampOut_, Easing easing_, bool isGenerated_)
    : id(id_)
    , start(std::max(start_, 0.0))
    , end(std::max(end_, start + minimumDuration))
    , center(center_)
    , scale(scale_)
    , rampIn(rampIn_)
    , rampOut(rampOut_)
    , easing(easing_)
    , isGenerated(isGenerated_) {}

ZoomBeat::Ramps ZoomBeat::effectiveRamps() const {
    const double half = duration() * 0.5;
    return {std::min(half, rampIn), std::min(half, rampOut)};
}

std::vector<ZoomBeat> CameraTrack::ordered() const {
    std::vector<ZoomBeat> sorted = beats;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const ZoomBeat& a, const ZoomBeat& b) { return a.start < b.start; });
    return sorted;
}

void CameraTrack::update(const ZoomBeat& beat) {
    const auto it =
        std::find_if(beats.begin(), beats.end(), [&](const ZoomBeat& b) { return b.id == beat.id; });
    if (it != beats.end()) {
        *it = beat;
        it->isGenerated = false;
    }
}

void CameraTrack::remove(Uuid id) {
    std::erase_if(beats, [&](const ZoomBeat& b) { return b.id == id; });
}

std::string_view displayName(CameraTrack::Style style) {
    switch (style) {
    case CameraTrack::Style::off:
        return "Full UI";
    case CameraTrack::Style::subtle:
        return "Subtle";
    case CameraTrack::Style::dynamic:
        return "Dynamic";
    case CameraTrack::Style::cinematic:
        return "Cinematic";
    }
    return {};
}

std::string_view summary(CameraTrack::Style style) {
    switch (style) {
    case CameraTrack::Style::off:
        return "Never zooms. Shows the whole interface.";
    case CameraTrack::Style::subtle:
        return "Gentle moves, up to 1.4×.";
    case CameraTrack::Style::dynamic:
        return "Follows the action, up to 1.9×.";
    case CameraTrack::Style::cinematic:
        return "Close and deliberate, up to 2.6×.";
    }
    return {};
}

double maximumScale(CameraTrack::Style style) {
    switch (style) {
    case CameraTrack::Style::off:
        return 1.0;
    case CameraTrack::Style::subtle:
        return 1.4;
    case CameraTrack::Style::dynamic:
        return 1.9;
    case CameraTrack::Style::cinematic:
        return 2.6;
    }
    return 1.0;
}

namespace {

// The stored form of camera tracks from before beats: the scale at instants.
struct LegacyKeyframe {
    double time = 0;
    Point center;
    double scale = 1;
    std::optional<bool> isGenerated;
};

LegacyKeyframe decodeKeyframe(const JsonReader& r) {
    return {r.decode<double>("time"), r.decode<Point>("center"), r.decode<double>("scale"),
            r.decodeIfPresent<bool>("isGenerated")};
}

// A keyframe above this scale belongs to a zoom; at or below it the camera was at rest.
constexpr double restScale = 1.001;

// Each run of keyframes above rest becomes one beat, starting at the keyframe it rose from and ending
// at the keyframe that brought it back (or at its own last keyframe).
std::vector<ZoomBeat> migrate(std::vector<LegacyKeyframe> keyframes) {
    std::stable_sort(keyframes.begin(), keyframes.end(),
                     [](const LegacyKeyframe& a, const LegacyKeyframe& b) { return a.time < b.time; });
    std::vector<ZoomBeat> beats;
    std::vector<LegacyKeyframe> pending;

    auto flush = [&](std::optional<double> nextTime) {
        if (pending.empty()) {
            return;
        }
        const auto peak = std::max_element(pending.begin(), pending.end(),
                                           [](const auto& a, const auto& b) { return a.scale < b.scale; });
        const bool generated = std::none_of(pending.begin(), pending.end(),
                                            [](const auto& k) { return k.isGenerated == false; });
        const double endTime = nextTime.value_or(pending.back().time);
        beats.emplace_back(Uuid::random(), pending.front().time, endTime, peak->center, peak->scale, 0.35,
                           0.35, Easing::easeInOut, generated);
        pending.clear();
    };

    for (std::size_t i = 0; i < keyframes.size(); ++i) {
        const LegacyKeyframe& k = keyframes[i];
        if (k.scale > restScale) {
            if (pending.empty() && i > 0) {
                pending.push_back(keyframes[i - 1]);
            }
            pending.push_back(k);
        } else if (!pending.empty()) {
            flush(k.time);
        }
    }
    flush(std::nullopt);
    return beats;
}

} // namespace

Json Coder<ZoomBeat>::encode(const ZoomBeat& b) {
    return {{"id", toJson(b.id)},           {"start", toJson(b.start)},   {"end", toJson(b.end)},
            {"center", toJson(b.center)},   {"scale", toJson(b.scale)},   {"rampIn", toJson(b.rampIn)},
            {"rampOut", toJson(b.rampOut)}, {"easing", toJson(b.easing)}, {"isGenerated", b.isGenerated}};
}

ZoomBeat Coder<ZoomBeat>::decode(const JsonReader& r) {
    // Stored values stand as they are: the constructor's clamping is for beats made in code.
    ZoomBeat b;
    b.id = r.decode<Uuid>("id");
    b.start = r.decode<double>("start");
    b.end = r.decode<double>("end");
    b.center = r.decode<Point>("center");
    b.scale = r.decode<double>("scale");
    b.rampIn = r.decode<double>("rampIn");
    b.rampOut = r.decode<double>("rampOut");
    b.easing = r.decode<Easing>("easing");
    b.isGenerated = r.decode<bool>("isGenerated");
    return b;
}

Json Coder<CameraTrack>::encode(const CameraTrack& track) {
    return {{"beats", toJson(track.beats)}, {"style", toJson(track.style)}};
}

CameraTrack Coder<CameraTrack>::decode(const JsonReader& r) {
    CameraTrack track;
    track.style = r.decode<CameraTrack::Style>("style", CameraTrack::Style::dynamic);
    if (auto beats = r.find("beats")) {
        track.beats = beats->decode<std::vector<ZoomBeat>>();
    } else if (auto keyframes = r.find("keyframes")) {
        std::vector<LegacyKeyframe> frames;
        for (const JsonReader& element : keyframes->elements()) {
            frames.push_back(decodeKeyframe(element));
        }
        track.beats = migrate(std::move(frames));
    }
    return track;
}

} // namespace marlowick
