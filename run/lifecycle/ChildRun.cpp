// The child's part of a run, in the run folder's input part (the plug-in
// writes its working copy and scratch files beside its input, so they land
// there).
//
//  1. Run the plug-in with GDAL's errors collected rather than printed.
//  2. The run failed if Execute said so, if GDAL raised an error of class
//     Failure or worse (a read or write the plug-in does not check), or if
//     no result appeared.
//  3. A run that left no valid pixel, classified none of them, or found no
//     class, failed too, with its likely cause named.
//  4. Give the result the input's ground control points where the input is
//     placed by them alone; convert to the asked-for format (read back and
//     compared); let an ENVI header name the output, not the run folder.
//  5. Open the result once: take its classes' names and colours, with the
//     pixel counts the result pass reported, and draw the preview from the
//     same dataset; write the model and the HTML report.
#include "ChildRun.h"

#include "Convert.h"
#include "Figures.h"
#include "GdalErrorLog.h"
#include "HtmlReport.h"
#include "Model.h"
#include "Paths.h"
#include "PluginRun.h"
#include "Preview.h"
#include "ResultCount.h"
#include "ResultGeoreferencing.h"

#include <cpl_conv.h>
#include <gdal_priv.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace isodata_run {

// The report as JSON: 255 classes of dozens of bands, the first GDAL errors.
constexpr size_t kReportBytes = 8 << 20;

struct ChildChannel::Shared {
    char report[kReportBytes];
};

ChildChannel::ChildChannel() {
    void* shared = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) throw std::bad_alloc();
    shared_ = new (shared) Shared{};
}

ChildChannel::~ChildChannel() { munmap(shared_, sizeof(Shared)); }

void ChildChannel::Send(const RunReport& report) {
    const std::string json = ReportJson(report);
    const size_t n = std::min(json.size(), kReportBytes - 1);
    std::memcpy(shared_->report, json.data(), n);
    shared_->report[n] = '\0';
}

RunReport ChildChannel::Received() const {
    if (shared_->report[0] == '\0') return RunReport();
    return ReportFromJson(shared_->report);
}

