// The choice of mask bands: walk the band list, skip what cannot exclude a
// pixel, and keep the first band of every mask band met.
#include "MaskBands.h"

#include <gdal_priv.h>

#include <algorithm>

namespace isodata {

std::vector<MaskBandChoice> ChooseMaskBands(GDALDataset* dataset, const std::vector<std::uint32_t>& bandIndices,
                                            int alphaIndex) {
    std::vector<MaskBandChoice> chosen;
    if (!dataset) return chosen;
    for (std::size_t entry = 0; entry < bandIndices.size(); ++entry) {
        const std::uint32_t index = bandIndices[entry];
        if (index >= static_cast<std::uint32_t>(dataset->GetRasterCount())) continue;
        GDALRasterBand* band = dataset->GetRasterBand(static_cast<int>(index) + 1);
        const int flags = band->GetMaskFlags();
        if (flags == GMF_ALL_VALID) continue;
        GDALRasterBand* mask = band->GetMaskBand();
        if (!mask || std::any_of(chosen.begin(), chosen.end(),
                                 [mask](const MaskBandChoice& c) { return c.mask == mask; }))
            continue;
        chosen.push_back({mask, band, flags, entry});
    }
    if (alphaIndex >= 0 && alphaIndex < dataset->GetRasterCount()) {
        GDALRasterBand* alpha = dataset->GetRasterBand(alphaIndex + 1);
        if (std::none_of(chosen.begin(), chosen.end(), [alpha](const MaskBandChoice& c) { return c.mask == alpha; }))
            chosen.push_back({alpha, alpha, GMF_ALPHA | GMF_PER_DATASET, 0});
    }
    return chosen;
}

int UnmaskedAlphaBand(GDALDataset* dataset, const std::vector<std::uint32_t>& bandIndices) {
    if (!dataset) return -1;
    for (int b = 1; b <= dataset->GetRasterCount(); ++b) {
        GDALRasterBand* alpha = dataset->GetRasterBand(b);
        if (alpha->GetColorInterpretation() != GCI_AlphaBand) continue;
        const bool masked = std::any_of(bandIndices.begin(), bandIndices.end(), [&](std::uint32_t index) {
            return index < static_cast<std::uint32_t>(dataset->GetRasterCount()) &&
                   dataset->GetRasterBand(static_cast<int>(index) + 1)->GetMaskBand() == alpha;
        });
        return masked ? -1 : b - 1;
    }
    return -1;
}

} // namespace isodata
