// Draws progress in the manner of GDAL's terminal progress: a tick every 2.5%,
// a number every 10%, " - done." at 100. A stage whose first report is its 0%
// shows only its label until it moves, so stages that report nothing but
// their start stay one plain line.
#include "ProgressPrinter.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

namespace isodata_cli {
namespace {

// Reports may fall a hair short of 100 after summing per-block steps.
constexpr double kComplete = 100.0 - 1e-6;
constexpr int kTicks = 40;
constexpr size_t kLabelWidth = 40;

} // namespace

std::string StageLabel(int iteration, const std::string& stage) {
    if (iteration == 0) return stage;
    return "iteration " + std::to_string(iteration) + ": " + stage;
}

ProgressPrinter::ProgressPrinter(std::ostream& out, ProgressStyle style) : out_(out), style_(style) {}

void ProgressPrinter::Report(const isodata_run::Progress& progress) {
    if (style_ == ProgressStyle::Silent) return;
    // The closing report of a run carries no text; the summary takes over.
    if (progress.text.empty()) {
        Finish();
        return;
    }
    if (style_ == ProgressStyle::Lines) return ReportLine(progress);
    if (style_ == ProgressStyle::Machine) return ReportMachine(progress);
    const double percent = progress.percent;
    const std::string label = StageLabel(progress.iteration, progress.stage);
    const bool restarted = percent < lastPercent_ || (stageDone_ && percent < kComplete);
    if (label != label_ || restarted) StartStage(label);
    lastPercent_ = percent;
    if (!stageDone_) DrawTicks(percent);
}

void ProgressPrinter::ReportLine(const isodata_run::Progress& progress) {
    const std::string line = progress.iteration ? "iteration " + std::to_string(progress.iteration) : progress.stage;
    if (line == label_) return;
    label_ = line;
    out_ << line << "\n" << std::flush;
}

void ProgressPrinter::ReportMachine(const isodata_run::Progress& progress) {
    const std::string label = StageLabel(progress.iteration, progress.stage);
    // Tenths of a percent: finer steps would only flood the reader.
    const double overall = std::max(overall_, std::round(progress.overall * 10.0) / 10.0);
    if (overall == overall_ && label == label_) return;
    overall_ = overall;
    label_ = label;
    char number[16];
    std::snprintf(number, sizeof number, "%.1f", overall);
    out_ << "progress " << number << " " << label << "\n" << std::flush;
}

void ProgressPrinter::Finish() {
    if (lineOpen_) out_ << "\n" << std::flush;
    lineOpen_ = false;
}

void ProgressPrinter::StartStage(const std::string& label) {
    Finish();
    label_ = label;
    lastTick_ = -1;
    lastPercent_ = 0.0;
    stageDone_ = false;
    out_ << label;
    if (label.size() < kLabelWidth) out_ << std::string(kLabelWidth - label.size(), ' ');
    out_ << " " << std::flush;
    lineOpen_ = true;
}

void ProgressPrinter::DrawTicks(double percent) {
    if (percent <= 0.0) return;
    const int tick = std::clamp(static_cast<int>(percent / 100.0 * kTicks), 0, kTicks);
    const int target = percent >= kComplete ? kTicks : tick;
    while (lastTick_ < target) {
        ++lastTick_;
        if (lastTick_ % 4 == 0)
            out_ << lastTick_ / 4 * 10;
        else
            out_ << ".";
    }
    if (percent >= kComplete) {
        out_ << " - done.\n";
        lineOpen_ = false;
        stageDone_ = true;
    }
    out_ << std::flush;
}

} // namespace isodata_cli
