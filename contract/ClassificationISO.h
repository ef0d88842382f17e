// The parameter record of one ISODATA classification request. A host (the
// command line among them) fills it and stores it in the algorithm object's
// parameter slot; Execute checks the exact type there, and the engine's setup
// takes its values. Host and plug-in therefore share this one declaration.
#pragma once

#include <QString>

#include <cstdint>
#include <vector>

#if defined(_WIN32)
#  define ISODATA_RECORD_API
#else
// The type identity must be the same on both sides of the plug-in boundary.
#  define ISODATA_RECORD_API __attribute__((visibility("default")))
#endif

struct ISODATA_RECORD_API stInfoClassificationISO {
    QString inputPath = QString("");             // multi-band input raster
    QString resultPath = QString("");            // class raster to create (ENVI)
    std::int32_t desiredClassCount = 0;          // classes wanted (D)
    std::int32_t initialClassCount = 0;          // centres chosen at the start (K)
    std::int32_t minClassPixels = 0;             // smaller clusters are dropped; the split test uses twice it
    std::int32_t maxMergePairs = 0;              // most centre pairs merged in one merge step
    std::int32_t maxIterations = 0;              // rounds of the iteration loop (0 wraps: runs until K = D)
    double stdDevThreshold = 0.0;                // split when a cluster's largest band standard deviation exceeds this
    double mergeDistanceThreshold = 0.0;         // centres closer than this (Euclidean) may merge
    std::vector<std::int32_t> bandIndices;       // 0-based input bands, in order
    QString auxText1 = QString("");              // carried for the host, unused
    std::int64_t auxValue = 0;                   // carried for the host, unused
    QString auxText2 = QString("");              // carried for the host, unused
};
