// The canvas's three sets of starting values, and the coding of its enumerations with values.

#include "model/ModelCoding.h"

#include <gtest/gtest.h>

using namespace marlowick;

namespace {

std::string readFailure(const Json& json) {
    try {
        fromJson<Canvas>(json);
    } catch (const CodingError& e) {
        return e.what();
    }
    return "";
}

std::string hexOf(const Background& b) {
    return std::get<Background::Solid>(b.value).hex;
}

} // namespace

TEST(Canvas, AnEmptyCanvasObjectReadsAsTheOldDefaultsShowingEverything) {
    const Canvas c = fromJson<Canvas>(Json::object());
    EXPECT_EQ(c.ratio, AspectRatio::widescreen);
    EXPECT_EQ(hexOf(c.background), "#101014");
    EXPECT_EQ(c.inset, 0.06);
    EXPECT_EQ(c.cornerRadius, 12);
    EXPECT_EQ(c.shadow.radius, 48);
    EXPECT_EQ(c.shadow.opacity, 0.45);
    EXPECT_EQ(c.shadow.offset, (Point{0, 24}));
    EXPECT_FALSE(c.deviceFrame.has_value());
    EXPECT_EQ(c.tilt.x, 0);
    EXPECT_EQ(c.contentMode, ContentMode::fit); // not fill: such files predate cropping
    EXPECT_EQ(c.contentAnchor, (Point{0.5, 0.5}));
    // Whereas no canvas at all is the default-made one, which fills.
    EXPECT_EQ(Canvas{}.contentMode, ContentMode::fill);
}

TEST(Canvas, AFreshRecordingGetsTheStyledLook) {
    const Canvas c = Canvas::freshRecording();
    const auto& g = std::get<Background::LinearGradient>(c.background.value);
    EXPECT_EQ(g.from, "#1B1B2F");
    EXPECT_EQ(g.to, "#4A00E0");
    EXPECT_EQ(g.angle, 45);
    EXPECT_EQ(c.inset, 0.08);
    EXPECT_EQ(c.cornerRadius, 20);
    EXPECT_EQ(c.shadow.radius, 64);
    EXPECT_EQ(c.shadow.offset, (Point{0, 28}));
    EXPECT_EQ(c.contentMode, ContentMode::fill);
}

TEST(Canvas, EnumerationsWithValuesNeedExactlyOneKnownKey) {
    const std::string oneKey = "Invalid number of keys found, expected one.";
    EXPECT_EQ(readFailure({{"ratio", {{"widescreen", Json::object()}, {"square", Json::object()}}}}),
              "ratio: " + oneKey);
    EXPECT_EQ(readFailure({{"ratio", Json::object()}}), "ratio: " + oneKey);
    EXPECT_EQ(readFailure({{"background", Json::object()}}), "background: " + oneKey);
    EXPECT_EQ(readFailure({{"ratio", "widescreen"}}), "ratio: expected an object, found a string");
    EXPECT_NE(readFailure({{"ratio", {{"panorama", Json::object()}}}}), "");
    EXPECT_NE(readFailure({{"background", {{"solid", Json::object()}}}}).find("\"hex\""), std::string::npos);
    EXPECT_NE(readFailure({{"contentMode", "stretch"}}), "");
}

TEST(Canvas, EveryRatioAndBackgroundRoundTrips) {
    for (AspectRatio ratio : allCases<AspectRatio>()) {
        Canvas c;
        c.ratio = ratio;
        const Json json = toJson(c);
        EXPECT_EQ(json["ratio"], Json({{std::string(enumName(ratio)), Json::object()}}));
        EXPECT_EQ(fromJson<Canvas>(json).ratio, ratio);
    }
    EXPECT_EQ(size(AspectRatio::vertical), size(AspectRatio::appStore));
    EXPECT_NE(AspectRatio::vertical, AspectRatio::appStore);

    const std::vector<Background> backgrounds{
        Background::transparent(),
        Background::solid("#EFEAE3"),
        Background::linearGradient("#FF512F", "#DD2476", 90),
        {Background::MeshGradient{{"#101014", "#2C3038"}}},
        {Background::Image{Url{"file:///home/me/bg.png"}}},
        {Background::BlurredSource{24}},
    };
    for (const Background& b : backgrounds) {
        const Json json = toJson(b);
        EXPECT_EQ(toJson(fromJson<Background>(json)), json);
    }
    EXPECT_EQ(toJson(backgrounds[4]), Json::parse(R"({"image": {"_0": "file:///home/me/bg.png"}})"));
    EXPECT_EQ(toJson(backgrounds[0]), Json::parse(R"({"transparent": {}})"));
    EXPECT_TRUE(backgrounds[0].isTransparent());
    for (std::size_t i = 1; i < backgrounds.size(); ++i) {
        EXPECT_FALSE(backgrounds[i].isTransparent());
    }
}

TEST(Canvas, ShadowAndTiltAreAllOrNothing) {
    EXPECT_NE(readFailure({{"shadow", {{"radius", 10}, {"opacity", 0.3}}}}).find("\"offset\""),
              std::string::npos);
    EXPECT_NE(readFailure({{"tilt", {{"x", 10}}}}), "");
}

TEST(Canvas, TheDeviceIsStoredWholeAndNotLookedUp) {
    Canvas c;
    EXPECT_FALSE(toJson(c).contains("deviceFrame"));
    DeviceFrame custom = DeviceFrame::macBookPro();
    custom.bodyColor = "#FF0000"; // a catalogue entry as it was before a change
    c.deviceFrame = custom;
    const Json json = toJson(c);
    EXPECT_EQ(json["deviceFrame"]["name"], "MacBook Pro 16\u2033");
    EXPECT_EQ(json["deviceFrame"]["bezel"]["side"], 0.011);
    EXPECT_EQ(fromJson<Canvas>(json).deviceFrame, custom);
}
