// Shows a run's progress to a person: each report has the stage's percent
// (0..100, starting again at 0 for every stage), the stage and its round,
// and the run's overall percent.
#pragma once

#include <Run.h>

#include <ostream>
#include <string>

namespace isodata_cli {

// "iteration 2: Split", or the stage alone outside the loop.
std::string StageLabel(int iteration, const std::string& stage);

enum class ProgressStyle {
    Terminal,  // one line per stage with GDAL's 0...10...100 - done. ticks
    Lines,     // one plain line per stage outside the loop and per iteration
    Machine,   // "progress <overall %> <stage label>" whenever either changes
    Silent,
};

class ProgressPrinter {
public:
    ProgressPrinter(std::ostream& out, ProgressStyle style);

    void Report(const isodata_run::Progress& progress);
    // Ends a line left open by a stage that stopped short of 100.
    void Finish();

private:
    void StartStage(const std::string& label);
    void DrawTicks(double percent);
    void ReportLine(const isodata_run::Progress& progress);
    void ReportMachine(const isodata_run::Progress& progress);

    std::ostream& out_;
    ProgressStyle style_;
    double overall_ = -1.0;  // last overall percentage printed (Machine)
    std::string label_;      // stage on the current line (Terminal) or last printed (Lines)
    double lastPercent_ = 0.0;
    int lastTick_ = -1;      // ticks are 2.5% steps, as GDAL draws them
    bool lineOpen_ = false;
    bool stageDone_ = false;
};

} // namespace isodata_cli
