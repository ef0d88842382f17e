// The pieces of the CLI library whose faults a run of the binary cannot show:
// drawn progress (a test's stdout is never a terminal), the overall progress
// a driving program sees, shrinking a large preview, and undoing a
// publication that fails half-way.
#include "Preview.h"
#include "ProgressPrinter.h"
#include "Publish.h"

#include "support/TestSupport.h"

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

using namespace isodata_cli;

namespace {

// A one-band Byte GeoTIFF holding pixels, row by row.
void WriteClasses(const std::string& path, int width, int height, std::vector<GByte> pixels,
                  GDALColorTable* colours = nullptr) {
    testsupport::RegisterGdal();
    GDALDatasetUniquePtr ds(
        GetGDALDriverManager()->GetDriverByName("GTiff")->Create(path.c_str(), width, height, 1, GDT_Byte, nullptr));
    GDALRasterBand* band = ds->GetRasterBand(1);
    ASSERT_EQ(band->RasterIO(GF_Write, 0, 0, width, height, pixels.data(), width, height, GDT_Byte, 0, 0, nullptr),
              CE_None);
    if (colours) band->SetColorTable(colours);
}

const std::string kTicks = "0...10...20...30...40...50...60...70...80...90...100 - done.\n";
std::string Pad(const std::string& label) { return label + std::string(40 - label.size(), ' ') + " "; }

// Progress reports, and the terminal line GDAL's utilities would draw for them.
struct Drawing {
    const char* name;
    std::vector<std::pair<double, std::string>> reports;
    std::string expected;
};

void PrintTo(const Drawing& c, std::ostream* os) { *os << c.name; }
class ProgressPrinterTest : public ::testing::TestWithParam<Drawing> {};

TEST_P(ProgressPrinterTest, DrawsOneTickedLinePerStage) {
    std::ostringstream out;
    ProgressPrinter printer(out, ProgressStyle::Terminal);
    for (const auto& [percent, text] : GetParam().reports) printer.Report(percent, text);
    printer.Finish();
    EXPECT_EQ(out.str(), GetParam().expected);
}

// The plug-in runs every round number so far into the stage text.
const std::string kRound10 = "Select Initial Cluster Center1times iteration9times iteration10times iteration";

INSTANTIATE_TEST_SUITE_P(
    ProgressPrinterTest, ProgressPrinterTest,
    ::testing::Values(Drawing{"WholeStage", {{0, "A"}, {25, "A"}, {100, "A"}}, Pad("A") + kTicks},
                      Drawing{"StoppedShort", {{0, "A"}, {52.6, "A"}}, Pad("A") + "0...10...20...30...40...50.\n"},
                      // Per-block steps may add up to a hair under 100.
                      Drawing{"AlmostHundred", {{0, "A"}, {99.99999999, "A"}}, Pad("A") + kTicks},
                      Drawing{"StageRestartsMidway", {{0, "A"}, {60, "A"}, {10, "A"}},
                              Pad("A") + "0...10...20...30...40...50...60\n" + Pad("A") + "0...10\n"},
                      Drawing{"StageThatNeverMoves", {{0, "Start"}, {0, "B"}, {100, "B"}},
                              Pad("Start") + "\n" + Pad("B") + kTicks},
                      Drawing{"RoundPrefixes", {{0, kRound10 + "Split"}, {100, kRound10 + "Split"}},
                              Pad("iteration 10: Split") + kTicks},
                      Drawing{"ClosingEmptyReport", {{0, "A"}, {50, "A"}, {100, ""}},
                              Pad("A") + "0...10...20...30...40...50\n"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PreviewTest, ShrinksTheLongerSideWithoutBlendingClassesAndKeepsThePalette) {
    testsupport::TempDir dir;
    // Rows alternate between classes 1 and 3: any averaging would show class 2.
    std::vector<GByte> pixels(3000);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = i % 2 ? 3 : 1;
    GDALColorTable colours;
    const GDALColorEntry entries[] = {{0, 0, 0, 255}, {255, 0, 0, 255}, {0, 128, 0, 255}, {0, 0, 255, 255}};
    for (int i = 0; i < 4; ++i) colours.SetColorEntry(i, &entries[i]);
    WriteClasses(dir.File("tall.tif"), 1, 3000, pixels, &colours);
    std::string error;
    GDALDatasetUniquePtr source(GDALDataset::Open(dir.File("tall.tif").c_str(), GDAL_OF_RASTER));
    ASSERT_TRUE(WritePreview(*source, dir.File("p.png"), "p.png", error)) << error;
    GDALDatasetUniquePtr png(GDALDataset::Open(dir.File("p.png").c_str(), GDAL_OF_RASTER));
    ASSERT_TRUE(png && png->GetRasterBand(1)->GetColorTable());
    // 1024 rows, and the one column kept although it scales to a third of a pixel.
    EXPECT_EQ(std::pair(png->GetRasterXSize(), png->GetRasterYSize()), std::pair(1, 1024));
    EXPECT_TRUE(png->GetRasterBand(1)->GetColorTable()->IsSame(source->GetRasterBand(1)->GetColorTable()));
    const std::vector<double> shown = testsupport::ReadBand(dir.File("p.png"));
    EXPECT_TRUE(std::all_of(shown.begin(), shown.end(), [](double v) { return v == 1 || v == 3; }));
}

TEST(ProgressPrinterTest, MachineLinesGiveTheOverallShareOfTheRun) {
    std::ostringstream out;
    ProgressPrinter printer(out, ProgressStyle::Machine, 10);
    const std::string round2 = "Select Initial Cluster Center1times iteration2times iteration";
    printer.Report(0, "Select Initial Cluster Center");
    printer.Report(100, "Statistical classification");
    printer.Report(50, round2 + "Split");
    printer.Report(0, round2 + "Split-Statistical classification");
    // A later stage that starts lower in its round never moves the run back.
    printer.Report(0, round2 + "Computing Cluster Center");
    printer.Report(50, "Generating result file");
    // Rounds take 6 % each from 10 %: round 2 starts at 16; its split spans
    // 30..55 % of the round and the pass after it 55..100 %.
    EXPECT_EQ(out.str(), "progress 0.0 Select Initial Cluster Center\n"
                         "progress 10.0 Statistical classification\n"
                         "progress 18.6 iteration 2: Split\n"
                         "progress 19.3 iteration 2: Split-Statistical classification\n"
                         "progress 19.3 iteration 2: Computing Cluster Center\n"
                         "progress 85.0 Generating result file\n");
}

TEST(PublishTest, AFailedMoveUndoesTheOnesBefore) {
    testsupport::TempDir dir;
    for (const char* name : {"new1", "new2", "old1"}) std::ofstream(dir.File(name)) << name;
    const std::vector<Move> moves = {{dir.File("new1"), dir.File("old1")}, {dir.File("new2"), dir.File("no/x")}};
    std::string error;
    // Replacing: the old file comes back. Not replacing: the existing one stops everything.
    EXPECT_FALSE(Publish(moves, {}, true, error));
    EXPECT_EQ(error, "cannot move the result to '" + dir.File("no/x") + "': No such file or directory");
    EXPECT_FALSE(Publish({{dir.File("new2"), dir.File("fresh")}, moves[0]}, {}, false, error));
    EXPECT_NE(error.find("appeared while the run went on"), std::string::npos) << error;
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"new1", "new2", "old1"}));
    EXPECT_EQ(testsupport::ReadText(dir.File("old1")), "old1");
    EXPECT_EQ(testsupport::ReadText(dir.File("new1")), "new1");
}

} // namespace
