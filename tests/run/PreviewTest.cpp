// The quick-look of a large class raster: shrunk on its longer side,
// classes never blended, the palette kept.
#include "Preview.h"

#include "support/TestSupport.h"

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(PreviewTest, ShrinksTheLongerSideWithoutBlendingClassesAndKeepsThePalette) {
    testsupport::TempDir dir;
    // Rows alternate between classes 1 and 3: any averaging would show class 2.
    testsupport::RasterTable tall{1, 3000, GDT_Byte, {std::vector<double>(3000)}};
    for (size_t i = 0; i < 3000; ++i) tall.bands[0][i] = i % 2 ? 3 : 1;
    testsupport::WriteRaster(dir.File("tall.tif"), tall);
    GDALDatasetUniquePtr source(GDALDataset::Open(dir.File("tall.tif").c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    GDALColorTable colours;
    const GDALColorEntry entries[] = {{0, 0, 0, 255}, {255, 0, 0, 255}, {0, 128, 0, 255}, {0, 0, 255, 255}};
    for (int i = 0; i < 4; ++i) colours.SetColorEntry(i, &entries[i]);
    source->GetRasterBand(1)->SetColorTable(&colours);
    std::string error;
    ASSERT_TRUE(isodata_run::WritePreview(*source, dir.File("p.png"), "p.png", error)) << error;
    GDALDatasetUniquePtr png(GDALDataset::Open(dir.File("p.png").c_str(), GDAL_OF_RASTER));
    ASSERT_TRUE(png && png->GetRasterBand(1)->GetColorTable());
    // 1024 rows, and the one column kept although it scales to a third of a pixel.
    EXPECT_EQ(std::pair(png->GetRasterXSize(), png->GetRasterYSize()), std::pair(1, 1024));
    EXPECT_TRUE(png->GetRasterBand(1)->GetColorTable()->IsSame(&colours));
    const std::vector<double> shown = testsupport::ReadBand(dir.File("p.png"));
    EXPECT_TRUE(std::all_of(shown.begin(), shown.end(), [](double v) { return v == 1 || v == 3; }));
}

} // namespace
