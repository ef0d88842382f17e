// The algorithm object the host receives from GetAlgoObj.
#pragma once

#include "ClassificationISO.h"

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
ISODATA_EXPORT bool ExecuteAlgo(const char* inputPath, const char* bandList, const char* resultPath,
                                double stdDevThreshold, double mergeDistanceThreshold, int initialClassCount,
                                int maxIterations, int maxMergePairs, int minClassPixels, int desiredClassCount);
}
