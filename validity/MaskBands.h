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
// alphaIndex, when not negative, is a 0-based alpha band of dataset that no
// chosen band has as its mask (GDAL gives alpha masks to gray + alpha and
// RGBA only); it is taken as one more mask band, 0 where transparent.
std::vector<MaskBandChoice> ChooseMaskBands(GDALDataset* dataset, const std::vector<std::uint32_t>& bandIndices,
                                            int alphaIndex = -1);

// The 0-based alpha band of dataset (by its colour interpretation) that no
// chosen band has as its mask; -1 when there is none.
int UnmaskedAlphaBand(GDALDataset* dataset, const std::vector<std::uint32_t>& bandIndices);

} // namespace isodata
