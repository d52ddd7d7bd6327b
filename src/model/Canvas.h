#pragma once

#include "model/DeviceFrame.h"
#include "model/EnumNames.h"
#include "model/Geometry.h"
#include "model/Url.h"

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace marlowick {

// The shape of the finished video. `vertical` and `appStore` have the same size and stay distinct.
enum class AspectRatio { widescreen, vertical, square, classic, appStore };

std::string_view displayName(AspectRatio ratio);
// The canvas size in pixels.
Size size(AspectRatio ratio);

// How the recording fills its slot.
enum class ContentMode { fill, fit };

std::string_view displayName(ContentMode mode);
std::string_view summary(ContentMode mode);

// What lies behind the recording. Colours are "#RRGGBB" strings with straight alpha.
struct Background {
    struct Transparent {
        friend bool operator==(const Transparent&, const Transparent&) = default;
    };
    struct Solid {
        std::string hex;
        friend bool operator==(const Solid&, const Solid&) = default;
    };
    struct LinearGradient {
        std::string from;
        std::string to;
        double angle = 0; // degrees
        friend bool operator==(const LinearGradient&, const LinearGradient&) = default;
    };
    struct MeshGradient {
        std::vector<std::string> stops;
        friend bool operator==(const MeshGradient&, const MeshGradient&) = default;
    };
    // Stored; drawn as the fallback colour until pictures are drawn.
    struct Image {
        Url url;
        friend bool operator==(const Image&, const Image&) = default;
    };
    // Stored; drawn as the fallback colour until the blur is drawn.
    struct BlurredSource {
        double radius = 0;
        friend bool operator==(const BlurredSource&, const BlurredSource&) = default;
    };

    std::variant<Transparent, Solid, LinearGradient, MeshGradient, Image, BlurredSource> value;

    static Background transparent() { return {Transparent{}}; }
    static Background solid(std::string hex) { return {Solid{std::move(hex)}}; }
    static Background linearGradient(std::string from, std::string to, double angle) {
        return {LinearGradient{std::move(from), std::move(to), angle}};
    }

    bool isTransparent() const { return std::holds_alternative<Transparent>(value); }
    friend bool operator==(const Background&, const Background&) = default;
};

struct Shadow {
    double radius = 48; // pixels
    double opacity = 0.45;
    Point offset{0, 24}; // canvas pixels
    friend bool operator==(const Shadow&, const Shadow&) = default;
};

// Perspective tilt in degrees; (0, 0) is none.
struct Tilt {
    double x = 0;
    double y = 0;
    friend bool operator==(const Tilt&, const Tilt&) = default;
};

// The frame around the recording. A default-made canvas holds the values a project without any
// `canvas` takes; a fresh recording starts from `Canvas::freshRecording()`.
struct Canvas {
    AspectRatio ratio = AspectRatio::widescreen;
    Background background = Background::solid("#101014");
    double inset = 0.06;      // margin on each side, as a fraction of the canvas
    double cornerRadius = 12; // canvas pixels
    Shadow shadow;
    std::optional<DeviceFrame> deviceFrame;
    Tilt tilt;
    ContentMode contentMode = ContentMode::fill;
    Point contentAnchor{0.5, 0.5}; // in `fill`, the point of the recording the crop rests on

    static Canvas freshRecording();
    friend bool operator==(const Canvas&, const Canvas&) = default;
};

// A named background offered by the picker.
struct BackgroundSwatch {
    std::string_view name;
    Background background;
};

// In the order the picker shows them.
const std::vector<BackgroundSwatch>& backgroundSwatches();

template <> struct EnumNames<AspectRatio> {
    using A = AspectRatio;
    static constexpr std::array<std::pair<A, std::string_view>, 5> names{{
        {A::widescreen, "widescreen"},
        {A::vertical, "vertical"},
        {A::square, "square"},
        {A::classic, "classic"},
        {A::appStore, "appStore"},
    }};
};

template <> struct EnumNames<ContentMode> {
    static constexpr std::array<std::pair<ContentMode, std::string_view>, 2> names{{
        {ContentMode::fill, "fill"},
        {ContentMode::fit, "fit"},
    }};
};

} // namespace marlowick
