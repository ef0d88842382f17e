// The choice of mask bands: each distinct mask once, at the first band of
// the list that has it, nothing for bands that cannot exclude a pixel.
#include "MaskBands.h"

#include "support/TestSupport.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <vector>

namespace {

using isodata::ChooseMaskBands;

// Three Byte bands in memory; band 1 and band 3 declare nodata, band 2 none.
GDALDatasetUniquePtr BandsWithNodata() {
    testsupport::RegisterGdal();
    GDALDatasetUniquePtr ds(GetGDALDriverManager()->GetDriverByName("MEM")->Create("", 4, 3, 3, GDT_Byte, nullptr));
    ds->GetRasterBand(1)->SetNoDataValue(0);
    ds->GetRasterBand(3)->SetNoDataValue(5);
    return ds;
}

TEST(MaskBandsTest, EachNodataMaskOnceInListOrderSkippingAllValidAndMissingBandsAndNoneWithoutADataset) {
    const GDALDatasetUniquePtr ds = BandsWithNodata();
    const auto chosen = ChooseMaskBands(ds.get(), {2, 1, 0, 0, 7});
    ASSERT_EQ(chosen.size(), 2u);
    EXPECT_EQ(chosen[0].band, ds->GetRasterBand(3));
    EXPECT_EQ(chosen[0].entry, 0u);
    EXPECT_EQ(chosen[1].band, ds->GetRasterBand(1));
    EXPECT_EQ(chosen[1].entry, 2u);  // the repeated band 1 at entry 3 is not taken again
    for (const auto& c : chosen) {
        EXPECT_EQ(c.flags, GMF_NODATA);
        EXPECT_EQ(c.mask, c.band->GetMaskBand());
    }
    EXPECT_TRUE(ChooseMaskBands(nullptr, {0, 1}).empty());
    EXPECT_TRUE(ChooseMaskBands(ds.get(), {1, 1, 3}).empty());  // band 2 holds no nodata; there is no band 4
}

TEST(MaskBandsTest, APerDatasetMaskIsChosenOnceAtItsFirstBand) {
    const GDALDatasetUniquePtr ds = BandsWithNodata();
    ASSERT_EQ(ds->CreateMaskBand(GMF_PER_DATASET), CE_None);
    const auto chosen = ChooseMaskBands(ds.get(), {1, 0, 2});
    ASSERT_EQ(chosen.size(), 1u);
    EXPECT_EQ(chosen[0].entry, 0u);
    EXPECT_EQ(chosen[0].band, ds->GetRasterBand(2));
    EXPECT_EQ(chosen[0].mask, ds->GetRasterBand(1)->GetMaskBand());
    EXPECT_EQ(chosen[0].flags, GMF_PER_DATASET);
}

} // namespace
