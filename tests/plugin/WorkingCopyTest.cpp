// The working copy read in one pass holds exactly the pixels of a whole-band
// resampled read of every band, over awkward sizes, both interleavings, tiles
// and strips, with and without overviews, and so for every thread count;
// inputs it cannot follow, and a truncated file, take the whole-band read,
// which inputs of every driver family go through mapped scratch files (no
// heap allowance) to the same bytes. An input held in memory gives the copy
// of the input read without its overviews.
#include "WorkingCopy.h"

#include "support/TestSupport.h"

#include <GdalSession.h>

#include <gdal_priv.h>
#include <gdal_utils.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using isodata::WorkingCopyRead;
using testsupport::RasterTable;
using testsupport::RepeatingTable;
using testsupport::TempDir;
using testsupport::TranslateRaster;

enum class Overviews { None, Internal, External };

struct Case {
    const char* name;
    int width, height, reducedWidth, reducedHeight;
    GDALDataType type;
    std::vector<const char*> options;  // creation options of the GeoTIFF
    Overviews overviews;
    WorkingCopyRead expected;
    const char* driver = "GTiff";
    bool truncated = false;
};

std::ostream& operator<<(std::ostream& out, const Case& c) { return out << c.name; }

// Band b, pixel (x, y) holds a value no other pixel of the band holds.
double PixelValue(int b, int x, int y, int width) { return (y * width + x + b * 7919) % 65536; }

