// The size of GDAL's block cache for a run of the command.
#pragma once

namespace isodata_cli {

// Block cache of the command: the reads keep only a few rows of every band,
// and the clustering one row of blocks of its reduced copy, so a fixed size
// serves scenes of any size. GDAL's own default grows with the machine's
// memory instead.
constexpr long long kGdalCacheBytes = 64ll << 20;

// Sets GDAL's block cache to kGdalCacheBytes unless the user set
// GDAL_CACHEMAX (in the environment or GDAL's configuration).
void BoundGdalBlockCache();

} // namespace isodata_cli
