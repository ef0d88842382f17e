// Collects the errors GDAL raises while it is installed, instead of letting
// GDAL print them: a run that raised an error of class Failure or worse is
// not published, and the person gets one message naming the first error.
#pragma once

#include <cpl_error.h>

#include <string>
#include <vector>

namespace isodata_cli {

class GdalErrorLog {
public:
    // With echo, every message is also printed to stderr as GDAL would print it.
    explicit GdalErrorLog(bool echo);
    ~GdalErrorLog();
    GdalErrorLog(const GdalErrorLog&) = delete;
    GdalErrorLog& operator=(const GdalErrorLog&) = delete;

    int Failures() const { return failures_; }
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

    bool echo_;
    bool fullDisk_ = false;
    int failures_ = 0;
    std::string first_;
    std::vector<std::string> kept_;  // the first few failures, for Describe
};

} // namespace isodata_cli
