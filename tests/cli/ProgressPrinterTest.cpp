// Drawn progress (a test's stdout is never a terminal, so only here) and the
// overall share of the run a driving program sees.
#include "ProgressPrinter.h"

#include <StageTexts.h>

#include <gtest/gtest.h>

#include <sstream>

using namespace isodata_cli;

namespace {

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

} // namespace
