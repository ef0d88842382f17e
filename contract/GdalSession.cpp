// GDAL's driver registration, run once however many parts ask for it.
#include "GdalSession.h"

#include <gdal.h>

#include <mutex>

namespace isodata {

void RegisterGdalDrivers() {
    static std::once_flag once;
    std::call_once(once, [] { GDALAllRegister(); });
}

} // namespace isodata
