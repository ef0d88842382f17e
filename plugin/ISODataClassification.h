// The algorithm object the host receives from GetAlgoObj.
#pragma once

#include "ClassificationISO.h"
#include "IsodataRun.h"

#include <KalAlgo.h>

#include <cstddef>
#include <string>

#if defined(_WIN32) && defined(ISODATA_BUILDING)
#  define ISODATA_EXPORT __declspec(dllexport)
#elif defined(_WIN32)
#  define ISODATA_EXPORT __declspec(dllimport)
#else
#  define ISODATA_EXPORT __attribute__((visibility("default")))
#endif

namespace isodata {

// Adds nothing to the host's base but Execute: everything else (names,
// parameter slot, error info, cancel) is the base's.
class ISODataClassification : public KalAlgo::IKalAlgo {
public:
    ISODataClassification() = default;
    ~ISODataClassification() override;

    // Checks that the parameter slot holds a stInfoClassificationISO (else
    // error 100), runs the classification and reports 100 % at the end.
    // True only when the run succeeded.
    bool Execute() override;
};

// The addition beside it: Execute takes a stIsodataRun (the record with the
// run's options), runs it, and writes the run's report into the slot's
// record. Any other slot content is refused with error 100.
class ISODataClassificationRun : public KalAlgo::IKalAlgo {
public:
    ISODataClassificationRun() = default;
    ~ISODataClassificationRun() override;

    bool Execute() override;
};

} // namespace isodata

// Kept for hosts that link against it; its one operation does nothing.
class ISODATA_EXPORT CIsoDataFunc {
public:
    CIsoDataFunc();
    ~CIsoDataFunc();
    CIsoDataFunc& operator=(const CIsoDataFunc&);
    bool Run(const std::string&, const std::string&, std::size_t, std::size_t, std::size_t, double, double,
             std::size_t, std::size_t);
};

extern "C" {
ISODATA_EXPORT KalAlgo::IKalAlgo* GetAlgoObj();
// The algorithm object of a run with options (IsodataRun.h).
ISODATA_EXPORT KalAlgo::IKalAlgo* GetAlgoObjWithOptions();
ISODATA_EXPORT bool ExecuteAlgo(const char* inputPath, const char* bandList, const char* resultPath,
                                double stdDevThreshold, double mergeDistanceThreshold, int initialClassCount,
                                int maxIterations, int maxMergePairs, int minClassPixels, int desiredClassCount);
}
