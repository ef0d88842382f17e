// The final labelling pass: every pixel of the full-size input gets the
// number of its nearest final centre, written one byte per pixel into band 1
// of the class raster.
#pragma once

#include "HeldInput.h"
#include "PassReport.h"
#include "Progress.h"
#include "Validity.h"
#include "WorkerPool.h"

#include <KalDataSource.h>

#include <gdal.h>

#include <cstdint>
#include <vector>

namespace isodata {

// Final centres as the labelling sees them: K rows of B floats.
struct LabelCenters {
    std::size_t clusters = 0;
    std::size_t bands = 0;
    std::vector<float> values;  // [cluster * bands + band]
    // The plain run's rules: a pixel whose band values sum to zero is
    // background, and no centre further than kLabellingReach counts. Off,
    // every pixel goes to its nearest centre, the search starting from
    // +infinity as the classification passes' does.
    bool plainRules = true;
};

// Centres held in any type (the engine's pixel type, or the double a saved
// centre is read back as) narrowed to the floats the labelling works with.
template <class V>
LabelCenters ToLabelCenters(const std::vector<std::vector<V>>& centres, std::size_t bands) {
    LabelCenters labels{centres.size(), bands, {}, true};
    labels.values.reserve(labels.clusters * bands);
    for (const auto& centre : centres)
        for (std::size_t i = 0; i < bands; ++i) labels.values.push_back(static_cast<float>(centre[i]));
    return labels;
}

// Class number 0..K of the pixel whose B band values are given: 0 when the
// values sum to zero (background) or when no centre is nearer than
// kLabellingReach in single-precision city-block distance (under the plain
// rules); ties go to the lower class.
std::int32_t LabelPixel(const float* const* rowBuffers, std::size_t x, const LabelCenters& centers);

// What a result pass may do beyond labelling: honour a validity mask, whose
// excluded pixels are labelled 0 and counted, and gather each class's band
// means and deviations.
struct ResultPassOptions {
    ValidityRules validity;
    bool plainRules = true;  // LabelCenters::plainRules
    bool classStatistics = false;
    bool classCovariance = false;  // with classStatistics: the bands' covariance too
    WorkerPool* pool = nullptr;  // threads the rows of a window are shared out to; null: none
    const HeldInput* held = nullptr;  // the input in memory, read instead of the input's file; null: the file
};

// Labels the whole source into band 1 of result, row by row. report, when
// given, receives the figures (excluded, unclassified, classes); its
// centres are left as they are.
void GenerateResultRaster(const KalUtility::_ptr_t<KalDataSource::RasterDataset>& source,
                          const KalUtility::_ptr_t<KalDataSource::RasterDataset>& result,
                          const std::vector<std::uint32_t>& bandIndices, const LabelCenters& centers,
                          ProgressFn progress, void* userData, const ResultPassOptions& options = {},
                          PassReport* report = nullptr);

} // namespace isodata
