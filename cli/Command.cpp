// The command's side of a run: what the words alone show, then the
// run library's checks, the run with progress drawn as the person asked,
// and the report in words (or JSON) and an exit status. Each failure is one
// "isodata: ..." line on err, naming the options as the command spells them.
#include "Command.h"

#include "OptionTable.h"
#include "ProgressPrinter.h"
#include "Summary.h"

#include <Prepare.h>
#include <Run.h>

#include <QJsonDocument>
#include <QJsonObject>

namespace isodata_cli {
namespace {

using isodata_run::RunOutcome;
using isodata_run::RunReport;

// A failure as one line on err, and for a script that asked for JSON as
// {"error": ..., "exit": ...} on out.
int Complain(const Options& o, std::ostream& out, std::ostream& err, const std::string& message, int code) {
    err << "isodata: " << message << "\n" << std::flush;
    if (o.json)
        out << QJsonDocument(QJsonObject{{"error", QString::fromStdString(message)}, {"exit", code}})
                   .toJson(QJsonDocument::Indented)
                   .toStdString()
            << std::flush;
    return code;
}

int Complain(const Options& o, std::ostream& out, std::ostream& err, const std::string& message, ExitCode code) {
    return Complain(o, out, err, message, static_cast<int>(code));
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
    void OnProgress(const isodata_run::Progress& progress) override { progress_.Report(progress); }
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

// The options as the run will take them: every band listed, the format as
// GDAL spells it.
Options AsChecked(Options o, const isodata_run::RunRequest& request) {
    o.bands.clear();
    for (int index : request.classification.bandIndices) o.bands.push_back(index + 1);
    o.format = request.output.format;
    return o;
}

} // namespace

int RunCommand(const Options& options, std::ostream& out, std::ostream& err, bool progressIsTerminal) {
    if (std::string problem = CheckWords(options); !problem.empty())
        return Complain(options, out, err, problem, ExitCode::BadRequest);
    isodata_run::RunAsk ask = options;
    ask.describeParameters = [&options](const isodata_run::RunRequest& request) {
        return QJsonDocument(ParametersJson(AsChecked(options, request))).toJson(QJsonDocument::Compact).toStdString();
    };
    const isodata_run::Prepared prepared = isodata_run::Prepare(ask);
    if (options.gdalDebug && !prepared.space.folder.empty())
        err << "isodata: " << isodata_run::SpaceDetails(prepared.space) << "\n";
    if (prepared.refusal)
        return Complain(options, out, err, RefusalText(*prepared.refusal), ExitCode::BadRequest);
    const Options o = AsChecked(options, prepared.request);

    const ProgressStyle style = StyleFor(o, progressIsTerminal);
    // With -json stdout carries nothing but the JSON.
    std::ostream& progressStream = style == ProgressStyle::Machine || o.json ? err : out;
    ProgressPrinter progress(progressStream, style);
    Listener listener(progress, err);
    const RunReport report = isodata_run::Run(prepared.request, listener);

    const int code = ExitCodeOf(report);
    if (report.outcome == RunOutcome::Interrupted && report.interruptedInChild && style == ProgressStyle::Terminal)
        progressStream << "\n" << std::flush;
    const bool published = report.outcome == RunOutcome::Ok || report.outcome == RunOutcome::PreviewFailed;
    if (published && (!o.quiet || o.json))
        out << (o.json ? FormatJson(report, o, prepared.space) : FormatSummary(report, o)) << std::flush;
    if (published && o.gdalDebug) err << IterationLines(report) << std::flush;
    if (published) {
        for (const isodata_run::Notice& warning : report.warnings)
            err << "isodata: warning: " << WithRemedies(warning.message, warning.remedies) << "\n";
        err << std::flush;
    }
    if (report.outcome == RunOutcome::PreviewFailed)
        err << "isodata: " << WithRemedies(report.message, report.remedies) << "\n" << std::flush;
    else if (!published)
        return Complain(o, out, err, WithRemedies(report.message, report.remedies), code);
    return code;
}

} // namespace isodata_cli
