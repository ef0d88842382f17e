// Drawn progress (a test's stdout is never a terminal, so only here) and the
// overall share of the run a driving program sees.
#include "ProgressPrinter.h"

#include <StageTexts.h>

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

using namespace isodata_cli;

namespace {

const std::string kTicks = "0...10...20...30...40...50...60...70...80...90...100 - done.\n";
std::string Pad(const std::string& label) { return label + std::string(40 - label.size(), ' ') + " "; }

// A plug-in's report as the run library hands it on.
isodata_run::Progress Reported(double percent, const std::string& text, int iterations = 1) {
    const isodata::StageText stage = isodata::ParseStageText(text);
    return {percent, text, stage.iteration, stage.name, isodata::OverallPercent(stage, percent, iterations)};
}

// The plug-in runs every round number so far into the stage text.
std::string Rounds(std::initializer_list<int> rounds) {
    std::string text = isodata::kSelectInitialCenter;
    for (int round : rounds) text += std::to_string(round) + isodata::kTimesIteration;
    return text;
}

TEST(ProgressPrinterTest, DrawsOneTickedLinePerStage) {
    const std::string split10 = Rounds({1, 9, 10}) + isodata::kSplit;
    // Progress reports, and the terminal line GDAL's utilities would draw for them.
    const std::tuple<const char*, std::vector<std::pair<double, std::string>>, std::string> drawings[] = {
        {"whole stage", {{0, "A"}, {25, "A"}, {100, "A"}}, Pad("A") + kTicks},
        {"stopped short", {{0, "A"}, {52.6, "A"}}, Pad("A") + "0...10...20...30...40...50.\n"},
        // Per-block steps may add up to a hair under 100.
        {"almost 100", {{0, "A"}, {99.99999999, "A"}}, Pad("A") + kTicks},
        {"stage restarts midway", {{0, "A"}, {60, "A"}, {10, "A"}},
         Pad("A") + "0...10...20...30...40...50...60\n" + Pad("A") + "0...10\n"},
        {"stage that never moves", {{0, "Start"}, {0, "B"}, {100, "B"}}, Pad("Start") + "\n" + Pad("B") + kTicks},
        {"round prefixes", {{0, split10}, {100, split10}}, Pad("iteration 10: Split") + kTicks},
        {"closing empty report", {{0, "A"}, {50, "A"}, {100, ""}}, Pad("A") + "0...10...20...30...40...50\n"}};
    for (const auto& [name, reports, expected] : drawings) {
        std::ostringstream out;
        ProgressPrinter printer(out, ProgressStyle::Terminal);
        for (const auto& [percent, text] : reports) printer.Report(Reported(percent, text));
        printer.Finish();
        EXPECT_EQ(out.str(), expected) << name;
    }
}

TEST(ProgressPrinterTest, MachineLinesGiveTheOverallShareOfTheRun) {
    std::ostringstream out;
    ProgressPrinter printer(out, ProgressStyle::Machine);
    const std::string round2 = Rounds({1, 2});
    printer.Report(Reported(0, isodata::kSelectInitialCenter, 10));
    printer.Report(Reported(100, isodata::kStatisticalClassification, 10));
    printer.Report(Reported(50, round2 + isodata::kSplit, 10));
    printer.Report(Reported(0, round2 + isodata::kSplitClassification, 10));
    // A later stage that starts lower in its round never moves the run back.
    printer.Report(Reported(0, round2 + isodata::kComputingClusterCenter, 10));
    printer.Report(Reported(50, isodata::kGeneratingResultFile, 10));
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
