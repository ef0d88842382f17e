// The validity mask of a run with options: its rules, opened from what the
// options name.
#pragma once

#include "IsodataRun.h"
#include "Validity.h"

#include <gdal_priv.h>

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

} // namespace isodata
