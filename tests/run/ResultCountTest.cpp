// The classes of a written class raster: names and colours from the raster,
// pixel counts from the result pass's report, each class under the byte it
// is written as; a plug-in that reports no figures has the raster counted.
#include "ResultCount.h"

#include "support/TestSupport.h"

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <tuple>

namespace {

using Counted = std::vector<std::tuple<int, std::string, std::int64_t>>;

Counted Classes(const isodata_run::RunReport& report) {
    Counted out;
    for (const isodata_run::ClassReport& c : report.classes) out.emplace_back(c.value, c.name, c.pixels);
    return out;
}

TEST(ResultCountTest, CountsComeFromTheReportUnderTheWrittenByteAndNamesFromTheRaster) {
    testsupport::TempDir dir;
    // 10 x 2: ten pixels of 0, eight of 1, two of 2.
    testsupport::RasterTable t{10, 2, GDT_Byte, {std::vector<double>(20, 0.0)}};
    for (int i = 0; i < 8; ++i) t.bands[0][static_cast<size_t>(i)] = 1;
    t.bands[0][8] = t.bands[0][9] = 2;
    testsupport::WriteRaster(dir.File("classes.tif"), t);
    GDALDatasetUniquePtr ds(GDALDataset::Open(dir.File("classes.tif").c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    ASSERT_TRUE(ds);
    const char* names[] = {"Unclassified", "class1", "class2", "class3", nullptr};
    ds->GetRasterBand(1)->SetCategoryNames(const_cast<char**>(names));

    // Classes 1, 256 and 257 hold 5, 3 and 4 pixels: 256 is written as 0,
    // 257 as 1.
    stIsodataRunReport plugin;
    plugin.resultCode = 0;
    plugin.classes.resize(257);
    plugin.classes[0].pixels = 5;
    plugin.classes[255].pixels = 3;
    plugin.classes[256].pixels = 4;
    isodata_run::RunReport report;
    std::string error;
    ASSERT_TRUE(isodata_run::CountClasses(*ds, plugin, report, error)) << error;
    EXPECT_EQ(std::pair(report.width, report.height), std::pair(10, 2));
    EXPECT_EQ(report.unclassified, 11);  // 20 - 12 + 3
    EXPECT_EQ(Classes(report), (Counted{{1, "class1", 9}, {2, "class2", 0}, {3, "class3", 0}}));

    plugin.resultCode = -1;  // no figures: the raster's own pixels
    ASSERT_TRUE(isodata_run::CountClasses(*ds, plugin, report, error)) << error;
    EXPECT_EQ(report.unclassified, 10);
    EXPECT_EQ(Classes(report), (Counted{{1, "class1", 8}, {2, "class2", 2}, {3, "class3", 0}}));
}

} // namespace
