// The working copy's mask of inputs whose mask bands need reading at the
// working copy's size, through mapped scratch files (no heap allowance): it
// holds what ValidityReader's whole reads give, strips, overviews and nodata
// masks of wide types included.
#include "ReducedRead.h"
#include "Validity.h"
#include "WorkingMask.h"

#include "support/TestSupport.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace {

using testsupport::RasterTable;
using testsupport::RepeatingTable;
using testsupport::TempDir;
using testsupport::TranslateRaster;

std::string WriteSource(const TempDir& dir, const std::string& name, const RasterTable& table) {
    const std::string path = dir.File(name);
    testsupport::WriteRaster(path, table);
    return path;
}

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
    std::string path = WriteSource(dir, "in.tif", c.input);
    if (c.overviews) testsupport::BuildOverviews(path);
    if (c.vrtOutsize) path = TranslateRaster(path, dir.File("in.vrt"), {"-of", "VRT", "-outsize", c.vrtOutsize, c.vrtOutsize});
    GDALDatasetUniquePtr input(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    ASSERT_TRUE(input);
    GDALDatasetUniquePtr maskRaster;
    if (c.maskRasterType != GDT_Unknown) {
        testsupport::RasterTable m = RepeatingTable(c.maskRasterType, input->GetRasterXSize(), input->GetRasterYSize(), -4);
        m.bands.resize(1);
        maskRaster.reset(GDALDataset::Open(WriteSource(dir, "mask.tif", m).c_str(), GDAL_OF_RASTER));
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
    std::vector<float> band(n);
    for (int b = 1; b <= input->GetRasterCount(); ++b) {
        ASSERT_EQ(input->GetRasterBand(b)->RasterIO(GF_Read, 0, 0, input->GetRasterXSize(), input->GetRasterYSize(),
                                                    band.data(), c.reducedWidth, c.reducedHeight, GDT_Float32, 0, 0,
                                                    nullptr), CE_None);
        ASSERT_EQ(working->GetRasterBand(b)->RasterIO(GF_Write, 0, 0, c.reducedWidth, c.reducedHeight, band.data(),
                                                      c.reducedWidth, c.reducedHeight, GDT_Float32, 0, 0, nullptr),
                  CE_None);
    }
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
