#pragma once

#include "model/EnumNames.h"
#include "model/Geometry.h"
#include "model/Uuid.h"

#include <string_view>
#include <vector>

namespace marlowick {

// The curve of a beat's ramps; the curves themselves belong to the camera solver.
enum class Easing { linear, easeIn, easeOut, easeInOut, spring };

// A stretch of source time in which the camera holds one centre and one scale, with a ramp in and out.
struct ZoomBeat {
    static constexpr double minimumDuration = 0.3;

    Uuid id;
    double start = 0;       // source seconds, start of the ramp in
    double end = 0;         // source seconds, end of the ramp out
    Point center{0.5, 0.5}; // fractions of the frame
    double scale = 1;       // magnification, 1 being no zoom
    double rampIn = 0;      // seconds
    double rampOut = 0;     // seconds
    Easing easing = Easing::easeInOut;
    bool isGenerated = false; // made by the director; false once a person has edited the beat

    ZoomBeat() = default;
    // Raises `start` to 0 and `end` to at least `start` + `minimumDuration`; the rest is stored as given.
    ZoomBeat(Uuid id, double start, double end, Point center, double scale, double rampIn, double rampOut,
             Easing easing, bool isGenerated);

    double duration() const { return end - start; }
    // Both ends included.
    bool contains(double t) const { return start <= t && t <= end; }

    struct Ramps {
        double in = 0;
        double out = 0;
    };
    // Each ramp limited to half the beat; the stored ramps stay as they are.
    Ramps effectiveRamps() const;

    friend bool operator==(const ZoomBeat&, const ZoomBeat&) = default;
};

struct CameraTrack {
    enum class Style { off, subtle, dynamic, cinematic };

    std::vector<ZoomBeat> beats; // in no guaranteed order
    Style style = Style::dynamic;

    // Sorted by `start`; beats with the same start keep their list order.
    std::vector<ZoomBeat> ordered() const;
    // Replaces the first beat with the same id, marking it as edited by a person. Never adds a beat.
    void update(const ZoomBeat& beat);
    // Removes every beat with the id. Taken by value: callers often pass the id of a beat in the list.
    void remove(Uuid id);

    friend bool operator==(const CameraTrack&, const CameraTrack&) = default;
};

std::string_view displayName(CameraTrack::Style style);
std::string_view summary(CameraTrack::Style style);
double maximumScale(CameraTrack::Style style);

template <> struct EnumNames<Easing> {
    static constexpr std::array<std::pair<Easing, std::string_view>, 5> names{{
        {Easing::linear, "linear"},
        {Easing::easeIn, "easeIn"},
        {Easing::easeOut, "easeOut"},
        {Easing::easeInOut, "easeInOut"},
        {Easing::spring, "spring"},
    }};
};

template <> struct EnumNames<CameraTrack::Style> {
    using S = CameraTrack::Style;
    static constexpr std::array<std::pair<S, std::string_view>, 4> names{{
        {S::off, "off"},
        {S::subtle, "subtle"},
        {S::dynamic, "dynamic"},
        {S::cinematic, "cinematic"},
    }};
};

} // namespace marlowick

template <> struct std::hash<marlowick::ZoomBeat> {
    std::size_t operator()(const marlowick::ZoomBeat& b) const noexcept {
        return std::hash<marlowick::Uuid>()(b.id) ^ std::hash<double>()(b.start);
    }
};
