// The child's part of a run, in the run folder's input/ (the plug-in writes
// its working copy and scratch files beside its input, so they land there).
//
//  1. Run the plug-in with GDAL's errors collected rather than printed.
//  2. The run failed if Execute said so, if GDAL raised an error of class
//     Failure or worse (a read or write the plug-in does not check), or if
//     no result appeared.
//  3. Open the result once: count its classes for the summary and draw the
//     preview from the same dataset.
#include "Classify.h"

#include "Convert.h"
#include "GdalErrorLog.h"
#include "Paths.h"
#include "Preview.h"
#include "Run.h"
#include "Summary.h"

#include <cpl_conv.h>
#include <gdal_priv.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace isodata_cli {
namespace {

// Paths from the child's working folder, <run>/input.
std::string FromInput(const std::string& relative) { return "../" + relative; }

constexpr size_t kMessageBytes = 16 << 10;
constexpr size_t kSummaryBytes = 112 << 10;  // 255 classes of 80-character rows fit many times

void Store(char* slot, size_t size, const std::string& text) {
    const size_t n = std::min(text.size(), size - 1);
    std::memcpy(slot, text.data(), n);
    slot[n] = '\0';
}

} // namespace

struct ChildReport::Texts {
    char message[kMessageBytes];
    char summary[kSummaryBytes];
};

ChildReport::ChildReport() {
    void* shared = mmap(nullptr, sizeof(Texts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) throw std::bad_alloc();
    texts_ = new (shared) Texts{};
}

ChildReport::~ChildReport() { munmap(texts_, sizeof(Texts)); }

void ChildReport::SetMessage(const std::string& text) { Store(texts_->message, kMessageBytes, text); }
void ChildReport::SetSummary(const std::string& text) { Store(texts_->summary, kSummaryBytes, text); }
std::string ChildReport::Message() const { return texts_->message; }
std::string ChildReport::Summary() const { return texts_->summary; }

namespace {

std::string SpaceHint(const std::string& place) {
    return " (no space is left in '" + place +
           "': a run needs room there for a working copy up to the size of the input; free some, or choose "
           "another place with --tmpdir)";
}

std::string Summarise(GDALDataset& result, const RunPlan& plan, double seconds, bool withPreview, std::string& error) {
    ResultSummary summary;
    if (!SummariseResult(result, summary, error)) return {};
    const Options& o = plan.options;
    SummaryContext context;
    context.options = &o;
    for (int band : plan.bandIndices) context.bands.push_back(band + 1);
    context.format = plan.format;
    context.header = ResultFilesFor(o.output, plan.format == "ENVI").header;
    context.preview = withPreview ? o.previewPath : std::string();
    context.seconds = seconds;
    return o.json ? FormatJson(summary, context) : FormatSummary(summary, context);
}

} // namespace

ExitCode ClassifyInRunFolder(const RunPlan& plan, std::ostream& progressStream, ChildReport& report) {
    const Options& o = plan.options;
    const auto Fail = [&report](const std::string& message) {
        report.SetMessage(message);
        return ExitCode::ClassificationFailed;
    };
    if (chdir((plan.runFolder + "/input").c_str()) != 0)
        return Fail("cannot enter the run folder '" + plan.runFolder + "': " + std::strerror(errno));
    const std::string result = FromInput("result/" + FileNameOf(o.output));
    const bool convert = NeedsConversion(plan.format, o.creationOptions);
    const std::string pluginResult = convert ? FromInput("envi/" + FileNameOf(o.output)) : result;
    if (o.debug) CPLSetConfigOption("CPL_DEBUG", "ON");
    const bool echo = CPLTestBool(CPLGetConfigOption("CPL_DEBUG", "NO"));
    GdalErrorLog errors(echo);

    ProgressPrinter progress(progressStream, plan.style, o.maxIterations);
    const RunOutcome run =
        RunPlugin(*plan.plugin, BuildRecord(o, plan.inputName, pluginResult, plan.bandIndices), progress);
    // A plug-in's "false" says nothing more; GDAL's errors often say why.
    const std::string space = errors.SawFullDisk() ? SpaceHint(FolderOf(plan.runFolder)) : std::string();
    if (!run.ok && errors.Failures() > 0 && run.message == "classification failed")
        return Fail(run.message + ": " + errors.Describe(plan.inputName) + space);
    if (!run.ok) return Fail(run.message + space);
    if (errors.Failures() > 0) return Fail("classification failed: " + errors.Describe(plan.inputName) + space);
    if (!Exists(pluginResult))
        return Fail("classification failed: the plug-in reported success but wrote no '" + o.output + "'");
    std::string error;
    if (convert && !ConvertResult(pluginResult, result, plan.format, o.creationOptions, error))
        return Fail(error + (errors.SawFullDisk() ? SpaceHint(FolderOf(plan.runFolder)) : std::string()));

    GDALDatasetUniquePtr classes(GDALDataset::Open(result.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    if (!classes) return Fail("classification failed: the result cannot be read back: " + errors.Describe(plan.inputName));
    std::string previewError;
    const bool previewOk = o.previewPath.empty() ||
                           WritePreview(*classes, FromInput("preview/" + FileNameOf(o.previewPath)), o.previewPath,
                                        previewError);
    const std::string summary = Summarise(*classes, plan, run.seconds, previewOk && !o.previewPath.empty(), error);
    if (summary.empty()) return Fail("classification failed: " + error);
    report.SetSummary(summary);
    if (previewOk) return ExitCode::Ok;
    report.SetMessage(previewError);
    return ExitCode::PreviewFailed;
}

} // namespace isodata_cli
