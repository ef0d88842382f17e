// One classification through the plug-in, driven as the host application
// drives it: load, fill the parameter record, connect to progress, Execute.
#pragma once

#include "Options.h"
#include "PluginLoader.h"
#include "ProgressPrinter.h"

#include <ClassificationISO.h>

#include <string>
#include <vector>

namespace isodata_cli {

// The record for options, with inputPath and resultPath as the plug-in
// should see them and the bands 0-based.
stInfoClassificationISO BuildRecord(const Options& options, const std::string& inputPath,
                                    const std::string& resultPath, const std::vector<int>& bandIndices);

struct RunOutcome {
    bool ok = false;
    std::string message;  // why it failed, when not ok
    double seconds = 0.0; // time spent in Execute
};

// Runs the loaded plug-in on record. A plug-in that gives no algorithm
// object, returns false or throws gives a failed outcome.
RunOutcome RunPlugin(PluginLibrary& plugin, const stInfoClassificationISO& record, ProgressPrinter& progress);

} // namespace isodata_cli
