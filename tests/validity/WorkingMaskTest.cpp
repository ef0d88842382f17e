// The working copy's mask: on a hand-worked 4 x 4 input, the pixels the
// reduced read picks with every rule's exclusions, for every way a nodata
// mask is read; on larger inputs, through mapped scratch files (no heap
// allowance), what ValidityReader's whole reads give, strips, overviews and
// nodata masks of wide types included.
#include "ReducedRead.h"
#include "Validity.h"
#include "WorkingMask.h"

#include "support/TestSupport.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace {

using testsupport::RasterTable;
using testsupport::RepeatingTable;
using testsupport::TempDir;
using testsupport::TranslateRaster;

// A 4 x 4 input reduced to 2 x 2 picks source columns and rows 1 and 3.
// Band 1, of the type under test, declares nodata 0 and holds it at (1, 1),
// picked, and (0, 0), not picked; the mask raster is 0 at (3, 1), picked, and
// (2, 2), not; the working copy holds a NaN in band 2 at (0, 1). Worked by
// hand, only the reduced pixel (1, 1) stays valid, whichever way the band's
// nodata mask is read: compared on the working copy's values (Byte), on the
// band read whole at the reduced size (Int32, Float64), or through GDAL's
// mask band (CInt16).
class HandWorkedMaskTest : public testing::TestWithParam<GDALDataType> {};

TEST_P(HandWorkedMaskTest, PicksThePixelsOfTheReducedReadAndMarksEveryRule) {
    testsupport::RegisterGdal();
    GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDatasetUniquePtr input(mem->Create("", 4, 4, 0, GDT_Byte, nullptr));
    const auto addBand = [](GDALDataset& ds, GDALDataType type, std::vector<double> values) {
        ASSERT_EQ(ds.AddBand(type, nullptr), CE_None);
        const int side = ds.GetRasterXSize();
        ASSERT_EQ(ds.GetRasterBand(ds.GetRasterCount())
                      ->RasterIO(GF_Write, 0, 0, side, side, values.data(), side, side, GDT_Float64, 0, 0, nullptr),
                  CE_None);
    };
    addBand(*input, GetParam(), {0, 1, 1, 1, 1, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1});
    addBand(*input, GDT_Float32, std::vector<double>(16, 2.0));
    input->GetRasterBand(1)->SetNoDataValue(0);
    GDALDatasetUniquePtr maskRaster(mem->Create("", 4, 4, 0, GDT_Byte, nullptr));
    addBand(*maskRaster, GDT_Byte, {1, 1, 1, 1, 1, 1, 1, 0, 1, 1, 0, 1, 1, 1, 1, 1});
    GDALDatasetUniquePtr working(mem->Create("", 2, 2, 0, GDT_Float32, nullptr));
    addBand(*working, GDT_Float32, {0, 1, 1, 1});
    addBand(*working, GDT_Float32, {2, 2, std::nan(""), 2});

    isodata::ValidityRules rules;
    rules.maskBandsOf = input.get();
    rules.maskRaster = maskRaster.get();
    rules.nonFinite = true;
    TempDir dir;
    EXPECT_EQ(isodata::WriteWorkingMask(rules, input.get(), working.get(), {0, 1}, dir.QFile("mask.tif")), 1);
    GDALDatasetUniquePtr written(GDALDataset::Open(dir.File("mask.tif").c_str(), GDAL_OF_RASTER));
    ASSERT_TRUE(written);
    std::vector<std::uint8_t> got(4);
    ASSERT_EQ(written->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, 2, 2, got.data(), 2, 2, GDT_Byte, 0, 0, nullptr),
              CE_None);
    EXPECT_EQ(got, (std::vector<std::uint8_t>{0, 0, 0, 1}));
}

INSTANTIATE_TEST_SUITE_P(NodataBandTypes, HandWorkedMaskTest,
                         testing::Values(GDT_Byte, GDT_Int32, GDT_Float64, GDT_CInt16));

TEST(ReducedBufferTest, MapsAScratchFileBeyondTheHeapAllowance) {
    TempDir dir;
    isodata::ReducedBuffer small(1000, dir.Path()), large(1000, dir.Path(), 999);
    EXPECT_FALSE(small.Mapped());
    EXPECT_TRUE(large.Mapped());
    EXPECT_TRUE(dir.List().empty());  // the scratch file has no name
}

struct MaskCase {
    const char* name;
    testsupport::RasterTable input;
    bool overviews;
    GDALDataType maskRasterType;  // GDT_Unknown: no mask raster
    int reducedWidth, reducedHeight;
    const char* vrtOutsize = nullptr;  // the input through a VRT of this size
};

std::ostream& operator<<(std::ostream& out, const MaskCase& c) { return out << c.name; }

testsupport::RasterTable WithNodata(testsupport::RasterTable t, double nodata) {
    t.nodata = {nodata};
    return t;
}

testsupport::RasterTable WithAlpha(testsupport::RasterTable t) {
    t.alphaBand = 3;
    return t;
}

class BoundedMaskTest : public testing::TestWithParam<MaskCase> {};

