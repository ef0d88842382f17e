// The library's exported entry points. None lets an exception out: the host
// calls them by their plain names and cannot catch one.
#include "ISODataClassification.h"

#include <KalDataSource.h>

#include "BandList.h"

#include <boost/any.hpp>

#if defined(_WIN32)
#include <windows.h>

BOOL APIENTRY DllMain(HMODULE module, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(module);
    return TRUE;
}
#endif

// Null when the object cannot be made, memory running out included.
extern "C" KalAlgo::IKalAlgo* GetAlgoObj() try {
    return new isodata::ISODataClassification();
} catch (...) {
    return nullptr;
}

extern "C" KalAlgo::IKalAlgo* GetAlgoObjWithOptions() try {
    return new isodata::ISODataClassificationRun();
} catch (...) {
    return nullptr;
}

// Runs nothing on purpose: the record is never put into the object's
// parameter slot, so Execute always refuses it with error 100 and this entry
// returns false. Only the host's GetAlgoObj/SetParams/Execute path classifies.
extern "C" bool ExecuteAlgo(const char* inputPath, const char* bandList, const char* resultPath,
                            double stdDevThreshold, double mergeDistanceThreshold, int initialClassCount,
                            int maxIterations, int maxMergePairs, int minClassPixels, int desiredClassCount) try {
    stInfoClassificationISO record;
    record.inputPath = QString::fromUtf8(inputPath ? inputPath : "");
    record.resultPath = QString::fromUtf8(resultPath ? resultPath : "");
    record.stdDevThreshold = stdDevThreshold;
    record.mergeDistanceThreshold = mergeDistanceThreshold;
    record.initialClassCount = initialClassCount;
    record.maxIterations = maxIterations;
    record.maxMergePairs = maxMergePairs;
    record.minClassPixels = minClassPixels;
    record.desiredClassCount = desiredClassCount;
    record.bandIndices = isodata::ParseBandList(bandList ? bandList : "");

    isodata::ISODataClassification algorithm;
    boost::any params(record);
    KalDataSource::DatasetFactory::Instance()->RegisterPlugin();
    return algorithm.Execute();
} catch (...) {
    return false;
}

CIsoDataFunc::CIsoDataFunc() = default;
CIsoDataFunc::~CIsoDataFunc() = default;
CIsoDataFunc& CIsoDataFunc::operator=(const CIsoDataFunc&) { return *this; }

bool CIsoDataFunc::Run(const std::string&, const std::string&, std::size_t, std::size_t, std::size_t, double, double,
                       std::size_t, std::size_t) {
    return false;
}
