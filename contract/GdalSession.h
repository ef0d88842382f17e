// The GDAL habits every part of the system shares: drivers registered once
// per process, a bounded block cache for a run, and GDAL's error printing
// silenced for a scope where a failure is reported some other way. The
// command line, the output, the benchmark and the tests use them instead of
// calling GDAL's registration, sizing its cache or pushing handlers by hand.
#pragma once

#include <cpl_error.h>

#include <string>
#include <vector>

namespace isodata {

// Registers GDAL's drivers the first time it is called; later calls do nothing.
void RegisterGdalDrivers();

// A run's reads take whole blocks of all bands at once and keep what they
// need in their own buffers, so the cache only has to hold the blocks of one
// call: a few rows of the input, one batch of the working copy. GDAL's own
// default grows with the machine's memory instead, and every block it keeps
// is memory the run holds.
inline constexpr long long kGdalCacheBytes = 16ll << 20;

// Sets GDAL's block cache to kGdalCacheBytes unless the user set
// GDAL_CACHEMAX (in the environment or GDAL's configuration).
void BoundGdalBlockCache();

// While alive, GDAL errors raised on this thread are dropped instead of
// printed (CPLGetLastErrorMsg still holds the last one).
class QuietGdalErrors {
public:
    QuietGdalErrors() : pusher_(CPLQuietErrorHandler) {}
    QuietGdalErrors(const QuietGdalErrors&) = delete;
    QuietGdalErrors& operator=(const QuietGdalErrors&) = delete;

private:
    CPLErrorHandlerPusher pusher_;
};

// GDAL's error handlers belong to a thread: errors raised on a thread of our
// own would bypass the handler the caller installed (and its count of
// failures). While alive, a capture keeps the errors raised on its thread;
// Replay raises them again on the thread that calls it, in order.
class GdalErrorCapture {
public:
    struct Error {
        CPLErr type;
        CPLErrorNum number;
        std::string message;
    };

    GdalErrorCapture();
    ~GdalErrorCapture();
    GdalErrorCapture(const GdalErrorCapture&) = delete;
    GdalErrorCapture& operator=(const GdalErrorCapture&) = delete;

    std::vector<Error> Take() { return std::move(errors_); }
    static void Replay(const std::vector<Error>& errors);

private:
    static void CPL_STDCALL Keep(CPLErr type, CPLErrorNum number, const char* message);
    std::vector<Error> errors_;
};

} // namespace isodata
