// Collects the errors GDAL raises on any thread while it is installed,
// instead of letting GDAL print them: a run that raised an error of class
// Failure or worse is not published, and the person gets one message naming
// the first error.
#pragma once

#include <cpl_error.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace isodata_run {

class GdalErrorLog {
public:
    // Every message, worded as GDAL would print it, goes to echo when given.
    using Echo = std::function<void(const std::string& line)>;
    explicit GdalErrorLog(Echo echo);
    ~GdalErrorLog();
    GdalErrorLog(const GdalErrorLog&) = delete;
    GdalErrorLog& operator=(const GdalErrorLog&) = delete;

    int Failures() const { return failures_; }
    // The first few failures, in the order they came.
    const std::vector<std::string>& Kept() const { return kept_; }
    // "GDAL: <the failure>", or "<n> GDAL errors, the first: <it>"; empty if
    // none. Of several, the first that names `name` is shown if there is one:
    // a driver's own message usually says where, the library beneath it not.
    std::string Describe(const std::string& name = std::string()) const;
    // Whether the file system of the current folder was all but full when a
    // failure came. Write errors seldom say so themselves, and the files that
    // filled it are often gone by the time the caller looks.
    bool SawFullDisk() const { return fullDisk_; }

private:
    static void CPL_STDCALL Handle(CPLErr type, CPLErrorNum number, const char* message);

    Echo echo_;
    CPLErrorHandler previous_ = nullptr;
    std::mutex mutex_;  // errors come from every thread of the run
    bool fullDisk_ = false;
    int failures_ = 0;
    std::vector<std::string> kept_;
};

} // namespace isodata_run
