// Which export rows suit a canvas.

#include "export/ExportPreset.h"

#include <gtest/gtest.h>

using namespace marlowick;

TEST(ExportPreset, ShapesAndTheRowsThatMatchThem) {
    EXPECT_EQ(ExportPreset::appStorePreview().ratio(), AspectRatio::vertical); // the earlier of a tie
    EXPECT_EQ(ExportPreset::reels().ratio(), AspectRatio::vertical);
    EXPECT_EQ(ExportPreset::square().ratio(), AspectRatio::square);
    EXPECT_EQ(ExportPreset::free().ratio(), AspectRatio::widescreen);
    ExportPreset flat = ExportPreset::free();
    flat.size = {1920, 0};
    EXPECT_EQ(flat.ratio(), AspectRatio::vertical); // r = 0: the narrowest shape, the earlier of the two

    EXPECT_EQ(ExportPreset::matching(AspectRatio::widescreen).size(), 5u);
    EXPECT_EQ(ExportPreset::matching(AspectRatio::vertical).size(), 2u);
    EXPECT_TRUE(ExportPreset::matching(AspectRatio::classic).empty());
    EXPECT_TRUE(ExportPreset::matching(AspectRatio::appStore).empty());
}
