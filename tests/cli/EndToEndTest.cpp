// isodata with the real plug-in, found beside the binary as in an install: a
// scene of three well-separated value groups must come out as three classes,
// and what the CLI prints and draws of the result must match the raster.
#include "Subprocess.h"
#include "support/TestSupport.h"

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <set>

namespace {

// Each group fills one 64-pixel-wide block, since the plug-in seeds its
// centres from one sample per 64 x 64 block.
constexpr int kBlock = 64, kWidth = 3 * kBlock, kHeight = kBlock;
constexpr double kGroupValues[3][3] = {{30, 60, 90}, {120, 150, 100}, {210, 40, 200}};

// The bands a run classifies, as typed; every choice separates the groups.
class EndToEndTest : public ::testing::TestWithParam<std::vector<std::string>> {};

TEST_P(EndToEndTest, ClassifiesSeparatedGroupsAndReportsTheResultFaithfully) {
    testsupport::TempDir dir;
    testsupport::RasterTable scene;
    scene.width = kWidth;
    scene.height = kHeight;
    scene.bands.assign(3, std::vector<double>(static_cast<size_t>(kWidth) * kHeight));
    for (int b = 0; b < 3; ++b)
        for (int i = 0; i < kWidth * kHeight; ++i)
            // A ripple of -1..1 keeps every group's spread small but not zero.
            scene.bands[b][i] = kGroupValues[i % kWidth / kBlock][b] + (i % kWidth + i / kWidth) % 3 - 1;
    testsupport::WriteRaster(dir.File("scene.tif"), scene);

    std::vector<std::string> args = {ISODATA_BINARY, "-classes", "3", "-initial", "3", "-iter", "4",
                                     "-preview", "p.png"};
    args.insert(args.end(), GetParam().begin(), GetParam().end());
    args.insert(args.end(), {"scene.tif", "out"});
    const clitest::ProcessResult run = clitest::RunProcess(args, {}, dir.Path());
    ASSERT_EQ(run.exitCode, 0) << run.err << run.out;
    // No working file is left behind, and the preview has no side file.
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"out", "out.hdr", "p.png", "scene.tif"}));

    const std::vector<double> classes = testsupport::ReadBand(dir.File("out"));
    ASSERT_EQ(classes.size(), static_cast<size_t>(kWidth) * kHeight);
    // Each group is one class of its own; no pixel is left unclassified.
    std::set<double> groupClasses;
    for (int i = 0; i < kWidth * kHeight; ++i) {
        ASSERT_EQ(classes[i], classes[i % kWidth / kBlock * kBlock]) << "pixel " << i;
        groupClasses.insert(classes[i]);
    }
    EXPECT_EQ(groupClasses.size(), 3u);
    EXPECT_EQ(groupClasses.count(0), 0u);

    // The summary's figures are the raster's: a row per class with its pixels.
    std::map<int, long long> counted;
    for (double v : classes) ++counted[static_cast<int>(v)];
    for (const auto& [value, pixels] : counted) {
        char row[32];
        std::snprintf(row, sizeof row, "\n  %5d %11lld ", value, pixels);
        EXPECT_NE(run.out.find(row), std::string::npos) << row << " not in\n" << run.out;
    }
    EXPECT_NE(run.out.find("3 classes found (3 requested)"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("Unclassified: 0 pixels"), std::string::npos) << run.out;

    // The preview is the class raster, pixel for pixel, in its own colours.
    GDALDatasetUniquePtr png(GDALDataset::Open(dir.File("p.png").c_str(), GDAL_OF_RASTER));
    GDALDatasetUniquePtr result(GDALDataset::Open(dir.File("out").c_str(), GDAL_OF_RASTER));
    ASSERT_TRUE(png && result);
    EXPECT_EQ(png->GetRasterXSize(), kWidth);
    EXPECT_EQ(png->GetRasterYSize(), kHeight);
    EXPECT_EQ(testsupport::ReadBand(dir.File("p.png")), classes);
    const GDALColorTable* palette = png->GetRasterBand(1)->GetColorTable();
    const GDALColorTable* colours = result->GetRasterBand(1)->GetColorTable();
    ASSERT_TRUE(palette && colours);
    EXPECT_TRUE(palette->IsSame(colours));
}

INSTANTIATE_TEST_SUITE_P(CliEndToEnd, EndToEndTest,
                         ::testing::Values(std::vector<std::string>{}, std::vector<std::string>{"-b", "1"},
                                           std::vector<std::string>{"-b", "3", "-b", "1"}));

} // namespace
