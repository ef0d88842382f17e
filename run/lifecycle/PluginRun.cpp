// Drives the plug-in. It tells a host nothing but true or false, so what is
// known of a failure is what the host can see for itself: an exception, or
// the plug-in's error number and text.
#include "PluginRun.h"

#include <StageTexts.h>

#include <boost/any.hpp>
#include <boost/signals2/connection.hpp>

#include <chrono>
#include <exception>

namespace isodata_run {
namespace {

Progress ProgressOf(double percent, const std::string& text, int iterations) {
    const isodata::StageText stage = isodata::ParseStageText(text);
    return {percent, text, stage.iteration, stage.name, isodata::OverallPercent(stage, percent, iterations)};
}

} // namespace

stInfoClassificationISO BuildRecord(const RunRequest& request, const std::string& inputPath,
                                    const std::string& resultPath) {
    const ClassificationValues& c = request.classification;
    stInfoClassificationISO record;
    record.inputPath = QString::fromStdString(inputPath);
    record.resultPath = QString::fromStdString(resultPath);
    record.desiredClassCount = c.classes;
    record.initialClassCount = c.initialClasses;
    record.minClassPixels = c.minClassPixels;
    record.maxMergePairs = c.maxMergePairs;
    record.maxIterations = c.maxIterations;
    record.stdDevThreshold = c.stdDevThreshold;
    record.mergeDistanceThreshold = c.mergeDistance;
    record.bandIndices.assign(c.bandIndices.begin(), c.bandIndices.end());
    return record;
}

stIsodataRunOptions BuildOptions(const RunRequest& request) {
    stIsodataRunOptions options;
    const MaskSettings& m = request.mask;
    options.validityMask = m.on;
    options.nodata = m.nodata == MaskSettings::Nodata::Declared ? IsodataNodata::Declared
                     : m.nodata == MaskSettings::Nodata::Ignored ? IsodataNodata::Ignored
                                                                 : IsodataNodata::Given;
    options.nodataValues = m.nodataValues;
    options.datasetMasks = m.datasetMasks;
    options.excludeNonFinite = m.nonFinite;
    options.maskRasterPath = QString::fromStdString(m.maskRaster);
    options.applyCentres = request.model.applyCentres;
    options.classStatistics = true;
    options.classCovariance = true;
    options.plainRules = request.plainRules;
    options.threads = request.threads;
    options.memoryBytes = request.memoryBytes;
    return options;
}

std::string PluginRun::Describe() const {
    switch (outcome) {
    case PluginOutcome::Ok: return {};
    case PluginOutcome::NoAlgorithm: return "the plug-in gave no algorithm object";
    case PluginOutcome::Threw: return "classification failed: " + errorText;
    case PluginOutcome::Failed: break;
    }
    if (!SaidWhy()) return "classification failed";
    return "classification failed: " + errorText + " (plug-in error " + std::to_string(errorNumber) + ")";
}

PluginRun RunPlugin(PluginLibrary& plugin, const stInfoClassificationISO& record, const stIsodataRunOptions& options,
                    RunListener& listener) {
    PluginRun run;
    KalUtility::_ptr_t<KalAlgo::IKalAlgo> algorithm = plugin.CreateRunAlgorithm();
    if (!algorithm) {
        run.outcome = PluginOutcome::NoAlgorithm;
        return run;
    }
    const int iterations = record.maxIterations;
    const boost::signals2::scoped_connection connection(algorithm->m_sigProgress.connect(
        [&listener, iterations](double percent, const QString& text, void*) {
            listener.OnProgress(ProgressOf(percent, text.toStdString(), iterations));
            return 1;
        }));

    const auto start = std::chrono::steady_clock::now();
    try {
        boost::any params = stIsodataRun{record, options, {}};
        algorithm->SetParams(params);
        run.outcome = algorithm->Execute() ? PluginOutcome::Ok : PluginOutcome::Failed;
        if (const auto* written = boost::any_cast<stIsodataRun>(&algorithm->GetParams())) run.report = written->report;
        if (run.outcome == PluginOutcome::Failed) {
            QString text;
            algorithm->GetErrorInfo(run.errorNumber, text);
            run.errorText = text.toStdString();
        }
    } catch (const std::exception& e) {
        run.outcome = PluginOutcome::Threw;
        run.errorText = e.what();
    }
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    listener.PluginReturned();
    return run;
}

} // namespace isodata_run
