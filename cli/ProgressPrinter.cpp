// Draws progress in the manner of GDAL's terminal progress: a tick every 2.5%,
// a number every 10%, " - done." at 100. A stage whose first report is its 0%
// shows only its label until it moves, so stages that report nothing but
// their start stay one plain line.
#include "ProgressPrinter.h"

#include <algorithm>
#include <cctype>

namespace isodata_cli {
namespace {

const std::string kRoundMarker = "times iteration";
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

ProgressPrinter::ProgressPrinter(std::ostream& out, ProgressStyle style) : out_(out), style_(style) {}

void ProgressPrinter::Report(double percent, const std::string& text) {
    if (style_ == ProgressStyle::Silent) return;
    // The closing report of a run carries no text; the summary takes over.
    if (text.empty()) {
        Finish();
        return;
    }
    const StageText stage = ParseStageText(text);
    if (style_ == ProgressStyle::Lines) {
        const std::string line = stage.iteration ? "iteration " + std::to_string(stage.iteration) : stage.name;
        if (line != label_) {
            label_ = line;
            out_ << line << "\n" << std::flush;
        }
        return;
    }
    const std::string label = StageLabel(stage);
    const bool restarted = percent < lastPercent_ || (stageDone_ && percent < kComplete);
    if (label != label_ || restarted) StartStage(label);
    lastPercent_ = percent;
    if (!stageDone_) DrawTicks(percent);
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
