#pragma once

#include "model/EnumNames.h"

#include <string>
#include <vector>

namespace marlowick {

// A device drawn around the recording. Proportions are fractions of the body's width. The whole record
// is stored in a project, so a project keeps the device as it was when chosen.
struct DeviceFrame {
    enum class Kind { phone, tablet, laptop, display };

    struct Bezel {
        double top = 0;
        double bottom = 0;
        double side = 0; // each of the left and right bezels

        static constexpr Bezel uniform() { return {0.012, 0.012, 0.012}; }
        friend bool operator==(const Bezel&, const Bezel&) = default;
    };

    std::string id; // stable key
    std::string name;
    Kind kind = Kind::laptop;
    double screenAspect = 0; // screen width over height
    Bezel bezel;
    double bodyRadius = 0;
    double screenRadius = 0;
    std::string bodyColor; // "#RRGGBB"
    bool hasNotch = false;

    // The two horizontal bezels plus the screen's height at the screen's width.
    double bodyHeightForWidth(double width) const;
    // Whether a recording of the given aspect sits badly in this device: the larger aspect over the
    // smaller is above 1.25. Never for an aspect that isn't positive.
    bool mismatches(double aspect) const;
    // "%.2f:1" of the screen aspect.
    std::string screenAspectDescription() const;

    // The catalogue, in the order of `all`.
    static const DeviceFrame& macBookPro();
    static const DeviceFrame& macBookAir();
    static const DeviceFrame& studioDisplay();
    static const DeviceFrame& iPhonePro();
    static const DeviceFrame& iPadPro();
    static const std::vector<DeviceFrame>& all();

    friend bool operator==(const DeviceFrame&, const DeviceFrame&) = default;
};

// Laptops and displays stand on a base.
inline bool hasBase(DeviceFrame::Kind kind) {
    return kind == DeviceFrame::Kind::laptop || kind == DeviceFrame::Kind::display;
}

template <> struct EnumNames<DeviceFrame::Kind> {
    using K = DeviceFrame::Kind;
    static constexpr std::array<std::pair<K, std::string_view>, 4> names{{
        {K::phone, "phone"},
        {K::tablet, "tablet"},
        {K::laptop, "laptop"},
        {K::display, "display"},
    }};
};

} // namespace marlowick
