// What the child makes of the plug-in's own report: the figures of the run
// (pixels left out and why, pixels left unclassified and why, the classes'
// centres and statistics), the judgement that a result holds nothing, the
// warnings of a published one, and the class model.
#pragma once

#include "Model.h"
#include "RunReport.h"
#include "RunRequest.h"

#include <IsodataRun.h>
#include <RunResult.h>

#include <string>
#include <vector>

namespace isodata_run {

constexpr int kNoValidPixel = static_cast<int>(isodata::RunResult::NoValidPixel);

// Adds what plugin says of the run on input (a name GDAL opens from the
// child's folder) to report, whose classes were counted from the raster.
void AddFigures(const stIsodataRunReport& plugin, const RunRequest& request, const std::string& input,
                RunReport& report);

// Why a result that holds no class, or leaves every valid pixel
// unclassified, is a failure; an empty message when it holds classes.
Notice EmptyResult(const RunReport& report);

// What to tell when the mask leaves no pixel.
Notice NothingValid(const RunRequest& request);

// Valid pixels a published result left unclassified for a reason the
// person can act on.
std::vector<Notice> Warnings(const RunReport& report, const RunRequest& request);

Model ModelOf(const RunRequest& request, const std::string& input, const stIsodataRunReport& plugin,
              const RunReport& report);

// The report as JSON and back, to cross from the child to the parent.
std::string ReportJson(const RunReport& report);
RunReport ReportFromJson(const std::string& json);

} // namespace isodata_run
