// The canvas's starting values in an old file, and the coding of its enumerations with values.

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

} // namespace

TEST(Canvas, AnEmptyCanvasObjectReadsAsTheDefaultsButShowsEverything) {
    // Such files predate cropping, so they fit where a default-made canvas fills.
    Canvas expected;
    expected.contentMode = ContentMode::fit;
    EXPECT_EQ(toJson(fromJson<Canvas>(Json::object())), toJson(expected));
    EXPECT_EQ(Canvas{}.contentMode, ContentMode::fill);
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
