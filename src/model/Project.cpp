#include "model/Project.h"

#include "model/ModelCoding.h"

#include <algorithm>

namespace marlowick {

TimeMap Project::effectiveTrim() const {
    std::vector<Range> removals;
    for (const Span& cut : manualCuts) {
        removals.push_back(cut.range());
    }
    if (audio.silence.isEnabled && trim) {
        removals.insert(removals.end(), trim->removals().begin(), trim->removals().end());
    }
    // The duration stored inside `trim` is not used: the source's own is the truth.
    return TimeMap(std::move(removals), source.duration);
}

Project::Trimmed Project::applyingTrim(const std::vector<InputEvent>& telemetry) const {
    const TimeMap map = effectiveTrim();
    if (map.isIdentity()) {
        return {*this, telemetry};
    }
    Project moved = *this;
    moved.camera = map.apply(camera);
    if (captions) {
        moved.captions = map.apply(*captions);
    }
    moved.source.duration = std::max(map.sourceDuration() - map.removedDuration(), 0.0);
    moved.trim.reset();
    return {std::move(moved), map.apply(telemetry)};
}

std::vector<double> Project::clickTimes(const std::vector<InputEvent>& telemetry) const {
    const TimeMap map = effectiveTrim();
    std::vector<double> times;
    for (const InputEvent& event : map.isIdentity() ? telemetry : map.apply(telemetry)) {
        if (event.kind == InputEvent::Kind::down) {
            times.push_back(event.time);
        }
    }
    return times;
}

Json Coder<Point>::encode(const Point& p) {
    return {{"x", toJson(p.x)}, {"y", toJson(p.y)}};
}

Point Coder<Point>::decode(const JsonReader& r) {
    return {r.decode<double>("x"), r.decode<double>("y")};
}

Json Coder<Size>::encode(const Size& s) {
    return {{"width", toJson(s.width)}, {"height", toJson(s.height)}};
}

Size Coder<Size>::decode(const JsonReader& r) {
    return {r.decode<double>("width"), r.decode<double>("height")};
}

Json Coder<Span>::encode(const Span& s) {
    return {{"id", toJson(s.id)}, {"start", toJson(s.start)}, {"end", toJson(s.end)}};
}

Span Coder<Span>::decode(const JsonReader& r) {
    // Stored as the file says; a reversed span maps to nothing when cuts are applied.
    Span s;
    s.id = r.decode<Uuid>("id");
    s.start = r.decode<double>("start");
    s.end = r.decode<double>("end");
    return s;
}

Json Coder<InputEvent>::encode(const InputEvent& e) {
    return {{"time", toJson(e.time)}, {"kind", toJson(e.kind)}, {"location", toJson(e.location)}};
}

InputEvent Coder<InputEvent>::decode(const JsonReader& r) {
    return {r.decode<double>("time"), r.decode<InputEvent::Kind>("kind"), r.decode<Point>("location")};
}

Json Coder<CursorStyle>::encode(const CursorStyle& c) {
    Json j = {{"smoothing", toJson(c.smoothing)},
              {"scale", toJson(c.scale)},
              {"motionBlur", c.motionBlur},
              {"clickRipple", c.clickRipple}};
    if (c.hideWhenIdle) {
        j["hideWhenIdle"] = toJson(*c.hideWhenIdle);
    }
    return j;
}

CursorStyle Coder<CursorStyle>::decode(const JsonReader& r) {
    // A missing `hideWhenIdle` inside a cursor object means never hiding, not the default delay.
    return {r.decode<double>("smoothing"), r.decode<double>("scale"), r.decode<bool>("motionBlur"),
            r.decode<bool>("clickRipple"), r.decodeIfPresent<double>("hideWhenIdle")};
}

Json Coder<Recording>::encode(const Recording& rec) {
    return {{"mediaURL", toJson(rec.mediaURL)},
            {"size", toJson(rec.size)},
            {"frameRate", toJson(rec.frameRate)},
            {"duration", toJson(rec.duration)},
            {"inputEvents", toJson(rec.inputEvents)},
            {"capturedMicrophone", rec.capturedMicrophone},
            {"capturedSystemAudio", rec.capturedSystemAudio}};
}

Recording Coder<Recording>::decode(const JsonReader& r) {
    Recording rec;
    rec.mediaURL = r.decode<Url>("mediaURL");
    rec.size = r.decode<Size>("size");
    rec.frameRate = r.decode<double>("frameRate");
    rec.duration = r.decode<double>("duration");
    rec.inputEvents = r.decode<std::vector<InputEvent>>("inputEvents", {});
    // Files from before the flags: no microphone was recorded then, but system audio was.
    rec.capturedMicrophone = r.decode<bool>("capturedMicrophone", false);
    rec.capturedSystemAudio = r.decode<bool>("capturedSystemAudio", true);
    return rec;
}

Json Coder<Project>::encode(const Project& p) {
    Json j = {{"id", toJson(p.id)},         {"name", p.name},
              {"source", toJson(p.source)}, {"canvas", toJson(p.canvas)},
              {"camera", toJson(p.camera)}, {"cursor", toJson(p.cursor)},
              {"audio", toJson(p.audio)},   {"manualCuts", toJson(p.manualCuts)}};
    if (p.captions) {
        j["captions"] = toJson(*p.captions);
    }
    if (p.trim) {
        j["trim"] = toJson(*p.trim);
    }
    return j;
}

Project Coder<Project>::decode(const JsonReader& r) {
    Project p;
    p.id = r.decode<Uuid>("id");
    p.name = r.decode<std::string>("name");
    p.source = r.decode<Recording>("source");
    p.canvas = r.decode<Canvas>("canvas", Canvas{});
    p.camera = r.decode<CameraTrack>("camera", CameraTrack{});
    p.cursor = r.decode<CursorStyle>("cursor", CursorStyle{});
    p.captions = r.decodeIfPresent<CaptionTrack>("captions");
    p.audio = r.decode<AudioSettings>("audio", AudioSettings{});
    p.trim = r.decodeIfPresent<TimeMap>("trim");
    p.manualCuts = r.decode<std::vector<Span>>("manualCuts", {});
    return p;
}

} // namespace marlowick
