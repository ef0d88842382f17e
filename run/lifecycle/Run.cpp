// The parent's part of a run.
//
//  1. Remove stale run folders where this one goes; load the plug-in here,
//     where a relative path means what it was given to mean.
//  2. Make the run folder and place the input in it.
//  3. Classify in a child process (ChildRun.cpp) and read what it left.
//  4. Publish with the watched signals held back, so that a publication is
//     never cut in half.
#include "Run.h"

#include "ChildProcess.h"
#include "ChildRun.h"
#include "Paths.h"
#include "PluginLoader.h"
#include "Publish.h"
#include "RunFolder.h"

#include <FileNames.h>
#include <WorkingCopySize.h>

#include <gdal.h>

#include <cstring>
#include <filesystem>

namespace isodata_run {
namespace {

RunReport Ended(RunOutcome outcome, std::string message) {
    RunReport report;
    report.outcome = outcome;
    report.message = std::move(message);
    return report;
}

RunReport Interrupted(int signal, bool inChild) {
    RunReport report = Ended(RunOutcome::Interrupted, std::string("interrupted by SIG") + sigabbrev_np(signal) +
                                                          "; the run was abandoned and no file of yours was changed");
    report.signal = signal;
    report.interruptedInChild = inChild;
    return report;
}

// How the child ended, when it did not finish its work.
RunReport Abnormal(const ChildEnd& end) {
    RunReport report;
    switch (end.kind) {
    case ChildEnd::Kind::Interrupted: return Interrupted(end.signal, true);
    case ChildEnd::Kind::ForkFailed:
        report = Ended(RunOutcome::ForkFailed,
                       std::string("cannot start the classification: ") + std::strerror(end.error));
        break;
    case ChildEnd::Kind::Crashed:
        report = Ended(RunOutcome::Crashed,
                       std::string("classification failed: the plug-in crashed (") + strsignal(end.signal) + ")");
        break;
    case ChildEnd::Kind::ExitedStrangely:
        report = Ended(RunOutcome::ExitedStrangely,
                       "classification failed: the classification process ended with status " +
                           std::to_string(end.status));
        break;
    case ChildEnd::Kind::Finished: break;
    }
    report.signal = end.signal;
    report.error = end.error;
    report.status = end.status;
    return report;
}

// The result's files as the run folder holds them, bound for the output's
// folder, and the preview and the model bound for their own places.
std::vector<Move> MovesFor(const RunFolder& folder, const OutputSettings& out, bool withPreview,
                           const std::string& model) {
    // The report, when asked for, is published with the result or not at all.
    std::vector<Move> moves;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(folder.Dir(RunFolder::Part::Result), ec), end; !ec && it != end;
         it.increment(ec))
        moves.push_back({it->path().string(), FolderOf(out.path) + "/" + it->path().filename().string()});
    if (withPreview)
        moves.push_back({folder.Dir(RunFolder::Part::Preview) + "/" + FileNameOf(out.previewPath), out.previewPath});
    if (!model.empty()) moves.push_back({folder.Dir(RunFolder::Part::Model) + "/" + FileNameOf(model), model});
    if (!out.reportPath.empty())
        moves.push_back({folder.Dir(RunFolder::Part::Report) + "/" + FileNameOf(out.reportPath), out.reportPath});
    return moves;
}

// The child finished: publish what it left, if it succeeded.
RunReport Conclude(const RunFolder& folder, const ChildChannel& channel, const RunRequest& request,
                   const InterruptWatch& watch) {
    const OutputSettings& out = request.output;
    RunReport report = channel.Received();
    if (report.outcome != RunOutcome::Ok && report.outcome != RunOutcome::PreviewFailed) return report;
    const std::vector<Move> moves =
        MovesFor(folder, out, report.outcome == RunOutcome::Ok && !out.previewPath.empty(), request.model.outPath);
    const ResultFiles files = ResultFilesFor(out.path, out.format);
    // Every side file an older result may have left, the plug-in format's
    // header included: left beside a result of another format, GDAL would
    // open the new file through it.
    const std::vector<std::string> stale = ResultFilesFor(out.path, isodata::kResultFormat).All();
    Notice failure;
    const SignalsHeld held;
    if (watch.Received()) return Interrupted(watch.Received(), false);
    if (!Publish(moves, stale, out.overwrite, failure)) {
        RunReport failed = Ended(RunOutcome::PublishFailed,
                                 "cannot put the result in place: " + failure.message + "; nothing was changed");
        failed.remedies = failure.remedies;
        return failed;
    }
    for (const Move& m : moves) report.filesWritten.push_back(m.to);
    report.resultHeader = files.header;
    return report;
}

} // namespace

RunListener::~RunListener() = default;

std::string GdalVersion() { return GDALVersionInfo("--version"); }

std::string WorkingCopyRule() {
    return "the input at full size up to " + std::to_string(isodata::kFullSizeUpTo) +
           " pixels on its shorter side, half size up to " + std::to_string(isodata::kHalfSizeUpTo) +
           ", quarter size beyond";
}

RunReport Run(const RunRequest& request, RunListener& listener) {
    const std::string& place = request.runFolderPlace;
    for (const std::string& stale : RemoveStaleRunFolders(place)) listener.RemovedStaleFolder(stale);

    std::string error;
    const std::unique_ptr<PluginLibrary> plugin = PluginLibrary::Open(request.pluginPath, error);
    if (!plugin) return Ended(RunOutcome::PluginNotLoaded, error);

    const InterruptWatch watch;
    const std::unique_ptr<RunFolder> folder = RunFolder::Create(place, error);
    if (!folder) return Ended(RunOutcome::SetupFailed, error);
    const std::string inputName = folder->PlaceInput(request.input, error);
    if (inputName.empty()) return Ended(RunOutcome::SetupFailed, error);

    ChildChannel channel;
    const ChildTask task{request, *plugin, *folder, inputName};
    const ChildEnd end = RunInChild(watch, [&] { ClassifyInRunFolder(task, listener, channel); });
    if (end.kind != ChildEnd::Kind::Finished) return Abnormal(end);
    return Conclude(*folder, channel, request, watch);
}

} // namespace isodata_run
