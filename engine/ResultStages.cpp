// The engine's last two stages, handed to the result output with only what
// it needs: the datasets, the band list, the final centres and the rules of
// the validity mask.
#include "IsodataEngine.h"

#include "ClassMetadata.h"
#include "ResultRaster.h"

namespace isodata {

template <class T>
void IsodataEngine<T>::GenerateResultRaster(ProgressFn progress, void* userData) {
    LabelCenters labels;
    labels.clusters = centers.size();
    labels.bands = bandIndices.size();
    labels.values.reserve(labels.clusters * labels.bands);
    for (const auto& centre : centers)
        for (std::size_t i = 0; i < labels.bands; ++i) labels.values.push_back(static_cast<float>(centre[i]));
    isodata::GenerateResultRaster(sourceDataset, resultDataset, bandIndices, labels, progress, userData, resultPass,
                                  resultReport);
}

template <class T>
void IsodataEngine<T>::AttachClassMetadata() {
    isodata::AttachClassMetadata(resultDataset, BuildClassMetadata(centers.size(), resultPath));
}

#define ISODATA_INSTANTIATE(T)                                                            \
    template void IsodataEngine<T>::GenerateResultRaster(ProgressFn, void*);       \
    template void IsodataEngine<T>::AttachClassMetadata();
ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_INSTANTIATE)
#undef ISODATA_INSTANTIATE

} // namespace isodata
