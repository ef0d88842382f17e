// The validity mask of a run with options: its rules, opened from what the
// options name, and the working copy's mask written from them.
#pragma once

#include "IsodataRun.h"
#include "ReducedRead.h"
#include "Validity.h"

#include <gdal_priv.h>

#include <QString>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace isodata {

class RunValidity {
public:
    // Opens what the options name for input: the mask raster, and a virtual
    // copy of the input when its nodata values or dataset masks are to be
    // taken otherwise than GDAL reports them. False when the mask raster
    // cannot be opened or is not the input's size, or no copy can be made.
    // Rules that cannot exclude anything for the chosen bands (no floating
    // band to hold NaN, mask bands that are all valid) are left off, so such
    // a run is the plain run.
    bool Open(GDALDataset* input, const stIsodataRunOptions& options, const std::vector<std::int32_t>& bandIndices);

    // The rules in force; none when the options ask for no mask.
    const ValidityRules& Rules() const { return rules_; }

private:
    GDALDatasetUniquePtr virtualCopy_, maskRaster_;
    ValidityRules rules_;
};

// Writes the working copy's mask to path: a Byte GeoTIFF of the working
// copy's size, 1 where the pixel is valid and 0 where it is excluded. The
// mask bands and the mask raster are read from the input at the working
// copy's size, picked as GDAL's nearest-neighbour read picks the working
// copy's pixels; non-finite values are looked for in the working copy
// itself. Reduced reads larger than heapBytes go through mapped scratch
// files beside working. Returns the number of valid pixels, or -1 when the
// file cannot be written.
std::int64_t WriteWorkingMask(const ValidityRules& rules, GDALDataset* input, GDALDataset* working,
                              const std::vector<std::uint32_t>& bandIndices, const QString& path,
                              std::size_t heapBytes = kHeapReadBytes);

} // namespace isodata
