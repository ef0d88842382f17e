// Which formats hold the class raster exactly, beyond the refusals the
// command's tests show, the creation options a conversion uses, and the
// read-back comparison: a copy that differs in one pixel, colour or name is
// told apart and the difference named.
#include "Convert.h"
#include "FormatJudgement.h"

#include "support/TestSupport.h"

#include <cpl_string.h>

#include <gtest/gtest.h>

#include <functional>
#include <iostream>

using namespace isodata_run;

namespace {

TEST(OutputFormatsTest, LossyOrUnwritableSettingsAreNamedAndLosslessOnesPass) {
    testsupport::RegisterGdal();
    const struct { const char* format; std::vector<std::string> options; const char* says; } cases[] = {
        {"COG", {}, ""},
        {"PNG", {}, ""},
        {"JP2OpenJPEG", {}, ""},  // a band with a colour table is written reversibly
        {"JP2OpenJPEG", {"QUALITY=50"}, "JPEG 2000 loses detail"},
        {"WEBP", {"LOSSLESS=YES"}, "GDAL cannot write it: WEBP driver doesn't support 1 bands"},
        {"COG", {"COMPRESS=WEBP", "QUALITY=90"}, "COMPRESS=WEBP loses detail below QUALITY=100"},
        {"GTiff", {"COMPRESS=LERC", "MAX_Z_ERROR=1"}, "COMPRESS=LERC rounds values"},
        {"MEM", {}, "MEM keeps the raster in memory and writes no file"},
        // Its library writes only real files: tried in a temporary folder.
        {"netCDF", {}, ""},
        {"netCDF", {"FORMAT=NC4", "COMPRESS=DEFLATE"}, ""},
        // Tiles need a geotransform; with PNG tiles by default the colours stay an index.
        {"GPKG", {}, ""},
        {"GPKG", {"TILE_FORMAT=PNG8"}, ""},
        {"GPKG", {"TILE_FORMAT=JPEG"}, "TILE_FORMAT=JPEG changes pixel values"},
        {"GPKG", {"tile_format=webp", "QUALITY=100"}, "TILE_FORMAT=WEBP loses detail"},
        // No memory files either, and Byte is written as true or false.
        {"PCRaster", {}, "it comes back changed: pixel 2, 0 is 1, not 2"},
        {"FITS", {}, ""},
        // GDAL's message names the file it could not make; the reason does not.
        {"MRF", {"COMPRESS=NONESUCH"}, "GDAL cannot write it: MRF: Can't create a test file"},
    };
    for (const auto& c : cases) {
        if (!GetGDALDriverManager()->GetDriverByName(c.format)) {
            std::cout << "skipped: this GDAL has no " << c.format << " driver\n";
            continue;
        }
        const std::string why = WhyNotExact(c.format, c.options);
        EXPECT_EQ(why.substr(0, std::string(c.says).size()), c.says) << c.format;
        EXPECT_EQ(why.empty(), !*c.says) << c.format << ": " << why;
        EXPECT_EQ(why.find("/vsimem/"), std::string::npos) << c.format << ": " << why;
        EXPECT_EQ(why.find("isodata-format-probe"), std::string::npos) << c.format << ": " << why;
        EXPECT_TRUE(why.empty() || why.back() != ' ') << c.format << ": a reason left empty";
    }
}

TEST(OutputFormatsTest, ConversionTakesLosslessDefaultsUnderThePersonsOwnOptions) {
    using Options = std::vector<std::string>;
    const struct { const char* format; Options given, used; bool converted; } cases[] = {
        {"GTiff", {}, {"COMPRESS=DEFLATE"}, true},
        {"gtiff", {"TILED=YES"}, {"COMPRESS=DEFLATE", "TILED=YES"}, true},
        {"GTiff", {"compress=LZW", "TILED=YES"}, {"compress=LZW", "TILED=YES"}, true},
        {"COG", {}, {"COMPRESS=DEFLATE", "OVERVIEW_COMPRESS=DEFLATE", "RESAMPLING=NEAREST"}, true},
        {"COG", {"RESAMPLING=MODE"}, {"COMPRESS=DEFLATE", "OVERVIEW_COMPRESS=DEFLATE", "RESAMPLING=MODE"}, true},
        {"PNG", {"ZLEVEL=9"}, {"ZLEVEL=9"}, true},
        {"GPKG", {}, {"TILE_FORMAT=PNG"}, true},
        {"GPKG", {"TILE_FORMAT=PNG8", "ZLEVEL=9"}, {"TILE_FORMAT=PNG8", "ZLEVEL=9"}, true},
        {"netCDF", {}, {}, true},
        {"ENVI", {}, {}, false},
        {"envi", {}, {}, false},
        {"Envi", {"INTERLEAVE=BIL"}, {"INTERLEAVE=BIL"}, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(CreationOptionsFor(c.format, c.given), c.used) << c.format;
        EXPECT_EQ(NeedsConversion(c.format, c.given), c.converted) << c.format;
    }
}

GDALDatasetUniquePtr ClassRaster(int bands = 1) {
    GDALDatasetUniquePtr ds(GetGDALDriverManager()->GetDriverByName("MEM")->Create("", 3, 2, bands, GDT_Byte, nullptr));
    GByte pixels[] = {0, 1, 2, 2, 1, 0};
    GDALRasterBand* band = ds->GetRasterBand(1);
    EXPECT_EQ(band->RasterIO(GF_Write, 0, 0, 3, 2, pixels, 3, 2, GDT_Byte, 0, 0, nullptr), CE_None);
    GDALColorTable colours;
    const GDALColorEntry entries[] = {{0, 0, 0, 255}, {255, 0, 0, 255}, {0, 0, 255, 255}};
    for (int v = 0; v < 3; ++v) colours.SetColorEntry(v, &entries[v]);
    band->SetColorTable(&colours);
    band->SetCategoryNames(CPLStringList(CSLTokenizeString("Unclassified class1 class2")).List());
    return ds;
}

TEST(OutputFormatsTest, SameClassRasterNamesTheFirstDifference) {
    testsupport::RegisterGdal();
    const GDALDatasetUniquePtr original = ClassRaster();
    const GDALColorEntry grey{9, 9, 9, 255};
    const struct { std::function<void(GDALRasterBand*)> change; int bands; const char* says; } cases[] = {
        {[](GDALRasterBand*) {}, 1, ""},
        {[](GDALRasterBand* b) {
             b->SetColorTable(nullptr);
             b->SetCategoryNames(nullptr);
         }, 1, ""},
        {[](GDALRasterBand* b) { GByte v = 2; EXPECT_EQ(b->RasterIO(GF_Write, 1, 1, 1, 1, &v, 1, 1, GDT_Byte, 0, 0, nullptr), CE_None); },
         1, "pixel 1, 1 is 2, not 1"},
        {[&](GDALRasterBand* b) { b->GetColorTable()->SetColorEntry(2, &grey); }, 1, "the colour of 2 is 9 9 9, not 0 0 255"},
        {[](GDALRasterBand* b) { b->SetCategoryNames(CPLStringList(CSLTokenizeString("Unclassified x")).List()); }, 1,
         "the name of 1 is 'x', not 'class1'"},
        {[](GDALRasterBand*) {}, 3, "it is 3 x 2 pixels in 3 bands, not 3 x 2 in 1"},
    };
    for (const auto& c : cases) {
        const GDALDatasetUniquePtr copy = ClassRaster(c.bands);
        c.change(copy->GetRasterBand(1));
        std::string difference;
        EXPECT_EQ(SameClassRaster(*original, *copy, difference), !*c.says) << c.says;
        EXPECT_EQ(difference, c.says);
    }
}

} // namespace
