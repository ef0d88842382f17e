// The run driver: the codes a host gets for inputs and results it cannot use,
// the files each such run leaves behind, the size of the clustering grid, the
// engine each pixel type gets, and a run over a band the input lacks.
#include "RunDriver.h"

#include "ISODataClassification.h"
#include "support/TestSupport.h"

#include <boost/any.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

// Three Byte bands, the left half dark and the right half bright; over 100
// pixels a side, so the working copy is halved.
void WriteInput(const std::string& path) {
    std::vector<double> band(202 * 150);
    for (size_t i = 0; i < band.size(); ++i) band[i] = i % 202 < 101 ? 20 : 200;
    testsupport::WriteRaster(path, {202, 150, GDT_Byte, {band, band, band}});
}

// The run's result code as the host sees it.
int RunCode(const std::string& input, const std::string& result, std::vector<std::int32_t> bands = {0, 1, 2}) {
    // Input, result, classes wanted, initial classes, minimum class pixels, merge pairs,
    // iterations, standard deviation and merge distance thresholds, bands.
    boost::any params(stInfoClassificationISO{QString::fromStdString(input), QString::fromStdString(result), 2, 2, 1,
                                              1, 1, 50.0, 1.0, std::move(bands)});
    isodata::ISODataClassification algorithm;
    algorithm.SetParams(params);
    return static_cast<int>(isodata::RunClassification(algorithm));
}

TEST(RunDriverTest, FailuresGiveTheirCodeAndLeaveOnlyTheirFiles) {
    const struct { int code; const char* result; std::vector<std::string> left; } cases[] = {
        {1, "classes.img", {"scene.tif"}},                               // the input is a text file
        {2, "classes.img", {"scene.tif", "scene.tiftem.tif"}},           // a folder blocks the working copy
        {3, "missing/classes.img", {"scene.tif", "scene.tiftem.tif"}}};  // the result's folder is missing
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        testsupport::TempDir dir;
        const std::string input = dir.File("scene.tif");
        if (c.code == 1) std::ofstream(input) << "plain text\n";
        else WriteInput(input);
        if (c.code == 2) std::filesystem::create_directory(input + "tem.tif");
        EXPECT_EQ(RunCode(input, dir.File(c.result)), c.code);
        EXPECT_EQ(dir.List(), c.left);
        // The working copy left behind holds every band at half size.
        if (c.code == 3) {
            EXPECT_EQ(testsupport::ReadBand(input + "tem.tif", 3).size(), 101u * 75u);
        }
    }
}

TEST(RunDriverTest, BandTheInputLacksStillGivesAFullSizeResult) {
    testsupport::TempDir dir;
    WriteInput(dir.File("scene.tif"));
    isodata::QuietGdalErrors quiet;
    EXPECT_EQ(RunCode(dir.File("scene.tif"), dir.File("classes.img"), {0, 1, 7}), 0);
    EXPECT_EQ(testsupport::ReadBand(dir.File("classes.img")).size(), 202u * 150u);
    EXPECT_FALSE(testsupport::FileExists(dir.File("scene.tiftem.tif")));
}

TEST(ReductionTest, ShorterSideSetsTheFactorAndReducedSidesRoundHalfUp) {
    const struct { int width, height; double factor; int reducedWidth, reducedHeight; } cases[] = {
        {100, 300, 1.0, 100, 300},     {300, 100, 1.0, 300, 100},       {101, 300, 0.5, 51, 150},
        {5000, 8000, 0.5, 2500, 4000}, {5001, 5001, 0.25, 1250, 1250}, {5002, 20000, 0.25, 1251, 5000}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
        const double factor = isodata::ReductionFactor(c.width, c.height);
        EXPECT_EQ(factor, c.factor);
        EXPECT_EQ(isodata::ReducedSize(c.width, factor), c.reducedWidth);
        EXPECT_EQ(isodata::ReducedSize(c.height, factor), c.reducedHeight);
    }
}

// The engine instance follows the working raster's pixel type: each of the
// seven runs its own engine and fails with its own code when the result
// cannot be opened; any other type runs no engine at all.
TEST(RunDriverTest, EngineFailureCodeFollowsTheWorkingRastersPixelType) {
    const struct { GDALDataType type; int code; } cases[] = {
        {GDT_Byte, 4},    {GDT_UInt16, 5},  {GDT_Int16, 6},    {GDT_UInt32, 7},
        {GDT_Int32, 8},   {GDT_Float32, 9}, {GDT_Float64, 10}, {GDT_CFloat32, 11}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        testsupport::TempDir dir;
        testsupport::WriteRaster(dir.File("work.tif"), {4, 4, c.type, {std::vector<double>(16, 7.0)}});
        isodata::EngineInputs inputs;
        inputs.working = inputs.input = KalDataSource::DatasetFactory::Instance()->OpenRasterDataset(
            dir.QFile("work.tif"), KalDataSource::OpenReadOnly);
        inputs.width = inputs.height = 4;
        inputs.record = {dir.QFile("work.tif"), dir.QFile("missing/classes.img"), 1, 1, 0, 0, 1, 0.0, 0.0, {0}};
        isodata::ISODataClassification algorithm;
        EXPECT_EQ(static_cast<int>(isodata::RunEngineForWorkingRaster(algorithm, inputs)), c.code);
        EXPECT_EQ(dir.List(), std::vector<std::string>{"work.tif"});  // no scratch file left either
    }
}

} // namespace
