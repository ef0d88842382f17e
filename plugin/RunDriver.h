// The run driver behind Execute.
#pragma once

#include "IsodataEngine.h"
#include "IsodataRun.h"
#include "RunResult.h"
#include "WorkingCopySize.h"

#include <KalAlgo.h>

namespace isodata {

// Runs the engine instance for the working raster's pixel type: Success, the
// type's own failure code (also when the engine refuses the record or throws),
// or UnknownPixelType when the type is none of the seven. Never throws.
RunResult RunEngineForWorkingRaster(KalAlgo::IKalAlgo& algorithm, const EngineInputs& inputs);

// The whole run for the record in algorithm's parameter slot.
RunResult RunClassification(KalAlgo::IKalAlgo& algorithm);

// The whole run for record with options; algorithm receives the progress.
// With the options' defaults this is the run above. The report, when given,
// receives the run's figures (its result code is left to the caller).
RunResult RunClassification(KalAlgo::IKalAlgo& algorithm, const stInfoClassificationISO& record,
                            const stIsodataRunOptions& options, stIsodataRunReport* report);

} // namespace isodata
