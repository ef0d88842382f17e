// What the child makes of the plug-in's own report: the figures of the run
// (pixels left out and why, pixels left unclassified and why, the classes'
// centres and statistics), the judgement that a result holds nothing, and
// the class model. The figures cross to the parent as JSON.
#pragma once

#include "Model.h"
#include "RunReport.h"
#include "RunRequest.h"

#include <IsodataRun.h>
#include <RunResult.h>

#include <string>

namespace isodata_run {

constexpr int kNoValidPixel = static_cast<int>(isodata::RunResult::NoValidPixel);

// The figures of a run on input (a name GDAL opens from the child's folder).
RunFigures FiguresOf(const stIsodataRunReport& report, const RunRequest& request, const std::string& input);

// Why a result that holds no class, or leaves every valid pixel
// unclassified, is a failure; empty when it holds classes.
std::string EmptyResult(const ResultSummary& summary, const RunFigures& figures);

// What to tell when the mask leaves no pixel.
std::string NothingValidMessage(const RunRequest& request);

Model ModelOf(const RunRequest& request, const std::string& input, const stIsodataRunReport& report,
              const ResultSummary& summary, const RunFigures& figures);

std::string FiguresJson(const RunFigures& figures);
RunFigures FiguresFromJson(const std::string& json);

} // namespace isodata_run
