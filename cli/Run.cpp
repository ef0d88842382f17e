// Drives the plug-in. The plug-in tells a host nothing but true or false, so
// the reason given for a failure is what the CLI can see for itself: a
// library that does not load, an exception, or a result that never appeared.
#include "Run.h"

#include "PluginLoader.h"
#include "WorkFiles.h"

#include <boost/any.hpp>
#include <boost/signals2/connection.hpp>

#include <chrono>
#include <exception>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace isodata_cli {
namespace {

bool Exists(const std::string& path) {
    std::error_code ec;
    return fs::exists(fs::symlink_status(path, ec));
}

// The files of the result that the run itself brought into being.
std::vector<std::string> Created(const std::vector<std::string>& files, const std::vector<bool>& existedBefore) {
    std::vector<std::string> created;
    for (size_t i = 0; i < files.size(); ++i)
        if (!existedBefore[i] && Exists(files[i])) created.push_back(files[i]);
    return created;
}

RunOutcome Failure(std::string message) {
    RunOutcome outcome;
    outcome.message = std::move(message);
    return outcome;
}

} // namespace

stInfoClassificationISO BuildRecord(const Options& o, const CheckedRequest& request) {
    stInfoClassificationISO record;
    record.inputPath = QString::fromStdString(request.pluginInputPath);
    record.resultPath = QString::fromStdString(o.output);
    record.desiredClassCount = o.classes;
    record.initialClassCount = o.initialClasses;
    record.minClassPixels = o.minClassPixels;
    record.maxMergePairs = o.maxMergePairs;
    record.maxIterations = o.maxIterations;
    record.stdDevThreshold = o.stdDevThreshold;
    record.mergeDistanceThreshold = o.mergeDistance;
    record.bandIndices.assign(request.bandIndices.begin(), request.bandIndices.end());
    return record;
}

RunOutcome RunClassification(const std::string& pluginPath, const stInfoClassificationISO& record,
                             ProgressPrinter& progress) {
    std::string error;
    // Declared before the algorithm so that the library outlives the object
    // whose code it holds.
    const std::unique_ptr<PluginLibrary> library = PluginLibrary::Open(pluginPath, error);
    if (!library) return Failure(error);
    KalUtility::_ptr_t<KalAlgo::IKalAlgo> algorithm = library->CreateAlgorithm();
    if (!algorithm) return Failure("the plug-in '" + pluginPath + "' gave no algorithm object");

    const std::string output = record.resultPath.toStdString();
    const std::vector<std::string> files = ResultFilesFor(output).All();
    std::vector<bool> existedBefore;
    for (const std::string& f : files) existedBefore.push_back(Exists(f));

    const boost::signals2::scoped_connection connection(algorithm->m_sigProgress.connect(
        [&progress](double percent, const QString& text, void*) {
            progress.Report(percent, text.toStdString());
            return 1;
        }));

    RunOutcome outcome;
    const auto start = std::chrono::steady_clock::now();
    try {
        boost::any params = record;
        algorithm->SetParams(params);
        outcome.ok = algorithm->Execute();
        if (!outcome.ok) {
            int number = 0;
            QString text;
            algorithm->GetErrorInfo(number, text);
            outcome.message = "classification failed";
            if (number != 0 || !text.isEmpty())
                outcome.message += ": " + text.toStdString() + " (plug-in error " + std::to_string(number) + ")";
        } else if (!Exists(output)) {
            outcome.ok = false;
            outcome.message = "classification failed: the plug-in reported success but wrote no '" + output + "'";
        }
    } catch (const std::exception& e) {
        outcome.ok = false;
        outcome.message = std::string("classification failed: ") + e.what();
    }
    outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    progress.Finish();

    if (!outcome.ok) {
        for (const std::string& f : Created(files, existedBefore)) {
            std::error_code ec;
            if (fs::remove(f, ec)) outcome.removed.push_back(f);
        }
    }
    return outcome;
}

bool RemoveResult(const std::string& outputPath, std::string& error) {
    for (const std::string& f : ResultFilesFor(outputPath).All()) {
        std::error_code ec;
        fs::remove(f, ec);
        if (ec) {
            error = "cannot remove the existing '" + f + "': " + ec.message();
            return false;
        }
    }
    return true;
}

} // namespace isodata_cli
