// GDAL's driver registration, run once however many parts ask for it, and
// the block cache bound, unless the user chose a size.
#include "GdalSession.h"

#include <cpl_conv.h>
#include <gdal.h>

#include <mutex>

namespace isodata {

void RegisterGdalDrivers() {
    static std::once_flag once;
    std::call_once(once, [] { GDALAllRegister(); });
}

void BoundGdalBlockCache() {
    if (CPLGetConfigOption("GDAL_CACHEMAX", nullptr) == nullptr) GDALSetCacheMax64(kGdalCacheBytes);
}

} // namespace isodata
