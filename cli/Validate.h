// The checks made before anything runs. The plug-in only answers true or
// false, so everything the command can find out in advance is found out
// here, and each problem is reported in one message that names the file or
// value at fault. What passes becomes the run's request.
#pragma once

#include "Options.h"

#include <RunRequest.h>
#include <Space.h>

#include <string>
#include <vector>

namespace isodata_cli {

struct Validation {
    std::string problem;  // the first problem found; empty when there is none
    // The options as checked: every band listed, the format as GDAL spells it.
    Options checked;
    isodata_run::RunRequest request;
    isodata_run::SpaceEstimate space;  // the run folder's need, once everything else passed
};

// The numbers alone, against the option table's ranges; empty when all fit.
std::string CheckRanges(const Options& options);

// Everything: the numbers, the format, then the input, the output, the
// preview, the run folder's place and the room there. Opens the input with GDAL; writes
// nothing but short-lived probe files to test that folders are writable.
Validation ValidateRequest(const Options& options);

// What the checks learn of the input.
struct InputInfo {
    int bandCount = 0, width = 0, height = 0;
    std::string driver;                  // GDAL's short name of the driver that opened it
    std::vector<std::string> files;      // every file GDAL reads for the input
    std::vector<std::string> bandTypes;  // GDAL's name of each band's type
};

// Opens the input with its open options and fills info; the first problem,
// or nothing (InputCheck.cpp).
std::string OpenInput(const std::string& path, const std::vector<std::string>& openOptions, InputInfo& info);

// The request for checked options and what the checks learnt of the input.
isodata_run::RunRequest RequestFor(const Options& checked, const InputInfo& input);

// The settings beyond the record (RunSettings.cpp), each filling its part of
// request and returning the first problem, or nothing.
// -apply: the model's bands (o.bands) and classes, and its mask rule.
std::string CheckApply(Options& o, const InputInfo& input, isodata_run::RunRequest& request);
// -srcnodata and -mask, over the rule a model brought, if any.
std::string CheckMask(const Options& o, const InputInfo& input, isodata_run::MaskSettings& mask);
// -threads and -mem.
std::string CheckResources(const Options& o, isodata_run::RunRequest& request);

} // namespace isodata_cli
