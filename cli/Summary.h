// The report of a finished run as people and scripts read it: a small table
// of the classes found, or the same figures as one JSON object.
#pragma once

#include "Options.h"

#include <RunReport.h>

#include <string>

namespace isodata_cli {

// checked: the options as the checks left them (every band listed, the
// format as GDAL spells it).
std::string FormatSummary(const isodata_run::RunReport& report, const Options& checked);
std::string FormatJson(const isodata_run::RunReport& report, const Options& checked);

} // namespace isodata_cli
