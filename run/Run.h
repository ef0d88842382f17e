// The run lifecycle, for any host: the command, an in-process caller, a
// service. Given a checked request it removes the folders of killed runs,
// loads the plug-in, makes a private run folder, classifies in a child
// process there and publishes the result only when everything succeeded.
// A refused, failed or interrupted run leaves every file of the person's
// as it was.
#pragma once

#include "RunReport.h"
#include "RunRequest.h"

namespace isodata_run {

// Runs request to its end. SIGINT, SIGTERM and SIGHUP are caught for the
// length of the call and end the run (RunOutcome::Interrupted). Prints
// nothing: what happens is told to listener and in the report.
RunReport Run(const RunRequest& request, RunListener& listener);

} // namespace isodata_run
