// What a run's passes report to the run driver, in one shape: the centres
// the clustering ended with and the result pass's figures over the full-size
// input. The result pass fills the figures, the engine the centres; a run
// that applies saved centres fills them itself.
#pragma once

#include "ClassStatistics.h"
#include "Validity.h"

#include <cstdint>
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

struct PassReport {
    std::int32_t pixelType = 0;                // of the engine the centres come from; 0 when none ran
    std::vector<std::vector<double>> centres;  // class k + 1 in entry k, widened exactly to double
    ExclusionCounts excluded;                  // by the validity mask
    LabelTally unclassified;                   // of the pixels not excluded
    std::vector<ClassStatistics> classes;      // entry k is class k + 1
};

} // namespace isodata
