// The measures the layout asks of a device, and its coding.

#include "model/ModelCoding.h"

#include <gtest/gtest.h>

using namespace marlowick;

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
