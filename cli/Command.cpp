// The command's side of a run: every check first, then the run library with
// progress drawn as the person asked, then the report in words (or JSON)
// and an exit status. Each failure is one "isodata: ..." line on err.
#include "Command.h"

#include "ProgressPrinter.h"
#include "Summary.h"
#include "Validate.h"

#include <Run.h>

namespace isodata_cli {
namespace {

using isodata_run::RunOutcome;
using isodata_run::RunReport;

int Complain(std::ostream& err, const std::string& message, ExitCode code) {
    err << "isodata: " << message << "\n" << std::flush;
    return static_cast<int>(code);
}

ProgressStyle StyleFor(const Options& o, bool progressIsTerminal) {
    if (o.quiet) return ProgressStyle::Silent;
    switch (o.progress) {
    case ProgressFormat::Bar: return ProgressStyle::Terminal;
    case ProgressFormat::Lines: return ProgressStyle::Lines;
    case ProgressFormat::Machine: return ProgressStyle::Machine;
    case ProgressFormat::Auto: break;
    }
    return progressIsTerminal ? ProgressStyle::Terminal : ProgressStyle::Lines;
}

// What the run tells while it goes on, shown to the person.
class Listener : public isodata_run::RunListener {
public:
    Listener(ProgressPrinter& progress, std::ostream& err) : progress_(progress), err_(err) {}

    void RemovedStaleFolder(const std::string& path) override {
        err_ << "isodata: removed the run folder '" << path << "' left by an interrupted run\n";
    }
    void Progress(double percent, const std::string& stage) override { progress_.Report(percent, stage); }
    void PluginReturned() override { progress_.Finish(); }
    void GdalMessage(const std::string& line) override { err_ << line << "\n" << std::flush; }

private:
    ProgressPrinter& progress_;
    std::ostream& err_;
};

int ExitCodeOf(const RunReport& report) {
    switch (report.outcome) {
    case RunOutcome::Ok: return static_cast<int>(ExitCode::Ok);
    case RunOutcome::PreviewFailed: return static_cast<int>(ExitCode::PreviewFailed);
    case RunOutcome::NothingValid: return static_cast<int>(ExitCode::BadRequest);
    case RunOutcome::Interrupted: return 128 + report.signal;
    default: return static_cast<int>(ExitCode::ClassificationFailed);
    }
}

} // namespace

int RunCommand(const Options& options, std::ostream& out, std::ostream& err, bool progressIsTerminal) {
    const Validation v = ValidateRequest(options);
    if (v.checked.debug && !v.space.folder.empty()) err << "isodata: " << isodata_run::SpaceDetails(v.space) << "\n";
    if (!v.problem.empty()) return Complain(err, v.problem, ExitCode::BadRequest);
    const Options& o = v.checked;

    const ProgressStyle style = StyleFor(o, progressIsTerminal);
    // With -json stdout carries nothing but the JSON.
    std::ostream& progressStream = style == ProgressStyle::Machine || o.json ? err : out;
    ProgressPrinter progress(progressStream, style, o.maxIterations);
    Listener listener(progress, err);
    const RunReport report = isodata_run::Run(v.request, listener);

    const int code = ExitCodeOf(report);
    if (report.outcome == RunOutcome::Interrupted && report.interruptedInChild && style == ProgressStyle::Terminal)
        progressStream << "\n" << std::flush;
    const bool published = report.outcome == RunOutcome::Ok || report.outcome == RunOutcome::PreviewFailed;
    if (published && (!o.quiet || o.json))
        out << (o.json ? FormatJson(report, o, v.space) : FormatSummary(report, o)) << std::flush;
    if (published) {
        for (const std::string& warning : Warnings(report)) err << "isodata: warning: " << warning << "\n";
        err << std::flush;
    }
    if (report.outcome != RunOutcome::Ok) err << "isodata: " << report.message << "\n" << std::flush;
    return code;
}

} // namespace isodata_cli
