// The report of a finished run as people and scripts read it: a small table
// of the classes found, or the same figures as one JSON object.
#pragma once

#include "Options.h"

#include <Prepare.h>
#include <RunReport.h>

#include <string>
#include <vector>

namespace isodata_cli {

// checked: the options as the checks left them (every band listed, the
// format as GDAL spells it).
std::string FormatSummary(const isodata_run::RunReport& report, const Options& checked);
// space: the run folder's need as the checks estimated it.
// What each round of the clustering did, a line each: for --debug.
std::string IterationLines(const isodata_run::RunReport& report);
std::string FormatJson(const isodata_run::RunReport& report, const Options& checked,
                       const isodata_run::SpaceEstimate& space);

} // namespace isodata_cli
