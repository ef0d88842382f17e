// The run lifecycle, for any host: the command, an in-process caller, a
// service. Given a prepared request it removes the folders of killed runs,
// loads the plug-in, makes a private run folder, classifies in a child
// process there and publishes the result only when everything succeeded.
// A refused, failed or interrupted run leaves every file of the person's
// as it was.
#pragma once

#include "RunApi.h"
#include "RunReport.h"
#include "RunRequest.h"

#include <string>

namespace isodata_run {

// One progress report of a run, taken apart and weighed.
struct Progress {
    double percent = 0.0;  // 0..100 of the stage, starting again at 0 for every stage
    std::string text;      // the stage text as the plug-in reports it; empty once it returned
    int iteration = 0;     // the round the stage belongs to; 0 outside the iteration loop
    std::string stage;     // the stage's own text, without the rounds before it
    double overall = 0.0;  // 0..100 of the whole run; may go back a little between stages
};

// Hears of a run as it goes on; by itself it ignores everything. Progress
// comes from the child process that runs the plug-in, so an implementation
// may only write to streams or files the parent shares, never to the
// parent's memory.
class ISODATA_RUN_API RunListener {
public:
    virtual ~RunListener();
    // Before the run: the folder of an earlier, killed run was removed.
    virtual void RemovedStaleFolder(const std::string& /*path*/) {}
    // In the child: the plug-in's progress.
    virtual void OnProgress(const Progress& /*progress*/) {}
    // In the child: the plug-in returned; no more progress follows.
    virtual void PluginReturned() {}
    // In the child, with gdalDebug or CPL_DEBUG on: one of GDAL's messages as
    // GDAL would print it.
    virtual void GdalMessage(const std::string& /*line*/) {}
};

// Runs request (as Prepare returned it) to its end. SIGINT, SIGTERM and
// SIGHUP are caught for the length of the call and end the run
// (RunOutcome::Interrupted). Prints nothing: what happens is told to
// listener and in the report.
ISODATA_RUN_API RunReport Run(const RunRequest& request, RunListener& listener);

// The version of GDAL the library reads and writes with, as GDAL gives it.
ISODATA_RUN_API std::string GdalVersion();

// What the clustering runs on, in words for a host's help: "the input at
// full size up to 100 pixels on its shorter side, half size up to 5000,
// quarter size beyond".
ISODATA_RUN_API std::string WorkingCopyRule();

// How far the plain run's labelling looks for a centre, as a person writes
// it: "1e7".
ISODATA_RUN_API std::string LabellingReachText();

// Where the charting library an HTML report embeds is installed (Debian's
// libjs-chart.js, or the file ISODATA_CHART_JS names); empty when it is
// not, and a report cannot be written.
ISODATA_RUN_API std::string ChartLibraryPath();

// The longer side of a preview, in pixels, at most.
inline constexpr int kPreviewMaxSide = 1024;

} // namespace isodata_run
