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
//  5. Open the result once: count its classes and draw the preview from the
//     same dataset; write the model.
#include "ChildRun.h"

#include "Convert.h"
#include "Figures.h"
#include "GdalErrorLog.h"
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
namespace {

constexpr size_t kMessageBytes = 16 << 10;
constexpr size_t kFigureBytes = 4 << 20;  // 255 classes of dozens of bands, as JSON
constexpr size_t kGdalErrorBytes = 16 << 10;
// Category names are the plug-in's "class<n>"; a longer one is cut here.
constexpr size_t kNameBytes = 256;
constexpr size_t kMaxClasses = 255;

void Store(char* slot, size_t size, const std::string& text) {
    const size_t n = std::min(text.size(), size - 1);
    std::memcpy(slot, text.data(), n);
    slot[n] = '\0';
}

struct SharedClass {
    int value, red, green, blue;
    bool hasColour;
    std::int64_t pixels;
    char name[kNameBytes];
};

} // namespace

struct ChildChannel::Shared {
    RunOutcome outcome;
    char message[kMessageBytes];
    double seconds;
    int width, height, classCount;
    std::int64_t unclassified;
    SharedClass classes[kMaxClasses];
    int gdalFailures, gdalKept;
    char gdalErrors[kGdalErrorBytes];  // the kept messages, each ending in a NUL
    char figures[kFigureBytes];        // RunFigures as FiguresJson writes them
};

ChildChannel::ChildChannel() {
    void* shared = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) throw std::bad_alloc();
    shared_ = new (shared) Shared{};
    shared_->outcome = RunOutcome::ClassificationFailed;
}

ChildChannel::~ChildChannel() { munmap(shared_, sizeof(Shared)); }

void ChildChannel::SetOutcome(RunOutcome outcome, const std::string& message) {
    shared_->outcome = outcome;
    Store(shared_->message, kMessageBytes, message);
}

void ChildChannel::SetSummary(const ResultSummary& summary, double seconds) {
    shared_->seconds = seconds;
    shared_->width = summary.width;
    shared_->height = summary.height;
    shared_->unclassified = summary.unclassified;
    shared_->classCount = static_cast<int>(std::min(summary.classes.size(), kMaxClasses));
    for (int i = 0; i < shared_->classCount; ++i) {
        const ClassCount& c = summary.classes[i];
        SharedClass& s = shared_->classes[i];
        s = {c.value, c.red, c.green, c.blue, c.hasColour, c.pixels, {}};
        Store(s.name, kNameBytes, c.name);
    }
}

void ChildChannel::SetGdalErrors(int failures, const std::vector<std::string>& first) {
    shared_->gdalFailures = failures;
    shared_->gdalKept = 0;
    size_t used = 0;
    for (const std::string& message : first) {
        if (used + message.size() + 1 > kGdalErrorBytes) break;
        Store(shared_->gdalErrors + used, message.size() + 1, message);
        used += message.size() + 1;
        ++shared_->gdalKept;
    }
}

void ChildChannel::SetFigures(const RunFigures& figures) {
    Store(shared_->figures, kFigureBytes, FiguresJson(figures));
}

void ChildChannel::CopyTo(RunReport& report) const {
    report.figures = FiguresFromJson(shared_->figures);
    report.outcome = shared_->outcome;
    report.message = shared_->message;
    report.seconds = shared_->seconds;
    report.summary = {shared_->width, shared_->height, shared_->unclassified, {}};
    for (int i = 0; i < shared_->classCount; ++i) {
        const SharedClass& s = shared_->classes[i];
        report.summary.classes.push_back({s.value, s.name, s.pixels, s.hasColour, s.red, s.green, s.blue});
    }
    report.gdalFailures = shared_->gdalFailures;
    const char* message = shared_->gdalErrors;
    for (int i = 0; i < shared_->gdalKept; ++i, message += std::strlen(message) + 1)
        report.gdalErrors.emplace_back(message);
}

