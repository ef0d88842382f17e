// The engine's last two stages, handed to the result output with only what
// it needs: the datasets, the band list, the final centres and the rules of
// the validity mask.
#include "IsodataEngine.h"

#include "ClassMetadata.h"
#include "ResultRaster.h"

namespace isodata {

template <class T>
void IsodataEngine<T>::GenerateResultRaster(ProgressFn progress, void* userData) {
    if (report) {
        report->pixelType = pixelType;
        report->centres.clear();
        for (const auto& centre : centers) report->centres.emplace_back(centre.begin(), centre.end());
        report->iterations = history;
    }
    isodata::GenerateResultRaster(sourceDataset, resultDataset, bandIndices,
                                  ToLabelCenters(centers, bandIndices.size()), progress, userData, resultPass,
                                  report);
}

template <class T>
void IsodataEngine<T>::AttachClassMetadata() {
    isodata::AttachClassMetadata(resultDataset, BuildClassMetadata(centers.size()));
}

#define ISODATA_INSTANTIATE(T)                                                            \
    template void IsodataEngine<T>::GenerateResultRaster(ProgressFn, void*);       \
    template void IsodataEngine<T>::AttachClassMetadata();
ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_INSTANTIATE)
#undef ISODATA_INSTANTIATE

} // namespace isodata
