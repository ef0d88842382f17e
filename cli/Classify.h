// What the child process does inside the run folder: run the plug-in on the
// linked input, judge the outcome, and prepare the summary and the preview,
// so that the parent only has to publish and print.
#pragma once

#include "Command.h"
#include "Options.h"
#include "PluginLoader.h"
#include "ProgressPrinter.h"

#include <ostream>
#include <string>
#include <vector>

namespace isodata_cli {

struct RunPlan {
    Options options;               // as the person gave them
    PluginLibrary* plugin = nullptr;
    std::string runFolder;         // as reachable from the command's folder
    std::string inputName;         // the input's name inside <runFolder>/input
    std::vector<int> bandIndices;  // 0-based
    std::string format;            // the output's GDAL driver
    ProgressStyle style = ProgressStyle::Silent;
};

// What the child hands back besides its exit status: the reason for a
// failure and the summary to print once the result is in place. It lives in
// memory shared across fork, so a full disk cannot swallow it.
class ChildReport {
public:
    ChildReport();
    ~ChildReport();
    ChildReport(const ChildReport&) = delete;
    ChildReport& operator=(const ChildReport&) = delete;

    void SetMessage(const std::string& text);
    void SetSummary(const std::string& text);
    std::string Message() const;
    std::string Summary() const;

private:
    struct Texts;
    Texts* texts_;
};

// Runs in the child. Ok: the result (and preview) wait in the run folder.
// ClassificationFailed: nothing to publish. PreviewFailed: the result waits,
// the preview could not be made. The reason goes to the report.
ExitCode ClassifyInRunFolder(const RunPlan& plan, std::ostream& progressStream, ChildReport& report);

} // namespace isodata_cli
