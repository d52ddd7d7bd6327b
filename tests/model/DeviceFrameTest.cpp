// The device catalogue and the measures the layout asks of a device.

#include "model/ModelCoding.h"

#include <cmath>
#include <set>

#include <gtest/gtest.h>

using namespace marlowick;

TEST(DeviceFrame, CatalogueHasFiveDistinctDevices) {
    const auto& all = DeviceFrame::all();
    ASSERT_EQ(all.size(), 5u);
    std::set<std::string> ids;
    for (const auto& d : all) {
        ids.insert(d.id);
    }
    EXPECT_EQ(ids.size(), 5u);
    EXPECT_EQ(DeviceFrame::macBookPro().name, "MacBook Pro 16\xE2\x80\xB3");
    EXPECT_EQ(DeviceFrame::iPhonePro().screenAspect, 1179.0 / 2556.0);
    EXPECT_TRUE(hasBase(DeviceFrame::studioDisplay().kind));
    EXPECT_FALSE(hasBase(DeviceFrame::iPadPro().kind));
    EXPECT_EQ(DeviceFrame::Bezel::uniform().side, 0.012);
}

TEST(DeviceFrame, BodyHeightAddsTheBezelsToTheScreen) {
    const DeviceFrame& pad = DeviceFrame::iPadPro();
    EXPECT_DOUBLE_EQ(pad.bodyHeightForWidth(1000), 1000 * 0.064 + 1000 * (1 - 0.064) / 0.75);
    DeviceFrame flat = pad;
    flat.screenAspect = 0;
    EXPECT_TRUE(std::isfinite(flat.bodyHeightForWidth(1000)));
}

TEST(DeviceFrame, MismatchIsSymmetricAroundAQuarter) {
    const DeviceFrame& laptop = DeviceFrame::macBookPro();
    EXPECT_FALSE(laptop.mismatches(1.6 * 1.25 * (1 - 1e-12)));
    EXPECT_TRUE(laptop.mismatches(1.6 * 1.2501));
    EXPECT_TRUE(laptop.mismatches(1.6 / 1.3));
    EXPECT_FALSE(laptop.mismatches(1.6 / 1.2));
    EXPECT_FALSE(laptop.mismatches(0));
    EXPECT_FALSE(laptop.mismatches(-2));
    DeviceFrame flat = laptop;
    flat.screenAspect = 0;
    EXPECT_FALSE(flat.mismatches(1.6));
}

TEST(DeviceFrame, AspectDescription) {
    EXPECT_EQ(DeviceFrame::iPadPro().screenAspectDescription(), "0.75:1");
    EXPECT_EQ(DeviceFrame::studioDisplay().screenAspectDescription(), "1.78:1");
}

TEST(DeviceFrameCoding, EveryKeyIsRequired) {
    const Json json = toJson(DeviceFrame::studioDisplay());
    EXPECT_EQ(fromJson<DeviceFrame>(json), DeviceFrame::studioDisplay());
    for (const auto& item : json.items()) {
        Json missing = json;
        missing.erase(item.key());
        EXPECT_THROW(fromJson<DeviceFrame>(missing), CodingError) << item.key();
    }
    Json badKind = json;
    badKind["kind"] = "watch";
    EXPECT_THROW(fromJson<DeviceFrame>(badKind), CodingError);
}
