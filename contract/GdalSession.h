// The two GDAL habits every part of the system shares: drivers registered
// once per process, and GDAL's error printing silenced for a scope where a
// failure is reported some other way. The command line, the output and the
// tests use them instead of calling GDAL's registration or pushing handlers
// by hand.
#pragma once

#include <cpl_error.h>

namespace isodata {

// Registers GDAL's drivers the first time it is called; later calls do nothing.
void RegisterGdalDrivers();

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

} // namespace isodata
