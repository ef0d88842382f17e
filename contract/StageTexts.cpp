// Stage texts taken apart, and the weights of the stages in a whole run.
#include "StageTexts.h"

#include <algorithm>
#include <cctype>

namespace isodata {
namespace {

const std::string kRoundMarker = kTimesIteration;

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

double OverallPercent(const StageText& stage, double percent, int iterations) {
    const double f = std::clamp(percent, 0.0, 100.0) / 100.0;
    if (stage.name == kGeneratingResultFile) return 70.0 + 30.0 * f;
    if (stage.iteration == 0) return stage.name == kStatisticalClassification ? 4.0 + 6.0 * f : 4.0 * f;
    // Within a round: statistics first, then the split or merge and the new
    // pass over the image, which takes the larger part.
    const double round = 60.0 / std::max(iterations, 1);
    double start = 0.0, span = 0.3;
    if (stage.name == kSplit) start = 0.3, span = 0.25;
    else if (stage.name == kSplitClassification || stage.name == kMergeClassification)
        start = 0.55, span = 0.45;
    const int done = std::min(stage.iteration, std::max(iterations, 1)) - 1;
    return 10.0 + round * (done + start + span * f);
}

} // namespace isodata
