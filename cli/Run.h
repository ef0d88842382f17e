// One classification through the plug-in, driven as the host application
// drives it: load, fill the parameter record, connect to progress, Execute.
#pragma once

#include "Options.h"
#include "ProgressPrinter.h"
#include "Validate.h"

#include <ClassificationISO.h>

#include <string>
#include <vector>

namespace isodata_cli {

stInfoClassificationISO BuildRecord(const Options& options, const CheckedRequest& request);

struct RunOutcome {
    bool ok = false;
    std::string message;               // why it failed, when not ok
    std::vector<std::string> removed;  // partial result files deleted after a failure
    double seconds = 0.0;              // time spent in Execute
};

// Runs the plug-in at pluginPath on record. After a failure, the result files
// that did not exist before the call are deleted; files that did are left
// alone, whatever the plug-in did to them.
RunOutcome RunClassification(const std::string& pluginPath, const stInfoClassificationISO& record,
                             ProgressPrinter& progress);

// Deletes the existing files of the result at outputPath, for -overwrite, so
// that nothing of an older result (a stale .aux.xml, an RPC file the new
// input lacks) is mistaken for part of the new one. False with error set
// when one cannot be deleted.
bool RemoveResult(const std::string& outputPath, std::string& error);

} // namespace isodata_cli
