// One classification through the plug-in, driven as the host application
// drives it: fill the parameter record, connect to progress, Execute.
#pragma once

#include "PluginLoader.h"
#include "Run.h"
#include "RunRequest.h"

#include <ClassificationISO.h>
#include <IsodataRun.h>

#include <string>

namespace isodata_run {

// The one place where a request becomes the plug-in's record, with
// inputPath and resultPath as the plug-in should see them.
stInfoClassificationISO BuildRecord(const RunRequest& request, const std::string& inputPath,
                                    const std::string& resultPath);
// And the one place where it becomes the options of the run with options.
stIsodataRunOptions BuildOptions(const RunRequest& request);

enum class PluginOutcome {
    Ok,
    NoAlgorithm,  // GetAlgoObj gave nothing
    Failed,       // Execute returned false
    Threw,        // Execute threw
};

struct PluginRun {
    PluginOutcome outcome = PluginOutcome::Failed;
    // Failed: what GetErrorInfo said (often nothing); Threw: the exception's text.
    int errorNumber = 0;
    std::string errorText;
    double seconds = 0.0;  // time spent in Execute
    stIsodataRunReport report;  // what the run with options wrote back

    // "classification failed" with what the plug-in said, if anything.
    std::string Describe() const;
    bool SaidWhy() const { return outcome != PluginOutcome::Failed || errorNumber != 0 || !errorText.empty(); }
};

// Runs the loaded plug-in's run with options on record, passing its
// progress to listener.
PluginRun RunPlugin(PluginLibrary& plugin, const stInfoClassificationISO& record, const stIsodataRunOptions& options,
                    RunListener& listener);

} // namespace isodata_run
