// The run driver: its result codes for files that cannot be opened or
// created, which files it leaves behind in each case, the reduced working
// copy, and the size of the clustering grid.
#include "RunDriver.h"

#include "ISODataClassification.h"
#include "support/TestSupport.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <boost/any.hpp>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace isodata {
void PrintTo(RunResult result, std::ostream* os) { *os << "RunResult " << static_cast<int>(result); }
} // namespace isodata

namespace {

using isodata::RunResult;
using testsupport::FileExists;
using testsupport::RasterTable;
using testsupport::TempDir;

bool EndsWith(const std::string& name, const std::string& suffix) {
    return name.size() >= suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::array<double, 6> GeoTransformOf(GDALDataset& ds) {
    std::array<double, 6> gt{};
    ds.GetGeoTransform(gt.data());
    return gt;
}

struct GdalCloser {
    void operator()(GDALDataset* ds) const { GDALClose(ds); }
};
using GdalHandle = std::unique_ptr<GDALDataset, GdalCloser>;

GdalHandle Open(const std::string& path) {
    testsupport::RegisterGdal();
    return GdalHandle(static_cast<GDALDataset*>(GDALOpen(path.c_str(), GA_ReadOnly)));
}

class RunDriverTest : public ::testing::Test {
protected:
    // A three-band Byte image of two groups: the left half dark, the right
    // half bright, each band at its own level so band mix-ups show.
    std::string WriteInput(const std::string& name, int width, int height) {
        RasterTable raster;
        raster.width = width;
        raster.height = height;
        raster.bands.assign(3, std::vector<double>(static_cast<size_t>(width) * height));
        for (int b = 0; b < 3; ++b)
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    raster.bands[b][static_cast<size_t>(y) * width + x] = (x < width / 2 ? 20 : 200) + 11 * b;
        const std::string path = dir.File(name);
        testsupport::WriteRaster(path, raster);
        return path;
    }

    RunResult Run(const std::string& input, const std::string& result,
                  std::vector<std::int32_t> bands = {0, 1, 2}) {
        stInfoClassificationISO record;
        record.inputPath = QString::fromStdString(input);
        record.resultPath = QString::fromStdString(result);
        record.desiredClassCount = 2;
        record.initialClassCount = 2;
        record.minClassPixels = 1;
        record.maxMergePairs = 1;
        record.maxIterations = 1;
        record.stdDevThreshold = 50.0;
        record.mergeDistanceThreshold = 1.0;
        record.bandIndices = std::move(bands);
        boost::any params(record);
        algorithm.SetParams(params);
        return isodata::RunClassification(algorithm);
    }

    TempDir dir;
    isodata::ISODataClassification algorithm;
};

// ---- the input cannot be opened ----

TEST_F(RunDriverTest, TextFileInputGivesInputNotOpenedAndCreatesNothing) {
    std::ofstream(dir.File("scene.tif")) << "plain text\n";
    EXPECT_EQ(Run(dir.File("scene.tif"), dir.File("classes.img")), RunResult::InputNotOpened);
    EXPECT_EQ(dir.List(), std::vector<std::string>{"scene.tif"});
}

TEST_F(RunDriverTest, MissingInputGivesInputNotOpenedAndCreatesNothing) {
    EXPECT_EQ(Run(dir.File("absent.tif"), dir.File("classes.img")), RunResult::InputNotOpened);
    EXPECT_TRUE(dir.List().empty());
}

// ---- the working copy cannot be created ----

TEST_F(RunDriverTest, UncreatableWorkingCopyGivesWorkingCopyFailedAndNoResult) {
    const std::string input = WriteInput("scene.tif", 20, 20);
    // A folder where the working copy would go: GDAL cannot create a file there.
    std::filesystem::create_directory(input + "tem.tif");
    EXPECT_EQ(Run(input, dir.File("classes.img")), RunResult::WorkingCopyFailed);
    EXPECT_FALSE(FileExists(dir.File("classes.img")));
    EXPECT_FALSE(FileExists(dir.File("classes.hdr")));
}

// ---- the result cannot be created ----

class ResultNotCreatedTest : public RunDriverTest {
protected:
    void SetUp() override {
        // 202 x 150: the shorter side is over 100, so the working copy is halved.
        input = WriteInput("scene.tif", 202, 150);
        outcome = Run(input, dir.File("missing-folder/classes.img"));
    }
    std::string input;
    RunResult outcome = RunResult::Success;
};

TEST_F(ResultNotCreatedTest, GivesResultNotCreated) { EXPECT_EQ(outcome, RunResult::ResultNotCreated); }

TEST_F(ResultNotCreatedTest, LeavesTheWorkingCopyBesideTheInput) {
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"scene.tif", "scene.tiftem.tif"}));
}

TEST_F(ResultNotCreatedTest, WorkingCopyIsAHalfSizeFloatCopyOfEveryBand) {
    GdalHandle working = Open(input + "tem.tif");
    ASSERT_TRUE(working);
    EXPECT_EQ(working->GetRasterXSize(), 101);
    EXPECT_EQ(working->GetRasterYSize(), 75);
    ASSERT_EQ(working->GetRasterCount(), 3);
    for (int b = 1; b <= 3; ++b) {
        EXPECT_EQ(working->GetRasterBand(b)->GetRasterDataType(), GDT_Float32);
        const std::vector<double> values = testsupport::ReadBand(input + "tem.tif", b);
        // Column 10 lies in the dark half, column 90 in the bright half.
        EXPECT_EQ(values[10], 20 + 11 * (b - 1)) << "band " << b;
        EXPECT_EQ(values[40 * 101 + 90], 200 + 11 * (b - 1)) << "band " << b;
    }
}

