// isodata from parsed options to exit status: check, run, print the report.
#pragma once

#include "Options.h"

#include <ostream>

namespace isodata_cli {

enum class ExitCode : int {
    Ok = 0,
    BadRequest = 1,            // bad command line or input; nothing was run
    ClassificationFailed = 2,  // includes a plug-in that cannot be loaded
    PreviewFailed = 3,         // the class raster is fine, the PNG is not
};

// The summary goes to out, problems to err, progress to out (err with -json
// or machine progress). progressIsTerminal selects drawn bars over lines.
// Returns an ExitCode, or 128 plus the number of the signal that
// interrupted the run.
int RunCommand(const Options& options, std::ostream& out, std::ostream& err, bool progressIsTerminal);

} // namespace isodata_cli
