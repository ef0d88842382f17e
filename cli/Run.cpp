// Drives the plug-in. It tells a host nothing but true or false, so the
// reason given for a failure is what the command can see for itself: a
// library that does not load, an exception, or the plug-in's error number.
#include "Run.h"

#include <boost/any.hpp>
#include <boost/signals2/connection.hpp>

#include <chrono>
#include <exception>

namespace isodata_cli {

stInfoClassificationISO BuildRecord(const Options& o, const std::string& inputPath, const std::string& resultPath,
                                    const std::vector<int>& bandIndices) {
    stInfoClassificationISO record;
    record.inputPath = QString::fromStdString(inputPath);
    record.resultPath = QString::fromStdString(resultPath);
    record.desiredClassCount = o.classes;
    record.initialClassCount = o.initialClasses;
    record.minClassPixels = o.minClassPixels;
    record.maxMergePairs = o.maxMergePairs;
    record.maxIterations = o.maxIterations;
    record.stdDevThreshold = o.stdDevThreshold;
    record.mergeDistanceThreshold = o.mergeDistance;
    record.bandIndices.assign(bandIndices.begin(), bandIndices.end());
    return record;
}

RunOutcome RunPlugin(PluginLibrary& plugin, const stInfoClassificationISO& record, ProgressPrinter& progress) {
    RunOutcome outcome;
    KalUtility::_ptr_t<KalAlgo::IKalAlgo> algorithm = plugin.CreateAlgorithm();
    if (!algorithm) {
        outcome.message = "the plug-in gave no algorithm object";
        return outcome;
    }
    const boost::signals2::scoped_connection connection(algorithm->m_sigProgress.connect(
        [&progress](double percent, const QString& text, void*) {
            progress.Report(percent, text.toStdString());
            return 1;
        }));

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
        }
    } catch (const std::exception& e) {
        outcome.ok = false;
        outcome.message = std::string("classification failed: ") + e.what();
    }
    outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    progress.Finish();
    return outcome;
}

} // namespace isodata_cli