namespace {

// When the disk filled up: where, and what would help.
void AddSpaceHint(const GdalErrorLog& errors, const std::string& place, RunReport& report) {
    if (!errors.SawFullDisk()) return;
    report.message += " (no space is left in '" + place +
                      "': a run needs room there for a working copy up to the size of the input; free some)";
    report.remedies.push_back({AskField::TmpDir, "to work in another place"});
}

// A plug-in's "false" says nothing more; GDAL's errors often say why.
std::string FailureOf(const PluginRun& run, const GdalErrorLog& errors, const std::string& inputName) {
    if (run.outcome == PluginOutcome::Ok)
        return errors.Failures() ? "classification failed: " + errors.Describe(inputName) : "";
    if (!run.SaidWhy() && errors.Failures() > 0) return run.Describe() + ": " + errors.Describe(inputName);
    return run.Describe();
}

RunReport Failed(const std::string& message) {
    RunReport report;
    report.outcome = RunOutcome::ClassificationFailed;
    report.message = message;
    return report;
}

RunReport Ended(RunOutcome outcome, const Notice& notice) {
    RunReport report;
    report.outcome = outcome;
    report.message = notice.message;
    report.remedies = notice.remedies;
    return report;
}

// The plug-in's result, in the asked-for format, with its header naming the
// output: false with error set when it cannot be made so.
bool FinishResult(const ChildTask& task, const std::string& pluginResult, const std::string& result,
                  std::string& error) {
    const OutputSettings& out = task.request.output;
    const bool convert = pluginResult != result;
    return CarryGcps(task.inputName, pluginResult, error) &&
           CarryClassLooks(pluginResult, task.request.model.applyLooks, error) &&
           (!convert || ConvertResult(pluginResult, result, out.format, out.creationOptions, error)) &&
           (!IsResultFormat(out.format) || NameEnviHeader(result, FileNameOf(out.path), error));
}

RunReport Classify(const ChildTask& task, RunListener& listener, const GdalErrorLog& errors) {
    const RunRequest& request = task.request;
    using Part = RunFolder::Part;
    const OutputSettings& out = task.request.output;
    const std::string result = RunFolder::FromInputDir(Part::Result, FileNameOf(out.path));
    const std::string pluginResult = NeedsConversion(out.format, out.creationOptions)
                                         ? RunFolder::FromInputDir(Part::PluginResult, FileNameOf(out.path))
                                         : result;
    const std::string place = FolderOf(task.folder.Path());

    const PluginRun run = RunPlugin(task.plugin, BuildRecord(request, task.inputName, pluginResult),
                                    BuildOptions(request), listener);
    if (run.report.resultCode == kNoValidPixel) return Ended(RunOutcome::NothingValid, NothingValid(request));
    RunReport report;
    if (std::string failure = FailureOf(run, errors, task.inputName); !failure.empty()) report = Failed(failure);
    else if (!Exists(pluginResult))
        report = Failed("classification failed: the plug-in reported success but wrote no '" + out.path + "'");
    else if (std::string error; !FinishResult(task, pluginResult, result, error)) report = Failed(error);
    if (!report.message.empty()) {
        AddSpaceHint(errors, place, report);
        return report;
    }

    GDALDatasetUniquePtr classes(GDALDataset::Open(result.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    if (!classes) return Failed("classification failed: the result cannot be read back: " + errors.Describe(task.inputName));
    std::string previewError, error;
    const bool previewOk =
        out.previewPath.empty() ||
        WritePreview(*classes, RunFolder::FromInputDir(Part::Preview, FileNameOf(out.previewPath)), out.previewPath,
                     previewError);
    if (!CountClasses(*classes, run.report, report, error)) return Failed("classification failed: " + error);
    AddFigures(run.report, request, task.inputName, report);
    if (const Notice empty = EmptyResult(report); !empty.message.empty())
        return Ended(RunOutcome::ClassificationFailed, empty);
    report.seconds = run.seconds;
    report.warnings = Warnings(report, request);
    // The model describes the run for both files; a run writing neither opens the input no more.
    const bool described = !request.model.outPath.empty() || !out.reportPath.empty();
    const Model model = described ? ModelOf(request, task.inputName, run.report, report) : Model();
    const bool written =
        (request.model.outPath.empty() ||
         WriteModel(RunFolder::FromInputDir(Part::Model, FileNameOf(request.model.outPath)), model, error)) &&
        (out.reportPath.empty() ||
         WriteHtmlReport({request, report, model, *classes, task.inputName},
                         RunFolder::FromInputDir(Part::Report, FileNameOf(out.reportPath)), error));
    if (!written) {
        RunReport failed = Failed(error);
        AddSpaceHint(errors, place, failed);
        return failed;
    }
    report.outcome = previewOk ? RunOutcome::Ok : RunOutcome::PreviewFailed;
    report.message = previewError;
    return report;
}

} // namespace

void ClassifyInRunFolder(const ChildTask& task, RunListener& listener, ChildChannel& channel) {
    const std::string input = task.folder.Dir(RunFolder::Part::Input);
    if (chdir(input.c_str()) != 0) {
        channel.Send(Failed("cannot enter the run folder '" + task.folder.Path() + "': " + std::strerror(errno)));
        return;
    }
    if (task.request.gdalDebug) CPLSetConfigOption("CPL_DEBUG", "ON");
    GdalErrorLog::Echo echo;
    if (CPLTestBool(CPLGetConfigOption("CPL_DEBUG", "NO")))
        echo = [&listener](const std::string& line) { listener.GdalMessage(line); };
    const GdalErrorLog errors(echo);
    RunReport report = Classify(task, listener, errors);
    report.gdalFailures = errors.Failures();
    report.gdalErrors = errors.Kept();
    channel.Send(report);
}

} // namespace isodata_run
