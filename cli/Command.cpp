// The order of a run: every check first, so that a refused request leaves the
// disk as it was; then the classification; then what is derived from its
// result. Each failure is one "isodata: ..." line on err.
#include "Command.h"

#include "PluginLoader.h"
#include "Preview.h"
#include "ProgressPrinter.h"
#include "Run.h"
#include "Summary.h"
#include "Validate.h"
#include "WorkFiles.h"

#include <filesystem>
#include <system_error>

namespace isodata_cli {
namespace {

ExitCode Complain(std::ostream& err, const std::string& message, ExitCode code) {
    err << "isodata: " << message << "\n" << std::flush;
    return code;
}

bool ClearPreviousOutputs(const Options& o, std::string& error) {
    if (!RemoveResult(o.output, error)) return false;
    if (o.previewPath.empty()) return true;
    std::error_code ec;
    std::filesystem::remove(o.previewPath, ec);
    if (ec) error = "cannot remove the existing '" + o.previewPath + "': " + ec.message();
    return !ec;
}

} // namespace

ExitCode RunCommand(const Options& o, std::ostream& out, std::ostream& err, bool outIsTerminal) {
    const Validation validation = ValidateRequest(o);
    if (!validation.ok) return Complain(err, validation.message, ExitCode::BadRequest);

    std::string error;
    if (o.overwrite && !ClearPreviousOutputs(o, error)) return Complain(err, error, ExitCode::BadRequest);

    const ProgressStyle style =
        o.quiet ? ProgressStyle::Silent : (outIsTerminal ? ProgressStyle::Terminal : ProgressStyle::Lines);
    ProgressPrinter progress(out, style);
    const std::string pluginPath = o.pluginPath.empty() ? DefaultPluginPath() : o.pluginPath;
    const RunOutcome outcome = RunClassification(pluginPath, BuildRecord(o, validation.request), progress);
    if (!outcome.ok) {
        Complain(err, outcome.message, ExitCode::ClassificationFailed);
        for (const std::string& f : outcome.removed) err << "isodata: removed the partial result '" << f << "'\n";
        return ExitCode::ClassificationFailed;
    }

    std::string previewError;
    const bool previewOk = o.previewPath.empty() || WritePreview(o.output, o.previewPath, previewError);

    if (!o.quiet) {
        ResultSummary summary;
        if (!SummariseResult(o.output, summary, error))
            return Complain(err, "classification failed: " + error, ExitCode::ClassificationFailed);
        SummaryContext context;
        context.output = o.output;
        context.header = ResultFilesFor(o.output).header;
        context.preview = previewOk ? o.previewPath : std::string();
        context.requestedClasses = o.classes;
        context.seconds = outcome.seconds;
        out << FormatSummary(summary, context) << std::flush;
    }
    if (!previewOk) return Complain(err, previewError, ExitCode::PreviewFailed);
    return ExitCode::Ok;
}

} // namespace isodata_cli
