// GDAL error collection through handlers with user data: pushed for this
// thread, and GDAL's process-wide one for the threads the plug-in's passes
// run on, whose errors would otherwise be printed and not counted.
#include "GdalErrorLog.h"

#include <sys/statvfs.h>

#include <mutex>
#include <utility>

namespace isodata_run {

GdalErrorLog::GdalErrorLog(Echo echo) : echo_(std::move(echo)) {
    CPLPushErrorHandlerEx(Handle, this);
    previous_ = CPLSetErrorHandlerEx(Handle, this);
}

GdalErrorLog::~GdalErrorLog() {
    CPLSetErrorHandlerEx(previous_, nullptr);
    CPLPopErrorHandler();
}

void CPL_STDCALL GdalErrorLog::Handle(CPLErr type, CPLErrorNum number, const char* message) {
    auto* log = static_cast<GdalErrorLog*>(CPLGetErrorHandlerUserData());
    const std::lock_guard<std::mutex> lock(log->mutex_);
    if (log->echo_) {
        const std::string kind = type == CE_Debug ? "" : type == CE_Warning ? "Warning " : "ERROR ";
        log->echo_(kind.empty() ? std::string(message) : kind + std::to_string(number) + ": " + message);
    }
    if (type < CE_Failure) return;
    constexpr size_t kKept = 64;
    ++log->failures_;
    if (log->kept_.size() < kKept) log->kept_.emplace_back(message);
    constexpr unsigned long long kNearlyFull = 1 << 20;
    struct statvfs fs {};
    if (!log->fullDisk_ && statvfs(".", &fs) == 0)
        log->fullDisk_ = static_cast<unsigned long long>(fs.f_bavail) * fs.f_frsize < kNearlyFull;
}

std::string GdalErrorLog::Describe(const std::string& name) const {
    if (failures_ == 0) return {};
    if (failures_ == 1) return "GDAL: " + kept_.front();
    const std::string count = std::to_string(failures_) + " GDAL errors, the first";
    for (const std::string& message : kept_)
        if (!name.empty() && message.find(name) != std::string::npos)
            return count + " about '" + name + "': " + message;
    return count + ": " + kept_.front();
}

} // namespace isodata_run
