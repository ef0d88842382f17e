// The pieces of the CLI library whose faults a run of the binary cannot show:
// drawn progress (a test's stdout is never a terminal), shrinking a large
// preview, counting a result too big for one read, and predicting the names
// of the plug-in's working files.
#include "Preview.h"
#include "ProgressPrinter.h"
#include "Summary.h"
#include "WorkFiles.h"

#include "support/TestSupport.h"

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <algorithm>
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
                      Drawing{"SameStageAgain", {{0, "A"}, {100, "A"}, {0, "A"}, {100, "A"}},
                              Pad("A") + kTicks + Pad("A") + kTicks},
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
    ASSERT_TRUE(WritePreview(dir.File("tall.tif"), dir.File("p.png"), error)) << error;
    GDALDatasetUniquePtr png(GDALDataset::Open(dir.File("p.png").c_str(), GDAL_OF_RASTER));
    GDALDatasetUniquePtr source(GDALDataset::Open(dir.File("tall.tif").c_str(), GDAL_OF_RASTER));
    ASSERT_TRUE(png && png->GetRasterBand(1)->GetColorTable());
    // 1024 rows, and the one column kept although it scales to a third of a pixel.
    EXPECT_EQ(std::pair(png->GetRasterXSize(), png->GetRasterYSize()), std::pair(1, 1024));
    EXPECT_TRUE(png->GetRasterBand(1)->GetColorTable()->IsSame(source->GetRasterBand(1)->GetColorTable()));
    const std::vector<double> shown = testsupport::ReadBand(dir.File("p.png"));
    EXPECT_TRUE(std::all_of(shown.begin(), shown.end(), [](double v) { return v == 1 || v == 3; }));
}

TEST(SummaryTest, CountsEveryStripOfATallResult) {
    // 2100 rows of 4096 pixels take two of the summary's 8 MB reads.
    testsupport::TempDir dir;
    std::vector<GByte> pixels(4096 * 2100, 2);
    std::fill(pixels.end() - 4096, pixels.end(), 5);
    WriteClasses(dir.File("tall.tif"), 4096, 2100, pixels);
    ResultSummary s;
    std::string error;
    ASSERT_TRUE(SummariseResult(dir.File("tall.tif"), s, error)) << error;
    ASSERT_EQ(s.classes.size(), 2u);
    EXPECT_EQ(s.classes[0].pixels, 4096LL * 2099);
    EXPECT_EQ(s.classes[1].value, 5);
    EXPECT_EQ(s.classes[1].pixels, 4096);
}

TEST(WorkFilesTest, PredictsThePluginsFileNames) {
    // The plug-in cuts the whole path at its last '.', folder or not.
    EXPECT_EQ(ScratchFileFor("d/scene.b1.tif", 2), "d/scene.b12.km");
    EXPECT_EQ(ScratchFileFor("a.b/scene", 2), "a2.km");
    // Handed "./scene" it would write "0.km", "1.km", ... instead of "scene0.km".
    EXPECT_EQ(PluginInputPath("./scene"), "scene");
    // GDAL's ENVI driver replaces the extension for the header.
    EXPECT_EQ(ResultFilesFor("o/classes.img").header, "o/classes.hdr");
}

} // namespace
