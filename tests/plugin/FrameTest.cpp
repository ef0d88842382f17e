// The plug-in frame and its run driver: Execute's check of the parameter
// slot, the band list of the command-style entry, the codes a host gets for
// inputs and results it cannot use and the files each such run leaves, the
// size of the clustering grid, and the engine each pixel type gets.
#include "BandList.h"
#include "ISODataClassification.h"
#include "RunDriver.h"
#include "support/TestSupport.h"

#include <boost/any.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <tuple>

namespace {

// Three Byte bands, the left half dark and the right half bright; over 100
// pixels a side, so the working copy is halved.
void WriteInput(const std::string& path) {
    std::vector<double> band(202 * 150);
    for (size_t i = 0; i < band.size(); ++i) band[i] = i % 202 < 101 ? 20 : 200;
    testsupport::WriteRaster(path, {202, 150, GDT_Byte, {band, band, band}});
}

// The run's result code as the host sees it.
int RunCode(const std::string& input, const std::string& result, std::vector<std::int32_t> bands) {
    // Input, result, classes wanted, initial classes, minimum class pixels, merge pairs,
    // iterations, standard deviation and merge distance thresholds, bands.
    boost::any params(stInfoClassificationISO{QString::fromStdString(input), QString::fromStdString(result), 2, 2, 1,
                                              1, 1, 50.0, 1.0, std::move(bands)});
    isodata::ISODataClassification algorithm;
    algorithm.SetParams(params);
    return static_cast<int>(isodata::RunClassification(algorithm));
}

TEST(RunDriverTest, EachOutcomeGivesItsCodeAndLeavesOnlyItsFiles) {
    const struct { int code; const char* result; std::vector<std::string> left; } cases[] = {
        {1, "classes.img", {"scene.tif"}},                               // the input is a text file
        {2, "classes.img", {"scene.tif", "scene.tiftem.tif"}},           // a folder blocks the working copy
        {3, "missing/classes.img", {"scene.tif", "scene.tiftem.tif"}},   // the result's folder is missing
        {0, "classes.img", {"classes.hdr", "classes.img", "scene.tif"}}};  // band 7 is missing: never read
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        testsupport::TempDir dir;
        const std::string input = dir.File("scene.tif");
        if (c.code == 1) std::ofstream(input) << "plain text\n";
        else WriteInput(input);
        if (c.code == 2) std::filesystem::create_directory(input + "tem.tif");
        isodata::QuietGdalErrors quiet;
        EXPECT_EQ(RunCode(input, dir.File(c.result), {0, 1, c.code == 0 ? 7 : 2}), c.code);
        EXPECT_EQ(dir.List(), c.left);
        // The working copy left behind holds every band at half size; the
        // class raster has the input's full size.
        if (c.code == 3) { EXPECT_EQ(testsupport::ReadBand(input + "tem.tif", 3).size(), 101u * 75u); }
        if (c.code == 0) { EXPECT_EQ(testsupport::ReadBand(dir.File("classes.img")).size(), 202u * 150u); }
    }
}

TEST(ReductionTest, ShorterSideSetsTheFactorAndReducedSidesRoundHalfUp) {
    const struct { int width, height; double factor; int reducedWidth, reducedHeight; } cases[] = {
        {100, 300, 1.0, 100, 300},     {300, 100, 1.0, 300, 100},       {101, 300, 0.5, 51, 150},
        {5000, 8000, 0.5, 2500, 4000}, {5001, 5001, 0.25, 1250, 1250}, {5002, 20000, 0.25, 1251, 5000}};
    for (const auto& c : cases) {
        const double factor = isodata::ReductionFactor(c.width, c.height);
        EXPECT_EQ(std::make_tuple(factor, isodata::ReducedSize(c.width, factor), isodata::ReducedSize(c.height, factor)),
                  std::make_tuple(c.factor, c.reducedWidth, c.reducedHeight))
            << c.width << " x " << c.height;
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

TEST(ExecuteTest, SlotWithoutTheRecordIsRefusedWithError100AndNoProgress) {
    // Same members and layout as the record, but another type.
    struct LookAlikeRecord : stInfoClassificationISO {};
    std::pair<const char*, boost::any> contents[] = {
        {"empty", boost::any()}, {"int", boost::any(42)}, {"look-alike", boost::any(LookAlikeRecord{})}};
    for (auto& [name, params] : contents) {
        isodata::ISODataClassification algorithm;
        int reports = 0;
        algorithm.m_sigProgress.connect([&reports](double, const QString&, void*) { return ++reports; });
        algorithm.SetParams(params);
        EXPECT_FALSE(algorithm.Execute()) << name;
        std::pair<int, QString> error;
        algorithm.GetErrorInfo(error.first, error.second);
        EXPECT_EQ(error, std::make_pair(100, QStringLiteral("Type is Not stInfoClassificationISO!"))) << name;
        EXPECT_EQ(reports, 0) << name;
    }
}

TEST(ParseBandListTest, EveryPieceBecomesAnIndexEmptyOrNonNumericOnesZero) {
    const std::pair<std::string, std::vector<std::int32_t>> cases[] = {
        {"2|0|1", {2, 0, 1}}, {"1||3", {1, 0, 3}}, {"", {0}}, {"2|x|5", {2, 0, 5}}, {"4|", {4, 0}}};
    for (const auto& [list, expected] : cases) EXPECT_EQ(isodata::ParseBandList(list), expected) << '"' << list << '"';
}

} // namespace
