#include "Preview.h"

#include "ClassRaster.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <set>

using namespace isodata_cli;

namespace {

struct SizeCase {
    int width, height;
    int expectedWidth, expectedHeight;
};

void PrintTo(const SizeCase& c, std::ostream* os) { *os << c.width << "x" << c.height; }

class PreviewSizeTest : public ::testing::TestWithParam<SizeCase> {};

TEST_P(PreviewSizeTest, FitsTheLongerSideIntoTheLimit) {
    const PreviewSize size = PreviewSizeFor(GetParam().width, GetParam().height);
    EXPECT_EQ(size.width, GetParam().expectedWidth);
    EXPECT_EQ(size.height, GetParam().expectedHeight);
}

INSTANTIATE_TEST_SUITE_P(PreviewTest, PreviewSizeTest,
                         ::testing::Values(SizeCase{349, 352, 349, 352}, SizeCase{1024, 1024, 1024, 1024},
                                           SizeCase{1025, 10, 1024, 10}, SizeCase{2048, 1024, 1024, 512},
                                           SizeCase{8000, 8000, 1024, 1024}, SizeCase{100, 5000, 20, 1024},
                                           SizeCase{3000, 1, 1024, 1}));

clitest::ClassRasterContent Palette4(int width, int height) {
    clitest::ClassRasterContent content;
    content.width = width;
    content.height = height;
    content.colours = {{0, 0, 0, 255}, {255, 0, 0, 255}, {0, 128, 0, 255}, {0, 0, 255, 255}};
    // GDAL's ENVI driver keeps a colour table only beside class names.
    content.names = {"Unclassified", "Class 1", "Class 2", "Class 3"};
    return content;
}

struct Png {
    int width = 0, height = 0;
    std::vector<GDALColorEntry> palette;
    std::vector<GByte> pixels;
};

Png ReadPng(const std::string& path) {
    Png png;
    GDALDatasetUniquePtr ds(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER));
    if (!ds) return png;
    EXPECT_STREQ(ds->GetDriver()->GetDescription(), "PNG");
    png.width = ds->GetRasterXSize();
    png.height = ds->GetRasterYSize();
    GDALRasterBand* band = ds->GetRasterBand(1);
    if (const GDALColorTable* table = band->GetColorTable())
        for (int i = 0; i < table->GetColorEntryCount(); ++i) png.palette.push_back(*table->GetColorEntry(i));
    png.pixels.resize(static_cast<size_t>(png.width) * png.height);
    EXPECT_EQ(band->RasterIO(GF_Read, 0, 0, png.width, png.height, png.pixels.data(), png.width, png.height,
                             GDT_Byte, 0, 0, nullptr),
              CE_None);
    return png;
}

class PreviewTest : public ::testing::Test {
protected:
    testsupport::TempDir dir;
};

TEST_F(PreviewTest, KeepsASmallRasterPixelForPixelWithItsPalette) {
    clitest::ClassRasterContent content = Palette4(4, 2);
    content.pixels = {0, 1, 2, 3,
                   3, 3, 1, 2};
    clitest::WriteClassRaster(dir.File("classes"), content);
    std::string error;
    ASSERT_TRUE(WritePreview(dir.File("classes"), dir.File("p.png"), error)) << error;
    const Png png = ReadPng(dir.File("p.png"));
    EXPECT_EQ(png.width, 4);
    EXPECT_EQ(png.height, 2);
    EXPECT_EQ(png.pixels, content.pixels);
    ASSERT_EQ(png.palette.size(), content.colours.size());
    for (size_t i = 0; i < content.colours.size(); ++i) {
        EXPECT_EQ(png.palette[i].c1, content.colours[i].c1) << i;
        EXPECT_EQ(png.palette[i].c2, content.colours[i].c2) << i;
        EXPECT_EQ(png.palette[i].c3, content.colours[i].c3) << i;
    }
    // Nothing but the picture: no side file with georeferencing.
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"classes", "classes.hdr", "p.png"}));
}

TEST_F(PreviewTest, ShrinksALargeRasterWithoutMixingClasses) {
    // Columns alternate between classes 1 and 3: any averaging would show class 2.
    clitest::ClassRasterContent content = Palette4(2048, 6);
    for (int y = 0; y < content.height; ++y)
        for (int x = 0; x < content.width; ++x) content.pixels.push_back(x % 2 ? 3 : 1);
    clitest::WriteClassRaster(dir.File("wide"), content);
    std::string error;
    ASSERT_TRUE(WritePreview(dir.File("wide"), dir.File("p.png"), error)) << error;
    const Png png = ReadPng(dir.File("p.png"));
    EXPECT_EQ(png.width, 1024);
    EXPECT_EQ(png.height, 3);
    const std::set<GByte> values(png.pixels.begin(), png.pixels.end());
    EXPECT_TRUE(values == std::set<GByte>{1} || values == std::set<GByte>{3}) << "classes were blended";
    EXPECT_EQ(png.palette.size(), content.colours.size());
}

TEST_F(PreviewTest, HonoursASmallerLimit) {
    clitest::ClassRasterContent content = Palette4(40, 20);
    content.pixels.assign(800, 2);
    clitest::WriteClassRaster(dir.File("c"), content);
    std::string error;
    ASSERT_TRUE(WritePreview(dir.File("c"), dir.File("p.png"), error, 10)) << error;
    const Png png = ReadPng(dir.File("p.png"));
    EXPECT_EQ(png.width, 10);
    EXPECT_EQ(png.height, 5);
}

TEST_F(PreviewTest, FailsCleanlyWithoutASource) {
    std::string error;
    testsupport::QuietGdalErrors quiet;
    EXPECT_FALSE(WritePreview(dir.File("none"), dir.File("p.png"), error));
    EXPECT_NE(error.find("none"), std::string::npos) << error;
    EXPECT_TRUE(dir.List().empty());
}

TEST_F(PreviewTest, FailsCleanlyWhenThePngCannotBeWritten) {
    clitest::ClassRasterContent content = Palette4(2, 1);
    content.pixels = {1, 2};
    clitest::WriteClassRaster(dir.File("c"), content);
    std::string error;
    testsupport::QuietGdalErrors quiet;
    EXPECT_FALSE(WritePreview(dir.File("c"), dir.File("gone/p.png"), error));
    EXPECT_NE(error.find("gone/p.png"), std::string::npos) << error;
}

} // namespace
