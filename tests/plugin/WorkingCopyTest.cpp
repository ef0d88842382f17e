// The working copy read in one pass holds exactly the pixels of a whole-band
// resampled read of every band, over awkward sizes, both interleavings, tiles
// and strips, with and without overviews; inputs it cannot follow, and a
// truncated file, take the whole-band read.
#include "WorkingCopy.h"

#include "support/TestSupport.h"

#include <GdalSession.h>

#include <gdal_priv.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using isodata::WorkingCopyRead;

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

// Every band of the copy, one after the other.
std::vector<float> ReadAll(GDALDataset& ds) {
    const int w = ds.GetRasterXSize(), h = ds.GetRasterYSize();
    std::vector<float> values(static_cast<size_t>(w) * h * ds.GetRasterCount());
    EXPECT_EQ(ds.RasterIO(GF_Read, 0, 0, w, h, values.data(), w, h, GDT_Float32, ds.GetRasterCount(), nullptr, 0, 0,
                          0, nullptr), CE_None);
    return values;
}

// The reference: each band read whole into one reused w x h buffer.
std::vector<float> ReferenceCopy(GDALDataset& input, int w, int h) {
    std::vector<float> buffer(static_cast<size_t>(w) * h), all;
    for (int b = 1; b <= input.GetRasterCount(); ++b) {
        const CPLErr ignored = input.GetRasterBand(b)->RasterIO(GF_Read, 0, 0, input.GetRasterXSize(),
                                                                input.GetRasterYSize(), buffer.data(), w, h,
                                                                GDT_Float32, 0, 0, nullptr);
        (void)ignored;
        all.insert(all.end(), buffer.begin(), buffer.end());
    }
    return all;
}

class WorkingCopyTest : public testing::TestWithParam<Case> {};

TEST_P(WorkingCopyTest, HoldsThePixelsOfTheWholeBandRead) {
    const Case& c = GetParam();
    testsupport::TempDir dir;
    const std::string path = dir.File(std::string("input.") + (c.driver == std::string("ENVI") ? "img" : "tif"));
    WriteInput(path, c);
    const isodata::QuietGdalErrors quiet;  // the truncated input's read errors
    GDALDatasetUniquePtr input(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    ASSERT_TRUE(input);
    GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDatasetUniquePtr working(mem->Create("", c.reducedWidth, c.reducedHeight, 3, GDT_Float32, nullptr));

    EXPECT_EQ(isodata::WriteWorkingCopy(input.get(), working.get(), c.reducedWidth, c.reducedHeight), c.expected);
    const std::vector<float> expected = ReferenceCopy(*input, c.reducedWidth, c.reducedHeight);
    EXPECT_EQ(ReadAll(*working), expected);
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

} // namespace
