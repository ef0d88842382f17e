// The checks made before anything runs. The plug-in only answers true or
// false, so everything the command can find out in advance is found out
// here, and each problem is reported in one message that names the file or
// value at fault.
#pragma once

#include "Options.h"

#include <string>
#include <vector>

namespace isodata_cli {

// What the checks learnt that the run needs.
struct CheckedRequest {
    std::vector<std::string> inputFiles;  // every file GDAL reads for the input
    std::vector<int> bandIndices;         // 0-based, in the order given
    std::string format;                   // the output driver's name as GDAL spells it
};

struct Validation {
    bool ok = false;
    std::string message;  // the first problem found, when not ok
    CheckedRequest request;
};

// The numeric options alone; empty when all make sense.
std::string CheckParameters(const Options& options);

// Everything: the numbers, then the input, the output, the preview and the
// run folder's place. Opens the input with GDAL; writes nothing but
// short-lived probe files to test that folders are writable.
Validation ValidateRequest(const Options& options);

} // namespace isodata_cli
