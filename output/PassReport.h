// What a run's passes report to the run driver, in one shape: the centres
// the clustering ended with and the result pass's figures over the full-size
// input. The result pass fills the figures, the engine the centres; a run
// that applies saved centres fills them itself.
#pragma once

#include "ClassStatistics.h"
#include "Validity.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace isodata {

// Pixels a labelling left unclassified, by why: their band values sum to
// zero (background), a band value is NaN or infinite, or no centre lies
// nearer than the labelling's limit.
struct LabelTally {
    std::int64_t background = 0;
    std::int64_t nonFinite = 0;
    std::int64_t beyondReach = 0;
    std::int64_t allZero = 0;  // classified, 0 in every band (counted without the plain rules)
};

// What one round of the clustering did. Cluster numbers are 1-based, as
// the clusters were numbered when the step was taken.
struct IterationStep {
    std::int64_t round = 0;            // 1, 2, ...; 0 for the small clusters dropped after the last round
    std::int32_t removed = 0;          // small clusters dropped at the round's start
    std::int32_t split = 0;            // the cluster split; 0 when none was
    std::vector<std::pair<std::int32_t, std::int32_t>> merged;  // the pairs merged, closest first
    std::int32_t classes = 0;          // clusters after the round
    double meanDistance = 0.0;         // the overall mean distance the round's step was judged by
};

struct PassReport {
    std::int32_t pixelType = 0;                // of the engine the centres come from; 0 when none ran
    std::vector<std::vector<double>> centres;  // class k + 1 in entry k, widened exactly to double
    ExclusionCounts excluded;                  // by the validity mask
    LabelTally unclassified;                   // of the pixels not excluded
    std::vector<ClassStatistics> classes;      // entry k is class k + 1
    std::vector<IterationStep> iterations;     // the clustering's rounds; empty when centres were applied
};

} // namespace isodata
