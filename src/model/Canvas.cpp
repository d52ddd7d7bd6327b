#include "model/Canvas.h"

#include "model/ModelCoding.h"

namespace marlowick {

std::string_view displayName(AspectRatio ratio) {
    switch (ratio) {
    case AspectRatio::widescreen:
        return "Widescreen 16:9";
    case AspectRatio::vertical:
        return "Reels / TikTok 9:16";
    case AspectRatio::square:
        return "Square 1:1";
    case AspectRatio::classic:
        return "Classic 4:3";
    case AspectRatio::appStore:
        return "App Store 9:16";
    }
    return {};
}

Size size(AspectRatio ratio) {
    switch (ratio) {
    case AspectRatio::widescreen:
        return {1920, 1080};
    case AspectRatio::vertical:
    case AspectRatio::appStore:
        return {1080, 1920};
    case AspectRatio::square:
        return {1080, 1080};
    case AspectRatio::classic:
        return {1440, 1080};
    }
    return {1920, 1080};
}

std::string_view displayName(ContentMode mode) {
    return mode == ContentMode::fill ? "Fill the frame" : "Show everything";
}

std::string_view summary(ContentMode mode) {
    return mode == ContentMode::fill ? "Crops the sides to fill the shape. Zooms pan the crop."
                                     : "Keeps the whole screen visible, with space around it.";
}

Canvas Canvas::freshRecording() {
    Canvas c;
    c.background = Background::linearGradient("#1B1B2F", "#4A00E0", 45);
    c.inset = 0.08;
    c.cornerRadius = 20;
    c.shadow = {64, 0.5, {0, 28}};
    return c;
}

const std::vector<BackgroundSwatch>& backgroundSwatches() {
    static const std::vector<BackgroundSwatch> swatches{
        {"Transparent", Background::transparent()},
        {"Black", Background::solid("#000000")},
        {"Charcoal", Background::solid("#101014")},
        {"Slate", Background::solid("#2C3038")},
        {"Bone", Background::solid("#EFEAE3")},
        {"Paper", Background::solid("#F7F7F5")},
        {"Ink", Background::solid("#161B33")},
        {"Violet", Background::linearGradient("#1B1B2F", "#4A00E0", 45)},
        {"Indigo", Background::linearGradient("#2B32B2", "#1488CC", 45)},
        {"Sunset", Background::linearGradient("#FF512F", "#DD2476", 90)},
        {"Ember", Background::linearGradient("#F12711", "#F5AF19", 60)},
        {"Mint", Background::linearGradient("#0F2027", "#2C5364", 135)},
        {"Forest", Background::linearGradient("#134E5E", "#71B280", 120)},
        {"Rose", Background::linearGradient("#642B73", "#C6426E", 45)},
        {"Ocean", Background::linearGradient("#000046", "#1CB5E0", 100)},
        {"Peach", Background::linearGradient("#ED4264", "#FFEDBC", 70)},
        {"Steel", Background::linearGradient("#3C3B3F", "#605C3C", 45)},
        {"Aqua", Background::linearGradient("#13547A", "#80D0C7", 110)},
        {"Plum", Background::linearGradient("#41295A", "#2F0743", 90)},
        {"Sand", Background::linearGradient("#B79891", "#94716B", 60)},
        {"Sky", Background::linearGradient("#2980B9", "#6DD5FA", 90)},
    };
    return swatches;
}

// An enumeration with values is an object with exactly one key, the case, holding the case's values.

Json Coder<AspectRatio>::encode(AspectRatio ratio) {
    return {{std::string(enumName(ratio)), Json::object()}};
}

AspectRatio Coder<AspectRatio>::decode(const JsonReader& r) {
    const auto [key, values] = r.singleKey();
    const auto ratio = enumFromName<AspectRatio>(key);
    if (!ratio) {
        r.fail("unknown case \"" + key + "\"");
    }
    if (!values.value().is_object()) {
        values.typeMismatch("an object");
    }
    return *ratio;
}

Json Coder<Background>::encode(const Background& b) {
    return std::visit(
        [](const auto& v) -> Json {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, Background::Transparent>) {
                return {{"transparent", Json::object()}};
            } else if constexpr (std::is_same_v<T, Background::Solid>) {
                return {{"solid", {{"hex", v.hex}}}};
            } else if constexpr (std::is_same_v<T, Background::LinearGradient>) {
                return {{"linearGradient", {{"from", v.from}, {"to", v.to}, {"angle", toJson(v.angle)}}}};
            } else if constexpr (std::is_same_v<T, Background::MeshGradient>) {
                return {{"meshGradient", {{"stops", v.stops}}}};
            } else if constexpr (std::is_same_v<T, Background::Image>) {
                return {{"image", {{"_0", toJson(v.url)}}}};
            } else {
                return {{"blurredSource", {{"radius", toJson(v.radius)}}}};
            }
        },
        b.value);
}

