// The size of GDAL's block cache for a run of the command.
#pragma once

namespace isodata_cli {

// The command's reads take whole blocks of all bands at once and keep what
// they need in their own buffers, so the cache only has to hold the blocks of
// one call: a few rows of the input, one batch of the working copy. GDAL's
// own default grows with the machine's memory instead, and every block it
// keeps is memory the run holds.
constexpr long long kGdalCacheBytes = 16ll << 20;

// Sets GDAL's block cache to kGdalCacheBytes unless the user set
// GDAL_CACHEMAX (in the environment or GDAL's configuration).
void BoundGdalBlockCache();

} // namespace isodata_cli
