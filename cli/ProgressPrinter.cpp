// Draws progress in the manner of GDAL's terminal progress: a tick every 2.5%,
// a number every 10%, " - done." at 100. A stage whose first report is its 0%
// shows only its label until it moves, so stages that report nothing but
// their start stay one plain line.
#include "ProgressPrinter.h"

#include <StageTexts.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>

namespace isodata_cli {
namespace {

const std::string kRoundMarker = isodata::kTimesIteration;
// Reports may fall a hair short of 100 after summing per-block steps.
constexpr double kComplete = 100.0 - 1e-6;
constexpr int kTicks = 40;
constexpr size_t kLabelWidth = 40;

} // namespace

StageText ParseStageText(const std::string& text) {
    StageText stage;
    const size_t marker = text.rfind(kRoundMarker);
    if (marker == std::string::npos) {
        stage.name = text;
        return stage;
    }
    size_t digits = marker;
    while (digits > 0 && std::isdigit(static_cast<unsigned char>(text[digits - 1]))) --digits;
    if (digits == marker) {  // the words without a round number: not our prefix
        stage.name = text;
        return stage;
    }
    // The round number of a sane run is small; a corrupt text is shown whole.
    const std::string number = text.substr(digits, marker - digits);
    if (number.size() > 9) {
        stage.name = text;
        return stage;
    }
    stage.iteration = std::stoi(number);
    stage.name = text.substr(marker + kRoundMarker.size());
    return stage;
}

std::string StageLabel(const StageText& stage) {
    if (stage.iteration == 0) return stage.name;
    return "iteration " + std::to_string(stage.iteration) + ": " + stage.name;
}

double OverallPercent(const StageText& stage, double percent, int iterations) {
    const double f = std::clamp(percent, 0.0, 100.0) / 100.0;
    if (stage.name == isodata::kGeneratingResultFile) return 70.0 + 30.0 * f;
    if (stage.iteration == 0) return stage.name == isodata::kStatisticalClassification ? 4.0 + 6.0 * f : 4.0 * f;
    // Within a round: statistics first, then the split or merge and the new
    // pass over the image, which takes the larger part.
    const double round = 60.0 / std::max(iterations, 1);
    double start = 0.0, span = 0.3;
    if (stage.name == isodata::kSplit) start = 0.3, span = 0.25;
    else if (stage.name == isodata::kSplitClassification || stage.name == isodata::kMergeClassification)
        start = 0.55, span = 0.45;
    const int done = std::min(stage.iteration, std::max(iterations, 1)) - 1;
    return 10.0 + round * (done + start + span * f);
}

ProgressPrinter::ProgressPrinter(std::ostream& out, ProgressStyle style, int iterations)
    : out_(out), style_(style), iterations_(iterations) {}

void ProgressPrinter::Report(double percent, const std::string& text) {
    if (style_ == ProgressStyle::Silent) return;
    // The closing report of a run carries no text; the summary takes over.
    if (text.empty()) {
        Finish();
        return;
    }
    const StageText stage = ParseStageText(text);
    if (style_ == ProgressStyle::Lines) return ReportLine(stage);
    if (style_ == ProgressStyle::Machine) return ReportMachine(stage, percent);
    const std::string label = StageLabel(stage);
    const bool restarted = percent < lastPercent_ || (stageDone_ && percent < kComplete);
    if (label != label_ || restarted) StartStage(label);
    lastPercent_ = percent;
    if (!stageDone_) DrawTicks(percent);
}

void ProgressPrinter::ReportLine(const StageText& stage) {
    const std::string line = stage.iteration ? "iteration " + std::to_string(stage.iteration) : stage.name;
    if (line == label_) return;
    label_ = line;
    out_ << line << "\n" << std::flush;
}

void ProgressPrinter::ReportMachine(const StageText& stage, double percent) {
    const std::string label = StageLabel(stage);
    // Tenths of a percent: finer steps would only flood the reader.
    const double overall = std::max(overall_, std::round(OverallPercent(stage, percent, iterations_) * 10.0) / 10.0);
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
