// The working copy's validity mask, written from a run's rules at the
// working copy's size.
#pragma once

#include "ReducedRead.h"
#include "Validity.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <vector>

class GDALDataset;

namespace isodata {

// Writes the working copy's mask to path: a Byte GeoTIFF of the working
// copy's size, 1 where the pixel is valid and 0 where it is excluded. The
// mask bands and the mask raster are read from the input at the working
// copy's size, picked as GDAL's nearest-neighbour read picks the working
// copy's pixels; non-finite values are looked for in the working copy
// itself. Reduced reads larger than heapBytes go through mapped scratch
// files beside working. Without useOverviews the reduced reads pick from the
// full-resolution bands, as the working copy's did. Returns the number of
// valid pixels, or -1 when the file cannot be written.
std::int64_t WriteWorkingMask(const ValidityRules& rules, GDALDataset* input, GDALDataset* working,
                              const std::vector<std::uint32_t>& bandIndices, const QString& path,
                              std::size_t heapBytes = kHeapReadBytes, bool useOverviews = true);

} // namespace isodata
