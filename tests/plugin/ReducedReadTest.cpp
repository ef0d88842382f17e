// Inputs of every driver family that the working copy and its mask read band
// by band, through mapped scratch files (no heap allowance): the copy holds
// the bytes of GDAL's whole-band read at the reduced size, and the mask what
// ValidityReader's whole reads give, strips and nodata masks of wide types
// included.
#include "RunValidity.h"
#include "WorkingCopy.h"

#include "support/TestSupport.h"

#include <GdalSession.h>
#include <Validity.h>

#include <gdal_priv.h>
#include <gdal_utils.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace {

using testsupport::TempDir;

// 37 x 23, three bands holding (3x + 5y + b) % 11: small values that repeat,
// so that nodata values and zeros occur; value 3 becomes NaN for real types.
testsupport::RasterTable Source(GDALDataType type, int width = 37, int height = 23, double offset = 0) {
    testsupport::RasterTable t;
    t.width = width;
    t.height = height;
    t.type = type;
    for (int b = 0; b < 3; ++b) {
        t.bands.emplace_back();
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const double v = (3 * x + 5 * y + b) % 11 + offset;
                const bool real = type == GDT_Float32 || type == GDT_Float64;
                t.bands.back().push_back(real && v == 3 + offset ? std::nan("") : v);
            }
    }
    return t;
}

std::string WriteSource(const TempDir& dir, const std::string& name, const testsupport::RasterTable& table) {
    testsupport::RegisterGdal();
    const std::string path = dir.File(name);
    testsupport::WriteRaster(path, table);
    return path;
}

// gdal_translate with the given arguments; the path of the result.
std::string Translate(const std::string& from, const std::string& to, std::vector<const char*> args) {
    args.push_back(nullptr);
    GDALTranslateOptions* options = GDALTranslateOptionsNew(const_cast<char**>(args.data()), nullptr);
    GDALDatasetUniquePtr source(GDALDataset::Open(from.c_str(), GDAL_OF_RASTER));
    GDALDatasetH done = GDALTranslate(to.c_str(), GDALDataset::ToHandle(source.get()), options, nullptr);
    GDALTranslateOptionsFree(options);
    EXPECT_NE(done, nullptr) << to;
    GDALClose(done);
    return to;
}