TEST_F(ResultNotCreatedTest, WorkingCopyCoversTheInputGroundWithLargerPixels) {
    // 202 x 150 pixels of 30 m from (500000, 4200000): 6060 m by 4500 m. The
    // half-size copy covers the same ground with 60 m pixels.
    GdalHandle working = Open(input + "tem.tif");
    ASSERT_TRUE(working);
    const std::array<double, 6> expected = {500000.0, 60.0, 0.0, 4200000.0, 0.0, -60.0};
    EXPECT_EQ(GeoTransformOf(*working), expected);
    OGRSpatialReference srs;
    srs.importFromEPSG(32633);
    ASSERT_NE(working->GetSpatialRef(), nullptr);
    EXPECT_TRUE(working->GetSpatialRef()->IsSame(&srs));
}

// ---- a run that finishes ----

class FinishedRunTest : public RunDriverTest {
protected:
    void SetUp() override {
        input = WriteInput("scene.tif", 202, 150);
        outcome = Run(input, dir.File("classes.img"));
    }
    std::string input;
    RunResult outcome = RunResult::InputNotOpened;
};

TEST_F(FinishedRunTest, Succeeds) { EXPECT_EQ(outcome, RunResult::Success); }

TEST_F(FinishedRunTest, ResultIsFullSizeEvenThoughClusteringRanOnHalfSize) {
    GdalHandle result = Open(dir.File("classes.img"));
    ASSERT_TRUE(result);
    EXPECT_EQ(result->GetRasterXSize(), 202);
    EXPECT_EQ(result->GetRasterYSize(), 150);
    const std::array<double, 6> expected = {500000.0, 30.0, 0.0, 4200000.0, 0.0, -30.0};
    EXPECT_EQ(GeoTransformOf(*result), expected);
}

TEST_F(FinishedRunTest, LabelsTheTwoHalvesDifferently) {
    const std::vector<double> labels = testsupport::ReadBand(dir.File("classes.img"));
    const double left = labels[0], right = labels[201];
    EXPECT_NE(left, 0.0);
    EXPECT_NE(right, 0.0);
    EXPECT_NE(left, right);
    for (int y = 0; y < 150; ++y)
        for (int x = 0; x < 202; ++x)
            ASSERT_EQ(labels[static_cast<size_t>(y) * 202 + x], x < 101 ? left : right) << x << "," << y;
}

TEST_F(FinishedRunTest, RemovesTheWorkingCopyAndScratchFiles) {
    for (const std::string& name : dir.List()) {
        EXPECT_FALSE(EndsWith(name, "tem.tif")) << name;
        EXPECT_FALSE(EndsWith(name, ".km")) << name;
    }
}

TEST_F(RunDriverTest, BandTheInputLacksStillFinishesTheRun) {
    const std::string input = WriteInput("scene.tif", 40, 40);
    const RunResult outcome = Run(input, dir.File("classes.img"), {0, 1, 7});
    EXPECT_EQ(outcome, RunResult::Success);
    GdalHandle result = Open(dir.File("classes.img"));
    ASSERT_TRUE(result);
    EXPECT_EQ(result->GetRasterXSize(), 40);
    EXPECT_FALSE(FileExists(input + "tem.tif"));
}

// ---- reduction of the clustering grid ----

struct ReductionCase {
    const char* name;
    int width, height;
    double factor;
    int reducedWidth, reducedHeight;
};
void PrintTo(const ReductionCase& c, std::ostream* os) { *os << c.name; }

class ReductionTest : public ::testing::TestWithParam<ReductionCase> {};

TEST_P(ReductionTest, FactorAndReducedSizeFollowTheShorterSide) {
    const ReductionCase& c = GetParam();
    const double factor = isodata::ReductionFactor(c.width, c.height);
    EXPECT_EQ(factor, c.factor);
    EXPECT_EQ(isodata::ReducedSize(c.width, factor), c.reducedWidth);
    EXPECT_EQ(isodata::ReducedSize(c.height, factor), c.reducedHeight);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, ReductionTest,
    ::testing::Values(ReductionCase{"OnePixel", 1, 1, 1.0, 1, 1},
                      ReductionCase{"ShorterSide100KeepsFullSize", 100, 300, 1.0, 100, 300},
                      ReductionCase{"ShorterSideIsTheHeight", 300, 100, 1.0, 300, 100},
                      ReductionCase{"ShorterSide101Halves", 101, 300, 0.5, 51, 150},
                      ReductionCase{"HalfPixelRoundsUp", 103, 103, 0.5, 52, 52},
                      ReductionCase{"ShorterSide5000Halves", 5000, 8000, 0.5, 2500, 4000},
                      ReductionCase{"ShorterSide5001Quarters", 5001, 5001, 0.25, 1250, 1250},
                      ReductionCase{"QuarterPixelRoundsUp", 5002, 20000, 0.25, 1251, 5000}),
    [](const ::testing::TestParamInfo<ReductionCase>& info) { return std::string(info.param.name); });

} // namespace
