// The command's block cache: bounded, unless the user chose a size.
#include "GdalCache.h"

#include <cpl_conv.h>
#include <gdal.h>

namespace isodata_cli {

void BoundGdalBlockCache() {
    if (CPLGetConfigOption("GDAL_CACHEMAX", nullptr) == nullptr) GDALSetCacheMax64(kGdalCacheBytes);
}

} // namespace isodata_cli
