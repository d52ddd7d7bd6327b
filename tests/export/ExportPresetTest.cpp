// The export catalogue and which rows suit a canvas.

#include "export/ExportPreset.h"

#include <set>

#include <gtest/gtest.h>

using namespace marlowick;

TEST(ExportPreset, TheCatalogueInOrder) {
    const auto& all = ExportPreset::all();
    ASSERT_EQ(all.size(), 8u);
    EXPECT_EQ(all.front().id, "free-720p");
    EXPECT_EQ(all.back(), ExportPreset::prores());
    std::set<std::string> ids;
    for (const auto& p : all) {
        ids.insert(p.id);
    }
    EXPECT_EQ(ids.size(), 8u);
    // The two ProRes rows differ only in their id, name and size.
    EXPECT_EQ(ExportPreset::prores().codec, ExportPreset::proresAlpha().codec);
    EXPECT_EQ(ExportPreset::prores().container, ExportPreset::proresAlpha().container);
    EXPECT_NE(ExportPreset::prores().size, ExportPreset::proresAlpha().size);
    EXPECT_EQ(enumFromName<ExportPreset::Codec>("palette"), ExportPreset::Codec::palette);
    EXPECT_EQ(allCases<ExportPreset::Container>().size(), 4u);
}

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
