// The run driver behind Execute.
#pragma once

#include "RunResult.h"

#include <KalAlgo.h>

namespace isodata {

// Reduction of the clustering copy by the input's shorter side: 1 up to 100
// pixels, 0.5 up to 5000, 0.25 beyond.
double ReductionFactor(int width, int height);
// Reduced size of one side, rounded half up.
int ReducedSize(int size, double factor);

// The whole run for the record in algorithm's parameter slot.
RunResult RunClassification(KalAlgo::IKalAlgo& algorithm);

} // namespace isodata