namespace {

std::string SpaceHint(const std::string& place) {
    return " (no space is left in '" + place +
           "': a run needs room there for a working copy up to the size of the input; free some, or choose "
           "another place with --tmpdir)";
}

// A plug-in's "false" says nothing more; GDAL's errors often say why.
std::string FailureOf(const PluginRun& run, const GdalErrorLog& errors, const std::string& inputName) {
    if (run.outcome == PluginOutcome::Ok)
        return errors.Failures() ? "classification failed: " + errors.Describe(inputName) : "";
    if (!run.SaidWhy() && errors.Failures() > 0) return run.Describe() + ": " + errors.Describe(inputName);
    return run.Describe();
}

void Classify(const ChildTask& task, RunListener& listener, const GdalErrorLog& errors, ChildChannel& channel) {
    const auto Fail = [&channel](const std::string& message) {
        channel.SetOutcome(RunOutcome::ClassificationFailed, message);
    };
    const RunRequest& request = task.request;
    using Part = RunFolder::Part;
    const OutputSettings& out = task.request.output;
    const std::string result = RunFolder::FromInputDir(Part::Result, FileNameOf(out.path));
    const bool convert = NeedsConversion(out.format, out.creationOptions);
    const std::string pluginResult =
        convert ? RunFolder::FromInputDir(Part::PluginResult, FileNameOf(out.path)) : result;
    const std::string place = FolderOf(task.folder.Path());

    const PluginRun run = RunPlugin(task.plugin, BuildRecord(request, task.inputName, pluginResult),
                                    BuildOptions(request), listener);
    if (run.report.resultCode == kNoValidPixel)
        return channel.SetOutcome(RunOutcome::NothingValid, NothingValidMessage(request));
    const std::string space = errors.SawFullDisk() ? SpaceHint(place) : std::string();
    if (std::string failure = FailureOf(run, errors, task.inputName); !failure.empty()) return Fail(failure + space);
    if (!Exists(pluginResult))
        return Fail("classification failed: the plug-in reported success but wrote no '" + out.path + "'");
    std::string error;
    if (!CarryGcps(task.inputName, pluginResult, error) ||
        (convert && !ConvertResult(pluginResult, result, out.format, out.creationOptions, error)) ||
        (EQUAL(out.format.c_str(), "ENVI") && !NameEnviHeader(result, FileNameOf(out.path), error)))
        return Fail(error + (errors.SawFullDisk() ? SpaceHint(place) : std::string()));

    GDALDatasetUniquePtr classes(GDALDataset::Open(result.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    if (!classes)
        return Fail("classification failed: the result cannot be read back: " + errors.Describe(task.inputName));
    std::string previewError;
    const bool previewOk =
        out.previewPath.empty() ||
        WritePreview(*classes, RunFolder::FromInputDir(Part::Preview, FileNameOf(out.previewPath)), out.previewPath,
                     previewError);
    ResultSummary summary;
    if (!CountClasses(*classes, summary, error)) return Fail("classification failed: " + error);
    const RunFigures figures = FiguresOf(run.report, request, task.inputName);
    if (std::string empty = EmptyResult(summary, figures); !empty.empty()) return Fail(empty);
    if (!request.model.outPath.empty() &&
        !WriteModel(RunFolder::FromInputDir(Part::Model, FileNameOf(request.model.outPath)),
                    ModelOf(request, task.inputName, run.report, summary, figures), error))
        return Fail(error + (errors.SawFullDisk() ? SpaceHint(place) : std::string()));
    channel.SetSummary(summary, run.seconds);
    channel.SetFigures(figures);
    channel.SetOutcome(previewOk ? RunOutcome::Ok : RunOutcome::PreviewFailed, previewError);
}

} // namespace

void ClassifyInRunFolder(const ChildTask& task, RunListener& listener, ChildChannel& channel) {
    const std::string input = task.folder.Dir(RunFolder::Part::Input);
    if (chdir(input.c_str()) != 0) {
        channel.SetOutcome(RunOutcome::ClassificationFailed,
                           "cannot enter the run folder '" + task.folder.Path() + "': " + std::strerror(errno));
        return;
    }
    if (task.request.gdalDebug) CPLSetConfigOption("CPL_DEBUG", "ON");
    GdalErrorLog::Echo echo;
    if (CPLTestBool(CPLGetConfigOption("CPL_DEBUG", "NO")))
        echo = [&listener](const std::string& line) { listener.GdalMessage(line); };
    const GdalErrorLog errors(echo);
    Classify(task, listener, errors, channel);
    channel.SetGdalErrors(errors.Failures(), errors.Kept());
}

} // namespace isodata_run