void BuildOverviews(const std::string& path) {
    GDALDatasetUniquePtr ds(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    int levels[] = {2, 4};
    ASSERT_EQ(ds->BuildOverviews("NEAREST", 2, levels, 0, nullptr, nullptr, nullptr), CE_None);
}

// ---- the working copy -----------------------------------------------------

std::string UpsamplingVrt(const TempDir& d) {
    return Translate(WriteSource(d, "s.tif", Source(GDT_Byte)), d.File("in.vrt"), {"-of", "VRT", "-outsize", "8000", "4800"});
}

// Four tiles side by side, as gdalbuildvrt lays them out.
std::string Mosaic(const TempDir& d) {
    const std::string source = WriteSource(d, "s.tif", Source(GDT_UInt16, 60, 46));
    std::vector<std::string> tiles;
    for (const char* corner : {"0 0", "30 0", "0 23", "30 23"}) {
        const std::string x(corner, std::strchr(corner, ' ')), y(std::strchr(corner, ' ') + 1);
        tiles.push_back(Translate(source, d.File("tile" + std::to_string(tiles.size()) + ".tif"),
                                  {"-srcwin", x.c_str(), y.c_str(), "30", "23"}));
    }
    std::vector<const char*> names;
    for (const std::string& t : tiles) names.push_back(t.c_str());
    const std::string path = d.File("mosaic.vrt");
    GDALDatasetH vrt = GDALBuildVRT(path.c_str(), static_cast<int>(names.size()), nullptr, names.data(), nullptr, nullptr);
    EXPECT_NE(vrt, nullptr);
    GDALClose(vrt);
    return path;
}

std::string ScaledVrtWithNodata(const TempDir& d) {
    return Translate(WriteSource(d, "s.tif", Source(GDT_UInt16)), d.File("in.vrt"),
                     {"-of", "VRT", "-scale", "0", "10", "0", "250", "-a_nodata", "25", "-outsize", "301", "203"});
}

std::string VrtWithOverviews(const TempDir& d) {
    const std::string path = Translate(WriteSource(d, "s.tif", Source(GDT_Int16)), d.File("in.vrt"),
                                       {"-of", "VRT", "-outsize", "203", "151"});
    BuildOverviews(path);
    return path;
}

std::string EnviWithOverviews(const TempDir& d) {
    const std::string path = Translate(WriteSource(d, "s.tif", Source(GDT_UInt16, 203, 151)), d.File("in.img"),
                                       {"-of", "ENVI"});
    BuildOverviews(path);
    return path;
}

std::string JpegGeoTiff(const TempDir& d) {
    return Translate(WriteSource(d, "s.tif", Source(GDT_Byte, 203, 151)), d.File("in.tif"), {"-co", "COMPRESS=JPEG"});
}

std::string Png(const TempDir& d) {
    return Translate(WriteSource(d, "s.tif", Source(GDT_Byte, 203, 151)), d.File("in.png"), {"-of", "PNG"});
}

std::string Hdf4(const TempDir& d) {
    return Translate(WriteSource(d, "s.tif", Source(GDT_Int16, 203, 151)), d.File("in.hdf"), {"-of", "HDF4Image"});
}

// One three-dimensional variable (band, y, x).
std::string NetCdf(const TempDir& d) {
    const testsupport::RasterTable t = Source(GDT_Float32, 203, 151);
    const std::string path = d.File("in.nc");
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("netCDF");
    GDALDatasetUniquePtr ds(driver->CreateMultiDimensional(path.c_str(), nullptr, nullptr));
    const auto root = ds->GetRootGroup();
    const auto band = root->CreateDimension("band", "", "", 3);
    const auto y = root->CreateDimension("y", "", "", static_cast<GUInt64>(t.height));
    const auto x = root->CreateDimension("x", "", "", static_cast<GUInt64>(t.width));
    const auto array = root->CreateMDArray("values", {band, y, x}, GDALExtendedDataType::Create(GDT_Float32));
    std::vector<double> values;
    for (const auto& b : t.bands) values.insert(values.end(), b.begin(), b.end());
    const GUInt64 start[3] = {0, 0, 0};
    const size_t count[3] = {3, static_cast<size_t>(t.height), static_cast<size_t>(t.width)};
    EXPECT_TRUE(array->Write(start, count, nullptr, nullptr, GDALExtendedDataType::Create(GDT_Float64), values.data()));
    return path;
}

struct CopyCase {
    const char* name;
    std::string (*make)(const TempDir&);
    const char* driver;  // needed to make the input; skipped when missing
    int reducedWidth, reducedHeight;
};

std::ostream& operator<<(std::ostream& out, const CopyCase& c) { return out << c.name; }

std::vector<float> ReadAll(GDALDataset& ds) {
    const int w = ds.GetRasterXSize(), h = ds.GetRasterYSize();
    std::vector<float> values(static_cast<size_t>(w) * h * ds.GetRasterCount());
    EXPECT_EQ(ds.RasterIO(GF_Read, 0, 0, w, h, values.data(), w, h, GDT_Float32, ds.GetRasterCount(), nullptr, 0, 0,
                          0, nullptr), CE_None);
    return values;
}

class BoundedCopyTest : public testing::TestWithParam<CopyCase> {};

TEST_P(BoundedCopyTest, HoldsTheBytesOfTheWholeBandRead) {
    const CopyCase& c = GetParam();
    testsupport::RegisterGdal();
    if (!GetGDALDriverManager()->GetDriverByName(c.driver)) GTEST_SKIP() << "no " << c.driver << " driver";
    TempDir dir;
    const std::string path = c.make(dir);
    GDALDatasetUniquePtr input(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    ASSERT_TRUE(input);
    ASSERT_EQ(input->GetRasterCount(), 3);
    GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDatasetUniquePtr working(mem->Create("", c.reducedWidth, c.reducedHeight, 3, GDT_Float32, nullptr));

    EXPECT_EQ(isodata::WriteWorkingCopy(input.get(), working.get(), c.reducedWidth, c.reducedHeight, 0),
              isodata::WorkingCopyRead::PerBand);
    std::vector<float> expected, band(static_cast<size_t>(c.reducedWidth) * c.reducedHeight);
    for (int b = 1; b <= 3; ++b) {
        ASSERT_EQ(input->GetRasterBand(b)->RasterIO(GF_Read, 0, 0, input->GetRasterXSize(), input->GetRasterYSize(),
                                                    band.data(), c.reducedWidth, c.reducedHeight, GDT_Float32, 0, 0,
                                                    nullptr), CE_None);
        expected.insert(expected.end(), band.begin(), band.end());
    }
    const std::vector<float> got = ReadAll(*working);
    ASSERT_EQ(got.size(), expected.size());
    EXPECT_EQ(std::memcmp(got.data(), expected.data(), got.size() * sizeof(float)), 0);  // NaNs too, to the bit
}

INSTANTIATE_TEST_SUITE_P(
    Drivers, BoundedCopyTest,
    testing::Values(CopyCase{"VRT upsampling 37 x 23 to 8000 x 4800, in strips", UpsamplingVrt, "VRT", 2000, 1200},
                    CopyCase{"mosaic VRT of four tiles", Mosaic, "VRT", 41, 31},
                    CopyCase{"VRT scaling with nodata", ScaledVrtWithNodata, "VRT", 76, 51},
                    CopyCase{"VRT with overviews", VrtWithOverviews, "VRT", 51, 38},
                    CopyCase{"ENVI with external overviews", EnviWithOverviews, "ENVI", 67, 50},
                    CopyCase{"JPEG-compressed GeoTIFF", JpegGeoTiff, "GTiff", 102, 76},
                    CopyCase{"PNG", Png, "PNG", 51, 38},
                    CopyCase{"HDF4", Hdf4, "HDF4Image", 102, 76},
                    CopyCase{"netCDF variable", NetCdf, "netCDF", 51, 38}));

TEST(ReducedBufferTest, MapsAScratchFileBeyondTheHeapAllowance) {
    TempDir dir;
    isodata::ReducedBuffer small(1000, dir.Path()), large(1000, dir.Path(), 999);
    EXPECT_FALSE(small.Mapped());
    EXPECT_TRUE(large.Mapped());
    EXPECT_TRUE(dir.List().empty());  // the scratch file has no name
}

// ---- the working copy's mask ----------------------------------------------

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
    if (c.overviews) BuildOverviews(path);
    if (c.vrtOutsize) path = Translate(path, dir.File("in.vrt"), {"-of", "VRT", "-outsize", c.vrtOutsize, c.vrtOutsize});
    GDALDatasetUniquePtr input(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    ASSERT_TRUE(input);
    GDALDatasetUniquePtr maskRaster;
    if (c.maskRasterType != GDT_Unknown) {
        testsupport::RasterTable m = Source(c.maskRasterType, input->GetRasterXSize(), input->GetRasterYSize(), -4);
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
    // The mask may take the values of nodata tests from the working copy.
    isodata::WriteWorkingCopy(input.get(), working.get(), c.reducedWidth, c.reducedHeight);
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
        MaskCase{"Byte nodata, UInt16 mask raster", WithNodata(Source(GDT_Byte, 203, 151), 3), false, GDT_UInt16, 51, 38},
        MaskCase{"UInt16 nodata read through overviews", WithNodata(Source(GDT_UInt16, 203, 151), 3), true, GDT_Unknown,
                 51, 38},
        MaskCase{"Int16 nodata, Float32 mask raster", WithNodata(Source(GDT_Int16, 203, 151, -5), -2), false,
                 GDT_Float32, 102, 76},
        MaskCase{"UInt32 fractional nodata", WithNodata(Source(GDT_UInt32), 4.5), false, GDT_Unknown, 19, 12},
        MaskCase{"Int32 nodata", WithNodata(Source(GDT_Int32, 37, 23, -5), -5), false, GDT_Unknown, 19, 12},
        MaskCase{"Float32 NaN nodata", WithNodata(Source(GDT_Float32, 203, 151), kNaN), true, GDT_Unknown, 67, 50},
        MaskCase{"Float64 nodata", WithNodata(Source(GDT_Float64, 203, 151, 0.25), 5.25), false, GDT_Unknown, 67, 50},
        MaskCase{"CInt16 nodata, read as GDAL's mask band", WithNodata(Source(GDT_CInt16), 2), false, GDT_Unknown, 19,
                 12},
        MaskCase{"alpha band", WithAlpha(Source(GDT_Byte, 203, 151)), false, GDT_Int32, 51, 38},
        MaskCase{"UInt16 nodata through a VRT of 16000 x 16000, in strips",
                 WithNodata(Source(GDT_UInt16), 3), false, GDT_Unknown, 4000, 4000, "16000"}));

} // namespace