TEST_P(BoundedMaskTest, IsWhatTheWholeReadsGive) {
    const MaskCase& c = GetParam();
    TempDir dir;
    std::string path = testsupport::WriteRasterIn(dir, "in.tif", c.input);
    if (c.overviews) testsupport::BuildOverviews(path);
    if (c.vrtOutsize) path = TranslateRaster(path, dir.File("in.vrt"), {"-of", "VRT", "-outsize", c.vrtOutsize, c.vrtOutsize});
    GDALDatasetUniquePtr input(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    ASSERT_TRUE(input);
    GDALDatasetUniquePtr maskRaster;
    if (c.maskRasterType != GDT_Unknown) {
        testsupport::RasterTable m = RepeatingTable(c.maskRasterType, input->GetRasterXSize(), input->GetRasterYSize(), -4);
        m.bands.resize(1);
        maskRaster.reset(GDALDataset::Open(testsupport::WriteRasterIn(dir, "mask.tif", m).c_str(), GDAL_OF_RASTER));
    }
    isodata::ValidityRules rules;
    rules.maskBandsOf = input.get();
    rules.maskRaster = maskRaster.get();
    const std::vector<std::uint32_t> bands{0, 1, 2};
    const size_t n = static_cast<size_t>(c.reducedWidth) * c.reducedHeight;
    std::vector<std::uint8_t> why(n);
    ASSERT_TRUE(isodata::ValidityReader(rules, bands)
                    .ReadMasks(0, 0, input->GetRasterXSize(), input->GetRasterYSize(), c.reducedWidth,
                               c.reducedHeight, why.data()));
    std::int64_t valid = 0;
    for (std::uint8_t& w : why) valid += (w = w == 0 ? 1 : 0);
    ASSERT_GT(valid, 0);
    ASSERT_LT(valid, static_cast<std::int64_t>(n));

    GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDatasetUniquePtr working(mem->Create("", c.reducedWidth, c.reducedHeight, input->GetRasterCount(),
                                             GDT_Float32, nullptr));
    // The mask may take the values of nodata tests from the working copy,
    // which holds what whole-band reads at its size give.
    std::vector<float> values = testsupport::ReadBandsAt(input.get(), c.reducedWidth, c.reducedHeight);
    ASSERT_EQ(working->RasterIO(GF_Write, 0, 0, c.reducedWidth, c.reducedHeight, values.data(), c.reducedWidth,
                                c.reducedHeight, GDT_Float32, working->GetRasterCount(), nullptr, 0, 0, 0, nullptr),
              CE_None);
    EXPECT_EQ(isodata::WriteWorkingMask(rules, input.get(), working.get(), bands, dir.QFile("mask_out.tif"), 0), valid);
    GDALDatasetUniquePtr written(GDALDataset::Open(dir.File("mask_out.tif").c_str(), GDAL_OF_RASTER));
    std::vector<std::uint8_t> got(n);
    ASSERT_EQ(written->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, c.reducedWidth, c.reducedHeight, got.data(),
                                                  c.reducedWidth, c.reducedHeight, GDT_Byte, 0, 0, nullptr), CE_None);
    EXPECT_EQ(got, why);
}

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    Masks, BoundedMaskTest,
    testing::Values(
        MaskCase{"Byte nodata, UInt16 mask raster", WithNodata(RepeatingTable(GDT_Byte, 203, 151), 3), false, GDT_UInt16, 51, 38},
        MaskCase{"UInt16 nodata read through overviews", WithNodata(RepeatingTable(GDT_UInt16, 203, 151), 3), true, GDT_Unknown,
                 51, 38},
        MaskCase{"Int16 nodata, Float32 mask raster", WithNodata(RepeatingTable(GDT_Int16, 203, 151, -5), -2), false,
                 GDT_Float32, 102, 76},
        MaskCase{"UInt32 fractional nodata", WithNodata(RepeatingTable(GDT_UInt32), 4.5), false, GDT_Unknown, 19, 12},
        MaskCase{"Int32 nodata", WithNodata(RepeatingTable(GDT_Int32, 37, 23, -5), -5), false, GDT_Unknown, 19, 12},
        MaskCase{"Float32 NaN nodata", WithNodata(RepeatingTable(GDT_Float32, 203, 151), kNaN), true, GDT_Unknown, 67, 50},
        MaskCase{"Float64 nodata", WithNodata(RepeatingTable(GDT_Float64, 203, 151, 0.25), 5.25), false, GDT_Unknown, 67, 50},
        MaskCase{"CInt16 nodata, read as GDAL's mask band", WithNodata(RepeatingTable(GDT_CInt16), 2), false, GDT_Unknown, 19,
                 12},
        MaskCase{"alpha band", WithAlpha(RepeatingTable(GDT_Byte, 203, 151)), false, GDT_Int32, 51, 38},
        MaskCase{"UInt16 nodata through a VRT of 16000 x 16000, in strips",
                 WithNodata(RepeatingTable(GDT_UInt16), 3), false, GDT_Unknown, 4000, 4000, "16000"}));

} // namespace
