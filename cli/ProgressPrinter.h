// Shows the plug-in's progress reports to a person. Each report is a percent
// (0..100, starting again at 0 for every stage) and a stage text.
#pragma once

#include <ostream>
#include <string>

namespace isodata_cli {

// A stage text taken apart. Inside the iteration loop the plug-in prefixes
// every stage with the rounds so far, run together ("Select Initial Cluster
// Center1times iteration2times iterationSplit" in round 2); only the last
// round number and the stage itself are worth showing.
struct StageText {
    int iteration = 0;  // 0 outside the loop
    std::string name;
};
StageText ParseStageText(const std::string& text);
// "iteration 2: Split", or the name alone outside the loop.
std::string StageLabel(const StageText& stage);

enum class ProgressStyle {
    Terminal,  // one line per stage with GDAL's 0...10...100 - done. ticks
    Lines,     // one plain line per stage outside the loop and per iteration
    Machine,   // "progress <overall %> <stage label>" whenever either changes
    Silent,
};

// The run's overall progress, 0..100, from a stage and its own percentage:
// the initial centres and first pass take the first tenth, the iterations
// (of which there are at most `iterations`) the next six, and the labelling
// of the full-size input the last three. Not monotonic by itself: the
// printer never lets it go back.
double OverallPercent(const StageText& stage, double percent, int iterations);

class ProgressPrinter {
public:
    // iterations: the -iter asked for, to place a round in the whole run.
    ProgressPrinter(std::ostream& out, ProgressStyle style, int iterations = 1);

    void Report(double percent, const std::string& text);
    // Ends a line left open by a stage that stopped short of 100.
    void Finish();

private:
    void StartStage(const std::string& label);
    void DrawTicks(double percent);
    void ReportLine(const StageText& stage);
    void ReportMachine(const StageText& stage, double percent);

    std::ostream& out_;
    ProgressStyle style_;
    int iterations_;
    double overall_ = -1.0;  // last overall percentage printed (Machine)
    std::string label_;      // stage on the current line (Terminal) or last printed (Lines)
    double lastPercent_ = 0.0;
    int lastTick_ = -1;      // ticks are 2.5% steps, as GDAL draws them
    bool lineOpen_ = false;
    bool stageDone_ = false;
};

} // namespace isodata_cli
