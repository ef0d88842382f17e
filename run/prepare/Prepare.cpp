// From a host's ask to a run's request, built once: every check fills its
// own part of the request, in the order a person would fix things, and the
// first refusal ends them.
//
//  1. The output's format, then the input opened with its open options.
//  2. The model to apply and the bands; the nodata and mask rule.
//  3. The files the run will write, and the run folder's place.
//  4. Threads, memory and the plug-in; the classification values as asked.
//  5. The room where the run folder goes.
#include "Checks.h"

#include "PluginLoader.h"

#include <GdalSession.h>

#include <mutex>

namespace isodata_run {

void StartGdal() {
    static std::once_flag started;
    std::call_once(started, [] {
        isodata::BoundGdalBlockCache();
        isodata::RegisterGdalDrivers();
    });
}

namespace {

ClassificationValues ValuesOf(const RunAsk& ask, std::vector<int> bandIndices) {
    return {ask.classes,       ask.initialClasses,  ask.minClassPixels, ask.maxMergePairs,
            ask.maxIterations, ask.stdDevThreshold, ask.mergeDistance,  std::move(bandIndices)};
}

Check CheckAll(const RunAsk& ask, RunRequest& request) {
    InputFacts facts;
    if (Check problem = CheckFormat(ask, request.output)) return problem;
    if (Check problem = CheckInput(ask, request.input, facts)) return problem;
    if (Check problem = CheckModelAndBands(ask, facts, request)) return problem;
    if (Check problem = CheckMask(ask, request)) return problem;
    if (Check problem = CheckOutputs(ask, request)) return problem;
    if (Check problem = CheckResources(ask, request)) return problem;
    request.classification = ValuesOf(ask, request.classification.bandIndices);
    if (ask.describeParameters) request.model.parametersJson = ask.describeParameters(request);
    request.pluginPath = ask.pluginPath.empty() ? DefaultPluginPath() : ask.pluginPath;
    request.gdalDebug = ask.gdalDebug;
    return {};
}

} // namespace

Prepared Prepare(const RunAsk& ask) {
    StartGdal();
    Prepared prepared;
    prepared.refusal = CheckAll(ask, prepared.request);
    if (prepared.refusal) return prepared;
    prepared.space = EstimateSpace(prepared.request);
    if (!prepared.space.Enough()) prepared.refusal = SpaceRefusal(prepared.space, !ask.tmpDir.empty());
    return prepared;
}

} // namespace isodata_run
