// What the child process does inside the run folder: run the plug-in on the
// linked input, judge the outcome, count the result's classes and draw the
// preview, so that the parent only has to publish. What it learns goes back
// through a ChildChannel.
#pragma once

#include "PluginLoader.h"
#include "Run.h"
#include "RunFolder.h"
#include "RunReport.h"
#include "RunRequest.h"

#include <string>

namespace isodata_run {

// What the child hands back besides its exit status: the report as far as
// the child knows it (outcome Ok, PreviewFailed, NothingValid or
// ClassificationFailed, the reason for a failure, the classes and figures,
// the time in the plug-in and GDAL's errors). It lives in memory shared
// across fork, so a full disk cannot swallow it.
class ChildChannel {
public:
    ChildChannel();
    ~ChildChannel();
    ChildChannel(const ChildChannel&) = delete;
    ChildChannel& operator=(const ChildChannel&) = delete;

    void Send(const RunReport& report);
    // What the child sent; a failure without a reason when it sent nothing.
    RunReport Received() const;

private:
    struct Shared;
    Shared* shared_;
};

// Everything the child needs, all of it set up by the parent before fork.
struct ChildTask {
    const RunRequest& request;
    PluginLibrary& plugin;
    const RunFolder& folder;
    std::string inputName;  // the input's name inside the folder's Input part
};

// Runs in the child. Ok: the result (and preview, and model) wait in the run
// folder. PreviewFailed: the result waits, the preview could not be made.
// NothingValid, ClassificationFailed: nothing to publish. The report goes
// to channel.
void ClassifyInRunFolder(const ChildTask& task, RunListener& listener, ChildChannel& channel);

} // namespace isodata_run
