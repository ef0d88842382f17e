// The mask bands a validity mask reads: those of the chosen bands, each
// distinct one once. Both readers, at full size and at the working copy's
// size, start from this one choice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class GDALDataset;
class GDALRasterBand;

namespace isodata {

struct MaskBandChoice {
    GDALRasterBand* mask;  // band->GetMaskBand()
    GDALRasterBand* band;  // the first chosen band with this mask
    int flags;             // band->GetMaskFlags()
    std::size_t entry;     // the band's entry in the band list
};

// The distinct mask bands of the chosen bands of dataset (0-based indices),
// in band-list order. A per-dataset mask serves every band and is taken once;
// bands whose mask is "all valid" are left out, since such a mask can exclude
// nothing, and so are indices the dataset lacks. Empty for a null dataset.
std::vector<MaskBandChoice> ChooseMaskBands(GDALDataset* dataset, const std::vector<std::uint32_t>& bandIndices);

} // namespace isodata
