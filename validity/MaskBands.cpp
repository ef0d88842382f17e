// The choice of mask bands: walk the band list, skip what cannot exclude a
// pixel, and keep the first band of every mask band met.
#include "MaskBands.h"

#include <gdal_priv.h>

#include <algorithm>

namespace isodata {

std::vector<MaskBandChoice> ChooseMaskBands(GDALDataset* dataset, const std::vector<std::uint32_t>& bandIndices) {
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
    return chosen;
}

} // namespace isodata