Background Coder<Background>::decode(const JsonReader& r) {
    const auto [key, values] = r.singleKey();
    if (key == "transparent") {
        if (!values.value().is_object()) {
            values.typeMismatch("an object");
        }
        return Background::transparent();
    }
    if (key == "solid") {
        return {Background::Solid{values.decode<std::string>("hex")}};
    }
    if (key == "linearGradient") {
        return {Background::LinearGradient{values.decode<std::string>("from"),
                                           values.decode<std::string>("to"), values.decode<double>("angle")}};
    }
    if (key == "meshGradient") {
        return {Background::MeshGradient{values.decode<std::vector<std::string>>("stops")}};
    }
    if (key == "image") {
        return {Background::Image{values.decode<Url>("_0")}};
    }
    if (key == "blurredSource") {
        return {Background::BlurredSource{values.decode<double>("radius")}};
    }
    r.fail("unknown case \"" + key + "\"");
}

Json Coder<Shadow>::encode(const Shadow& s) {
    return {{"radius", toJson(s.radius)}, {"opacity", toJson(s.opacity)}, {"offset", toJson(s.offset)}};
}

Shadow Coder<Shadow>::decode(const JsonReader& r) {
    return {r.decode<double>("radius"), r.decode<double>("opacity"), r.decode<Point>("offset")};
}

Json Coder<Tilt>::encode(const Tilt& t) {
    return {{"x", toJson(t.x)}, {"y", toJson(t.y)}};
}

Tilt Coder<Tilt>::decode(const JsonReader& r) {
    return {r.decode<double>("x"), r.decode<double>("y")};
}

Json Coder<Canvas>::encode(const Canvas& c) {
    Json j = {{"ratio", toJson(c.ratio)},
              {"background", toJson(c.background)},
              {"inset", toJson(c.inset)},
              {"cornerRadius", toJson(c.cornerRadius)},
              {"shadow", toJson(c.shadow)},
              {"tilt", toJson(c.tilt)},
              {"contentMode", toJson(c.contentMode)},
              {"contentAnchor", toJson(c.contentAnchor)}};
    if (c.deviceFrame) {
        j["deviceFrame"] = toJson(*c.deviceFrame);
    }
    return j;
}

Canvas Coder<Canvas>::decode(const JsonReader& r) {
    // Every key may be missing. The fallbacks are those of a project without a canvas, except that a
    // canvas object without `contentMode` was written before `fill` existed and so shows everything.
    const Canvas fallback;
    Canvas c;
    c.ratio = r.decode<AspectRatio>("ratio", fallback.ratio);
    c.background = r.decode<Background>("background", fallback.background);
    c.inset = r.decode<double>("inset", fallback.inset);
    c.cornerRadius = r.decode<double>("cornerRadius", fallback.cornerRadius);
    c.shadow = r.decode<Shadow>("shadow", fallback.shadow);
    c.deviceFrame = r.decodeIfPresent<DeviceFrame>("deviceFrame");
    c.tilt = r.decode<Tilt>("tilt", fallback.tilt);
    c.contentMode = r.decode<ContentMode>("contentMode", ContentMode::fit);
    c.contentAnchor = r.decode<Point>("contentAnchor", fallback.contentAnchor);
    return c;
}

} // namespace marlowick