void WriteInput(const std::string& path, const Case& c) {
    testsupport::RegisterGdal();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(c.driver);
    CPLStringList options;
    for (const char* o : c.options) options.AddString(o);
    GDALDatasetUniquePtr ds(driver->Create(path.c_str(), c.width, c.height, 3, c.type, options.List()));
    ASSERT_TRUE(ds);
    std::vector<double> values(static_cast<size_t>(c.width) * c.height);
    for (int b = 0; b < 3; ++b) {
        for (int y = 0; y < c.height; ++y) {
            for (int x = 0; x < c.width; ++x) values[static_cast<size_t>(y) * c.width + x] = PixelValue(b, x, y, c.width);
        }
        ASSERT_EQ(ds->GetRasterBand(b + 1)->RasterIO(GF_Write, 0, 0, c.width, c.height, values.data(), c.width,
                                                     c.height, GDT_Float64, 0, 0, nullptr), CE_None);
    }
    int levels[] = {2, 4};
    if (c.overviews == Overviews::Internal) {
        ASSERT_EQ(ds->BuildOverviews("AVERAGE", 2, levels, 0, nullptr, nullptr, nullptr), CE_None);
    }
    ds.reset();
    if (c.overviews == Overviews::External) {
        GDALDatasetUniquePtr readOnly(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
        ASSERT_EQ(readOnly->BuildOverviews("AVERAGE", 2, levels, 0, nullptr, nullptr, nullptr), CE_None);
    }
    if (c.truncated) std::filesystem::resize_file(path, std::filesystem::file_size(path) * 3 / 5);
}

class WorkingCopyTest : public testing::TestWithParam<Case> {};

TEST_P(WorkingCopyTest, HoldsThePixelsOfTheWholeBandReadForEveryThreadCount) {
    const Case& c = GetParam();
    testsupport::TempDir dir;
    const std::string path = dir.File(std::string("input.") + (c.driver == std::string("ENVI") ? "img" : "tif"));
    WriteInput(path, c);
    const isodata::QuietGdalErrors quiet;  // the truncated input's read errors
    GDALDatasetUniquePtr input(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    ASSERT_TRUE(input);
    const std::vector<float> expected =
        testsupport::ReadBandsAt(input.get(), c.reducedWidth, c.reducedHeight, c.truncated);
    GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
    // A bound of a few kilobytes cuts these small inputs into runs of a row
    // or a few, read by several lanes in turn, fewer than the threads.
    for (const std::size_t bound : {isodata::kCopyBufferBytes, std::size_t{8} << 10, std::size_t{1}}) {
        for (const int threads : {1, 2, 5, 7}) {
            SCOPED_TRACE(std::to_string(threads) + " threads, bound " + std::to_string(bound));
            isodata::WorkerPool pool(threads);
            GDALDatasetUniquePtr working(mem->Create("", c.reducedWidth, c.reducedHeight, 3, GDT_Float32, nullptr));
            EXPECT_EQ(isodata::WriteWorkingCopy(input.get(), working.get(), c.reducedWidth, c.reducedHeight,
                                                isodata::kHeapReadBytes, &pool, true, bound),
                      c.expected);
            EXPECT_EQ(testsupport::ReadBandsAt(working.get(), c.reducedWidth, c.reducedHeight), expected);
        }
    }
}

// An input held in memory gives the working copy by picking from its
// full-resolution pixels: those of GDAL's own reduced read of the input
// opened without its overviews, for every thread count. Inputs whose reads
// the driver may make its own way, and one whose read fails, are not held.
TEST_P(WorkingCopyTest, HeldInputGivesTheReducedReadWithoutOverviewsForEveryThreadCount) {
    const Case& c = GetParam();
    testsupport::TempDir dir;
    const std::string path = dir.File(std::string("input.") + (c.driver == std::string("ENVI") ? "img" : "tif"));
    WriteInput(path, c);
    const isodata::QuietGdalErrors quiet;  // the truncated input's read errors
    const char* const noOverviews[] = {"OVERVIEW_LEVEL=NONE", nullptr};
    GDALDatasetUniquePtr fullResolution(
        GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, nullptr, noOverviews, nullptr));
    GDALDatasetUniquePtr input(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    ASSERT_TRUE(input && fullResolution);
    const bool holds = c.expected == WorkingCopyRead::OnePass;
    const std::vector<float> expected =
        testsupport::ReadBandsAt(fullResolution.get(), c.reducedWidth, c.reducedHeight, c.truncated);
    GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
    for (const int threads : {1, 2, 5, 7}) {
        SCOPED_TRACE(std::to_string(threads) + " threads");
        isodata::WorkerPool pool(threads);
        EXPECT_EQ(isodata::HeldInput::Read(input.get(), isodata::HeldInput::Bytes(input.get()) - 1, &pool), nullptr);
        const auto held = isodata::HeldInput::Read(input.get(), isodata::HeldInput::Bytes(input.get()), &pool);
        ASSERT_EQ(held != nullptr, holds);
        if (!held) continue;
        GDALDatasetUniquePtr working(mem->Create("", c.reducedWidth, c.reducedHeight, 3, GDT_Float32, nullptr));
        isodata::WriteWorkingCopy(*held, working.get(), c.reducedWidth, c.reducedHeight, &pool);
        EXPECT_EQ(testsupport::ReadBandsAt(working.get(), c.reducedWidth, c.reducedHeight), expected);
        // And its views read at full size as the input does.
        EXPECT_EQ(testsupport::ReadBandsAt(held->View().get(), c.width, c.height),
                  testsupport::ReadBandsAt(input.get(), c.width, c.height));
    }
}

const std::vector<const char*> kStrips3{"BLOCKYSIZE=3"};
const std::vector<const char*> kTiles16{"TILED=YES", "BLOCKXSIZE=16", "BLOCKYSIZE=16"};
const std::vector<const char*> kBandTiles16{"TILED=YES", "BLOCKXSIZE=16", "BLOCKYSIZE=16", "INTERLEAVE=BAND"};
const std::vector<const char*> kBandStrips5{"INTERLEAVE=BAND", "BLOCKYSIZE=5"};

INSTANTIATE_TEST_SUITE_P(
    Inputs, WorkingCopyTest,
    testing::Values(
        Case{"odd sides halved, one-row strips", 37, 23, 19, 12, GDT_UInt16, {}, Overviews::None,
             WorkingCopyRead::OnePass},
        Case{"odd sides quartered, strips of 3", 37, 23, 9, 6, GDT_Byte, kStrips3, Overviews::None,
             WorkingCopyRead::OnePass},
        Case{"halved, band-interleaved tiles", 69, 48, 35, 24, GDT_Float64, kBandTiles16, Overviews::None,
             WorkingCopyRead::OnePass},
        Case{"steps of 10/3 and 49/10, band-interleaved strips", 100, 49, 30, 10, GDT_UInt16, kBandStrips5,
             Overviews::None, WorkingCopyRead::OnePass},
        // (i + 0.5) steps land on whole numbers: only GDAL's nudge keeps them there.
        Case{"steps of 60/13 and 30/11", 60, 30, 13, 11, GDT_UInt16, {}, Overviews::None, WorkingCopyRead::OnePass},
        // Column 3818 is 15272 by a running sum of the step, 15273 by (i + 0.5) steps.
        Case{"a running sum of the step", 30546, 9, 7637, 2, GDT_UInt16, {}, Overviews::None,
             WorkingCopyRead::OnePass},
        Case{"full size", 13, 7, 13, 7, GDT_UInt16, {}, Overviews::None, WorkingCopyRead::OnePass},
        Case{"an internal overview of the same size", 203, 151, 102, 76, GDT_UInt16, kTiles16, Overviews::Internal,
             WorkingCopyRead::OnePass},
        Case{"quartered from the half overview", 203, 151, 51, 38, GDT_UInt16, {}, Overviews::Internal,
             WorkingCopyRead::OnePass},
        Case{"external overviews, band-interleaved", 203, 151, 67, 50, GDT_UInt16, kBandStrips5, Overviews::External,
             WorkingCopyRead::OnePass},
        Case{"JPEG-compressed", 37, 23, 19, 12, GDT_Byte, {"COMPRESS=JPEG"}, Overviews::None,
             WorkingCopyRead::PerBand},
        Case{"another driver", 37, 23, 19, 12, GDT_UInt16, {}, Overviews::None, WorkingCopyRead::PerBand, "ENVI"},
        Case{"truncated file", 37, 23, 19, 12, GDT_UInt16, {}, Overviews::None, WorkingCopyRead::PerBand, "GTiff",
             true}));

// Four tiles side by side, as gdalbuildvrt lays them out.
std::string Mosaic(const TempDir& d) {
    const std::string source = testsupport::WriteRasterIn(d, "s.tif", RepeatingTable(GDT_UInt16, 60, 46));
    std::vector<std::string> tiles;
    for (const char* corner : {"0 0", "30 0", "0 23", "30 23"}) {
        const std::string x(corner, std::strchr(corner, ' ')), y(std::strchr(corner, ' ') + 1);
        tiles.push_back(TranslateRaster(source, d.File("tile" + std::to_string(tiles.size()) + ".tif"),
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

// One three-dimensional variable (band, y, x).
std::string NetCdf(const TempDir& d) {
    const testsupport::RasterTable t = RepeatingTable(GDT_Float32, 203, 151);
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

// The input: a RepeatingTable of type and size translated to file with
// args, with overviews built on it when asked; or what make makes.
struct CopyCase {
    const char* name;
    const char* driver;  // needed to make the input; skipped when missing
    int reducedWidth, reducedHeight;
    GDALDataType type;
    int width, height;
    const char* file;
    std::vector<const char*> args;
    bool overviews = false;
    std::string (*make)(const TempDir&) = nullptr;
};

std::ostream& operator<<(std::ostream& out, const CopyCase& c) { return out << c.name; }

class BoundedCopyTest : public testing::TestWithParam<CopyCase> {};

TEST_P(BoundedCopyTest, HoldsTheBytesOfTheWholeBandRead) {
    const CopyCase& c = GetParam();
    testsupport::RegisterGdal();
    if (!GetGDALDriverManager()->GetDriverByName(c.driver)) GTEST_SKIP() << "no " << c.driver << " driver";
    testsupport::TempDir dir;
    const std::string path = c.make ? c.make(dir)
                                    : TranslateRaster(testsupport::WriteRasterIn(dir, "s.tif", RepeatingTable(c.type, c.width, c.height)),
                                                      dir.File(c.file), c.args);
    if (c.overviews) testsupport::BuildOverviews(path);
    GDALDatasetUniquePtr input(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    ASSERT_TRUE(input);
    ASSERT_EQ(input->GetRasterCount(), 3);
    GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDatasetUniquePtr working(mem->Create("", c.reducedWidth, c.reducedHeight, 3, GDT_Float32, nullptr));

    EXPECT_EQ(isodata::WriteWorkingCopy(input.get(), working.get(), c.reducedWidth, c.reducedHeight, 0),
              isodata::WorkingCopyRead::PerBand);
    const std::vector<float> expected = testsupport::ReadBandsAt(input.get(), c.reducedWidth, c.reducedHeight);
    const std::vector<float> got = testsupport::ReadBandsAt(working.get(), c.reducedWidth, c.reducedHeight);
    ASSERT_EQ(got.size(), expected.size());
    EXPECT_EQ(std::memcmp(got.data(), expected.data(), got.size() * sizeof(float)), 0);  // NaNs too, to the bit
}

INSTANTIATE_TEST_SUITE_P(
    Drivers, BoundedCopyTest,
    testing::Values(CopyCase{"VRT upsampling 37 x 23 to 8000 x 4800, in strips", "VRT", 2000, 1200, GDT_Byte, 37, 23,
                             "in.vrt", {"-of", "VRT", "-outsize", "8000", "4800"}},
                    CopyCase{"mosaic VRT of four tiles", "VRT", 41, 31, GDT_UInt16, 0, 0, "", {}, false, Mosaic},
                    CopyCase{"VRT scaling with nodata", "VRT", 76, 51, GDT_UInt16, 37, 23, "in.vrt",
                             {"-of", "VRT", "-scale", "0", "10", "0", "250", "-a_nodata", "25", "-outsize", "301", "203"}},
                    CopyCase{"VRT with overviews", "VRT", 51, 38, GDT_Int16, 37, 23, "in.vrt",
                             {"-of", "VRT", "-outsize", "203", "151"}, true},
                    CopyCase{"ENVI with external overviews", "ENVI", 67, 50, GDT_UInt16, 203, 151, "in.img",
                             {"-of", "ENVI"}, true},
                    CopyCase{"JPEG-compressed GeoTIFF", "GTiff", 102, 76, GDT_Byte, 203, 151, "in.tif",
                             {"-co", "COMPRESS=JPEG"}},
                    CopyCase{"PNG", "PNG", 51, 38, GDT_Byte, 203, 151, "in.png", {"-of", "PNG"}},
                    CopyCase{"HDF4", "HDF4Image", 102, 76, GDT_Int16, 203, 151, "in.hdf", {"-of", "HDF4Image"}},
                    CopyCase{"netCDF variable", "netCDF", 51, 38, GDT_Float32, 0, 0, "", {}, false, NetCdf}));

} // namespace
