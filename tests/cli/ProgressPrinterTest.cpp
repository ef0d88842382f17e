#include "ProgressPrinter.h"

#include <gtest/gtest.h>

#include <sstream>
#include <utility>
#include <vector>

using namespace isodata_cli;

namespace {

const std::string kTicks = "0...10...20...30...40...50...60...70...80...90...100 - done.\n";

std::string Pad(const std::string& label) { return label + std::string(label.size() < 40 ? 40 - label.size() : 0, ' ') + " "; }

struct StageCase {
    std::string name;
    std::string text;
    int iteration;
    std::string stage;
};

// Test names carry the case's name; keep GoogleTest from dumping its bytes.
void PrintTo(const StageCase& c, std::ostream* os) { *os << c.name; }

class StageTextTest : public ::testing::TestWithParam<StageCase> {};

TEST_P(StageTextTest, KeepsOnlyTheLastRoundAndTheStage) {
    const StageText s = ParseStageText(GetParam().text);
    EXPECT_EQ(s.iteration, GetParam().iteration);
    EXPECT_EQ(s.name, GetParam().stage);
}

INSTANTIATE_TEST_SUITE_P(
    ProgressPrinterTest, StageTextTest,
    ::testing::Values(
        StageCase{"plain", "Statistical classification", 0, "Statistical classification"},
        StageCase{"firstRound", "1times iterationComputing Cluster Center", 1, "Computing Cluster Center"},
        StageCase{"withLeadIn", "Select Initial Cluster Center1times iterationSplit", 1, "Split"},
        StageCase{"accumulated",
                  "Select Initial Cluster Center1times iteration2times iteration3times iterationMerger-Statistical "
                  "classification",
                  3, "Merger-Statistical classification"},
        StageCase{"twoDigits", "9times iteration10times iteration11times iterationSplit", 11, "Split"},
        StageCase{"markerWithoutNumber", "times iterationSplit", 0, "times iterationSplit"},
        StageCase{"empty", "", 0, ""}),
    [](const ::testing::TestParamInfo<StageCase>& info) { return info.param.name; });

TEST(ProgressPrinterTest, LabelsNameTheIteration) {
    EXPECT_EQ(StageLabel({3, "Computing Cluster Center"}), "iteration 3: Computing Cluster Center");
    EXPECT_EQ(StageLabel({0, "Generate result file"}), "Generate result file");
}

// Feeds reports to a printer of the given style and returns what it printed.
std::string Print(ProgressStyle style, const std::vector<std::pair<double, std::string>>& reports) {
    std::ostringstream out;
    ProgressPrinter printer(out, style);
    for (const auto& [percent, text] : reports) printer.Report(percent, text);
    printer.Finish();
    return out.str();
}

TEST(ProgressPrinterTest, DrawsGdalTicksForAStage) {
    EXPECT_EQ(Print(ProgressStyle::Terminal, {{0, "Statistical classification"},
                                              {25, "Statistical classification"},
                                              {100, "Statistical classification"}}),
              Pad("Statistical classification") + kTicks);
}

TEST(ProgressPrinterTest, DrawsTicksOnlyUpToTheReportedPercent) {
    EXPECT_EQ(Print(ProgressStyle::Terminal, {{0, "Split"}, {52.6, "Split"}}), Pad("Split") + "0...10...20...30...40...50.\n");
}

TEST(ProgressPrinterTest, TreatsASumThatFallsJustShortOfHundredAsDone) {
    EXPECT_EQ(Print(ProgressStyle::Terminal, {{0, "A"}, {99.99999999, "A"}}), Pad("A") + kTicks);
}

TEST(ProgressPrinterTest, StartsANewLineWhenTheSameStageStartsAgain) {
    EXPECT_EQ(Print(ProgressStyle::Terminal, {{0, "A"}, {100, "A"}, {0, "A"}, {100, "A"}}),
              Pad("A") + kTicks + Pad("A") + kTicks);
    EXPECT_EQ(Print(ProgressStyle::Terminal, {{0, "A"}, {60, "A"}, {10, "A"}}),
              Pad("A") + "0...10...20...30...40...50...60\n" + Pad("A") + "0...10\n");
}

TEST(ProgressPrinterTest, AStageThatNeverMovesIsALabelAlone) {
    EXPECT_EQ(Print(ProgressStyle::Terminal, {{0, "ISOData Is Runing..."}, {0, "B"}, {100, "B"}}),
              Pad("ISOData Is Runing...") + "\n" + Pad("B") + kTicks);
}

TEST(ProgressPrinterTest, ShowsIterationStagesWithoutTheAccumulatedPrefix) {
    const std::string round2 = "Select Initial Cluster Center1times iteration2times iteration";
    EXPECT_EQ(Print(ProgressStyle::Terminal, {{0, round2 + "Split"}, {100, round2 + "Split"}}),
              Pad("iteration 2: Split") + kTicks);
}

TEST(ProgressPrinterTest, TheClosingEmptyReportEndsAnOpenLine) {
    std::ostringstream out;
    ProgressPrinter printer(out, ProgressStyle::Terminal);
    printer.Report(0, "A");
    printer.Report(50, "A");
    printer.Report(100, "");
    EXPECT_EQ(out.str(), Pad("A") + "0...10...20...30...40...50\n");
    printer.Finish();
    EXPECT_EQ(out.str(), Pad("A") + "0...10...20...30...40...50\n");
}

TEST(ProgressPrinterTest, LineStylePrintsEachStageAndEachIterationOnce) {
    const std::string lead = "Select Initial Cluster Center";
    const std::string r1 = lead + "1times iteration";
    const std::string r2 = r1 + "2times iteration";
    EXPECT_EQ(Print(ProgressStyle::Lines, {{0, "ISOData Is Runing..."},
                                           {0, lead},
                                           {100, lead},
                                           {0, "Statistical classification"},
                                           {50, "Statistical classification"},
                                           {0, r1 + "Computing Cluster Center"},
                                           {0, r1 + "Split"},
                                           {0, r2 + "Computing Cluster Center"},
                                           {0, "Generate result file"},
                                           {100, ""}}),
              "ISOData Is Runing...\n" + lead + "\nStatistical classification\niteration 1\niteration 2\n"
                  "Generate result file\n");
}

TEST(ProgressPrinterTest, SilentStylePrintsNothing) {
    EXPECT_EQ(Print(ProgressStyle::Silent, {{0, "A"}, {100, "A"}, {100, ""}}), "");
}

} // namespace
