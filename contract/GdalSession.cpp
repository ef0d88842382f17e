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

GdalErrorCapture::GdalErrorCapture() { CPLPushErrorHandlerEx(Keep, this); }

GdalErrorCapture::~GdalErrorCapture() { CPLPopErrorHandler(); }

void CPL_STDCALL GdalErrorCapture::Keep(CPLErr type, CPLErrorNum number, const char* message) {
    static_cast<GdalErrorCapture*>(CPLGetErrorHandlerUserData())->errors_.push_back({type, number, message ? message : ""});
}

void GdalErrorCapture::Replay(const std::vector<Error>& errors) {
    for (const Error& e : errors) CPLError(e.type, e.number, "%s", e.message.c_str());
}

} // namespace isodata
