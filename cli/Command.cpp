// The life of a run: every check first; then a private run folder, the
// classification in a child process inside it, and the publication of the
// result only when everything succeeded. A refused, failed or interrupted
// run leaves every file of the person's as it was. Each failure is one
// "isodata: ..." line on err.
#include "Command.h"

#include "Classify.h"
#include "Paths.h"
#include "PluginLoader.h"
#include "Publish.h"
#include "RunFolder.h"
#include "Supervisor.h"
#include "Validate.h"

#include <cstring>
#include <filesystem>

namespace isodata_cli {
namespace {

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

// The result's files as the run folder holds them, bound for the output's
// folder, and the preview bound for its own place.
std::vector<Move> MovesFor(const RunFolder& folder, const Options& o, bool withPreview) {
    std::vector<Move> moves;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(folder.ResultDir(), ec), end; !ec && it != end; it.increment(ec))
        moves.push_back({it->path().string(), FolderOf(o.output) + "/" + it->path().filename().string()});
    if (withPreview) moves.push_back({folder.PreviewDir() + "/" + FileNameOf(o.previewPath), o.previewPath});
    return moves;
}

int Interrupted(int signal, std::ostream& out, bool lineOpen, std::ostream& err) {
    if (lineOpen) out << "\n" << std::flush;
    err << "isodata: interrupted by SIG" << sigabbrev_np(signal) << "; the run was abandoned and no file of yours was "
        << "changed\n" << std::flush;
    return 128 + signal;
}

// What the child left behind, turned into the person's view of the run.
int Conclude(const RunFolder& folder, const ChildReport& report, const RunPlan& plan, const ChildEnd& end,
             std::ostream& out, std::ostream& err, const InterruptWatch& watch) {
    const Options& o = plan.options;
    const std::string message = report.Message();
    if (end.kind == ChildEnd::Kind::Crashed)
        return Complain(err,
                        end.signal ? std::string("classification failed: the plug-in crashed (") +
                                         strsignal(end.signal) + ")"
                                   : std::string("cannot start the classification: ") + std::strerror(errno),
                        ExitCode::ClassificationFailed);
    if (end.code == static_cast<int>(ExitCode::ClassificationFailed))
        return Complain(err, message.empty() ? "classification failed" : message, ExitCode::ClassificationFailed);
    // Anything else comes from outside the command's own code, such as a
    // sanitizer that caught a fault in the plug-in.
    if (end.code != static_cast<int>(ExitCode::Ok) && end.code != static_cast<int>(ExitCode::PreviewFailed))
        return Complain(err, "classification failed: the classification process ended with status " +
                                 std::to_string(end.code), ExitCode::ClassificationFailed);

    const bool previewOk = end.code == static_cast<int>(ExitCode::Ok);
    std::string error;
    {
        const SignalsHeld held;
        if (watch.Received()) return Interrupted(watch.Received(), out, false, err);
        if (!Publish(MovesFor(folder, o, previewOk && !o.previewPath.empty()),
                     ResultFilesFor(o.output, plan.format == "ENVI").All(),
                     o.overwrite, error))
            return Complain(err, "cannot put the result in place: " + error + "; nothing was changed",
                            ExitCode::ClassificationFailed);
    }
    if (!o.quiet || o.json) out << report.Summary() << std::flush;
    if (!previewOk) return Complain(err, message, ExitCode::PreviewFailed);
    return static_cast<int>(ExitCode::Ok);
}

} // namespace

int RunCommand(const Options& o, std::ostream& out, std::ostream& err, bool progressIsTerminal) {
    const Validation validation = ValidateRequest(o);
    if (!validation.ok) return Complain(err, validation.message, ExitCode::BadRequest);

    const std::string place = o.tmpDir.empty() ? FolderOf(o.output) : o.tmpDir;
    for (const std::string& stale : RemoveStaleRunFolders(place))
        err << "isodata: removed the run folder '" << stale << "' left by an interrupted run\n";

    // Loaded here, where a relative --plugin path means what it was typed
    // to mean; the child runs in the run folder with the library mapped.
    std::string error;
    const std::unique_ptr<PluginLibrary> plugin =
        PluginLibrary::Open(o.pluginPath.empty() ? DefaultPluginPath() : o.pluginPath, error);
    if (!plugin) return Complain(err, error, ExitCode::ClassificationFailed);

    const InterruptWatch watch;
    const std::unique_ptr<RunFolder> folder = RunFolder::Create(place, error);
    if (!folder) return Complain(err, error, ExitCode::ClassificationFailed);
    RunPlan plan;
    plan.options = o;
    plan.plugin = plugin.get();
    plan.runFolder = folder->Path();
    plan.bandIndices = validation.request.bandIndices;
    plan.format = validation.request.format;
    plan.style = StyleFor(o, progressIsTerminal);
    plan.inputName = folder->PlaceInput(o.input, validation.request.inputFiles, error);
    if (plan.inputName.empty()) return Complain(err, error, ExitCode::ClassificationFailed);

    // With -json stdout carries nothing but the JSON.
    std::ostream& progressStream = plan.style == ProgressStyle::Machine || o.json ? err : out;
    ChildReport report;
    const ChildEnd end =
        RunInChild(watch, [&] { return static_cast<int>(ClassifyInRunFolder(plan, progressStream, report)); });
    if (end.kind == ChildEnd::Kind::Interrupted)
        return Interrupted(end.signal, progressStream, plan.style == ProgressStyle::Terminal, err);
    return Conclude(*folder, report, plan, end, out, err, watch);
}

} // namespace isodata_cli
