// The full-size reader hands out a window's values and, beside them, why
// each pixel is excluded: mask bands, the mask raster, and NaN or infinite
// values marked as they are read. A band's nodata mask gives the same flags
// whether it is compared on the values read (types floats hold exactly) or
// read through GDAL's mask band (the others).
#include "WindowReader.h"

#include "support/TestSupport.h"

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

using isodata::ValidityRules;
using isodata::WindowReader;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr int kWidth = 4, kHeight = 3;

// Band 1, Float32, no nodata: a NaN at (2, 0) and an infinity at (3, 2).
const std::vector<float> kBand1{1, 2, kNaN, 4, 5, 0, 7, 8, 9, 10, 11, kInf};
// Band 2, of the type under test, nodata 0: only (3, 1) holds it.
const std::vector<double> kBand2{3, 3, 3, 3, 3, 3, 3, 0, 3, 3, 3, 3};
// The mask raster: 0 at (1, 0) and (3, 2).
const std::vector<std::uint8_t> kMaskRaster{1, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0};

// Worked by hand: 1 mask band, 2 non-finite, 4 mask raster.
const std::vector<std::uint8_t> kExcluded{0, 4, 2, 0, 0, 0, 0, 1, 0, 0, 0, 6};

GDALDatasetUniquePtr Memory(GDALDataType type) {
    testsupport::RegisterGdal();
    return GDALDatasetUniquePtr(
        GetGDALDriverManager()->GetDriverByName("MEM")->Create("", kWidth, kHeight, 0, type, nullptr));
}

template <class V>
void AddBand(GDALDataset& ds, GDALDataType type, GDALDataType bufferType, const std::vector<V>& values) {
    ASSERT_EQ(ds.AddBand(type, nullptr), CE_None);
    ASSERT_EQ(ds.GetRasterBand(ds.GetRasterCount())
                  ->RasterIO(GF_Write, 0, 0, kWidth, kHeight, const_cast<V*>(values.data()), kWidth, kHeight,
                             bufferType, 0, 0, nullptr),
              CE_None);
}

class WindowReaderTest : public testing::TestWithParam<GDALDataType> {
protected:
    void SetUp() override {
        input = Memory(GDT_Float32);
        AddBand(*input, GDT_Float32, GDT_Float32, kBand1);
        AddBand(*input, GetParam(), GDT_Float64, kBand2);
        input->GetRasterBand(2)->SetNoDataValue(0);
        maskRaster = Memory(GDT_Byte);
        AddBand(*maskRaster, GDT_Byte, GDT_Byte, kMaskRaster);
        rules.maskBandsOf = input.get();
        rules.maskRaster = maskRaster.get();
        rules.nonFinite = true;
    }

    GDALDatasetUniquePtr input, maskRaster;
    ValidityRules rules;
};

TEST_P(WindowReaderTest, HandsOutValuesWithEveryRulesBitsOverTheWholeImage) {
    WindowReader reader(input.get(), {0, 1}, kHeight, kWidth, rules);
    reader.Read(0, 0, kWidth, kHeight);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const std::size_t i = static_cast<std::size_t>(y * kWidth + x);
            SCOPED_TRACE("pixel " + std::to_string(x) + ", " + std::to_string(y));
            EXPECT_EQ(reader.Excluded(y)[x], kExcluded[i]);
            EXPECT_EQ(reader.Row(1, y)[x], kBand2[i]);
            if (std::isfinite(kBand1[i])) {
                EXPECT_EQ(reader.Row(0, y)[x], kBand1[i]);
            }
        }
    }
}

TEST_P(WindowReaderTest, AWindowKeepsItsPlaceAndASmallerOneFitsTheBuffers) {
    WindowReader reader(input.get(), {1, 0}, kHeight, kWidth, rules);
    reader.Read(1, 1, 3, 2);
    EXPECT_EQ(std::vector<float>(reader.Row(0, 0), reader.Row(0, 0) + 3), (std::vector<float>{3, 3, 0}));
    EXPECT_EQ(std::vector<float>(reader.Row(1, 1), reader.Row(1, 1) + 2), (std::vector<float>{10, 11}));
    EXPECT_EQ(std::vector<std::uint8_t>(reader.Excluded(0), reader.Excluded(0) + 3),
              (std::vector<std::uint8_t>{0, 0, 1}));
    EXPECT_EQ(std::vector<std::uint8_t>(reader.Excluded(1), reader.Excluded(1) + 3),
              (std::vector<std::uint8_t>{0, 0, 6}));
}

INSTANTIATE_TEST_SUITE_P(NodataBandTypes, WindowReaderTest,
                         testing::Values(GDT_Byte, GDT_Int16, GDT_UInt16, GDT_Float32, GDT_Int32, GDT_UInt32,
                                         GDT_Float64));

TEST(WindowReaderRulesTest, EachRuleMarksOnlyItsOwnBitAndNoRuleGivesNoFlags) {
    GDALDatasetUniquePtr input = Memory(GDT_Float32);
    AddBand(*input, GDT_Float32, GDT_Float32, kBand1);
    ValidityRules none;
    WindowReader plain(input.get(), {0}, kHeight, kWidth, none);
    plain.Read(0, 0, kWidth, kHeight);
    EXPECT_EQ(plain.Excluded(0), nullptr);
    EXPECT_EQ(plain.NonFinite(0), nullptr);
    EXPECT_TRUE(std::isnan(plain.Row(0, 0)[2]));

    // Asked for, non-finite values are marked without excluding anything.
    WindowReader marking(input.get(), {0}, kHeight, kWidth, none, true);
    marking.Read(0, 0, kWidth, kHeight);
    EXPECT_EQ(marking.Excluded(0), nullptr);
    EXPECT_EQ(marking.NonFinite(0)[2], 2);
    EXPECT_EQ(marking.NonFinite(2)[3], 2);
    EXPECT_EQ(marking.NonFinite(1)[0], 0);

    ValidityRules nonFinite;
    nonFinite.nonFinite = true;
    // A band the input lacks reads as zeros and holds nothing non-finite.
    WindowReader reader(input.get(), {4, 0}, kHeight, kWidth, nonFinite);
    reader.Read(0, 0, kWidth, kHeight);
    EXPECT_EQ(reader.Row(0, 1)[3], 0.0f);
    std::vector<std::uint8_t> got;
    for (int y = 0; y < kHeight; ++y) got.insert(got.end(), reader.Excluded(y), reader.Excluded(y) + kWidth);
    EXPECT_EQ(got, (std::vector<std::uint8_t>{0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 2}));
}

} // namespace
