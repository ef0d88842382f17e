// The checks made before anything runs. The plug-in only answers true or
// false, and it writes and deletes files beside the input, so everything the
// CLI can find out in advance is found out here, and each problem is reported
// in one message that names the file or value at fault.
#pragma once

#include "Options.h"

#include <string>
#include <vector>

namespace isodata_cli {

// What the checks learnt that the run needs.
struct CheckedRequest {
    std::string pluginInputPath;  // the input's spelling handed to the plug-in
    int width = 0;
    int height = 0;
    int inputBandCount = 0;
    std::vector<int> bandIndices;  // 0-based, in the order given
};

struct Validation {
    bool ok = false;
    std::string message;  // the first problem found, when not ok
    CheckedRequest request;
};

// The numeric options alone; empty when all make sense.
std::string CheckParameters(const Options& options);

// Everything: the numbers, then the input, the working files, the output and
// the preview. Opens the input with GDAL; writes nothing but short-lived
// probe files to test that folders are writable.
Validation ValidateRequest(const Options& options);

} // namespace isodata_cli
