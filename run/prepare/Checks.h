// The checks Prepare makes, one group a file. Each fills its part of the
// request and returns nothing, or the refusal that ends the checks.
#pragma once

#include "Prepare.h"

#include <cpl_string.h>

#include <optional>
#include <string>
#include <vector>

namespace isodata_run {

using Check = std::optional<Refusal>;

// GDAL set up once for the process: its drivers, and a block cache that
// leaves room for the working copy.
void StartGdal();

// "'name'": how every message shows a name or value as given.
std::string Quote(const std::string& s);

// Open and creation options are NAME=VALUE, with a name: nothing, or the
// refusal of option, an item of field that is not.
Check CheckNameValue(AskField field, const std::string& option);
CPLStringList StringList(const std::vector<std::string>& items);

inline Refusal Refuse(AskField field, std::string problem, std::vector<Remedy> remedies = {}) {
    return Refusal{field, std::move(problem), std::move(remedies)};
}

// What the checks learn of the input beyond the request.
struct InputFacts {
    std::vector<std::string> bandTypes;         // GDAL's name of each band's type
    std::vector<std::string> bandDescriptions;  // GDAL's description of each band
    std::vector<bool> alpha;                    // each band's: an alpha band, the others' mask
};

// A name GDAL opens a dataset by (a file, a virtual path, a subdataset
// name) whose file is there and is no FIFO or device.
Check CheckDatasetName(AskField field, const std::string& name);

// InputCheck.cpp: the input opened with its open options.
Check CheckInput(const RunAsk& ask, InputSettings& input, InputFacts& facts);

// OutputCheck.cpp: the output's format, the files the run will write, and
// the run folder's place.
Check CheckFormat(const RunAsk& ask, OutputSettings& output);
Check CheckOutputs(const RunAsk& ask, RunRequest& request);

// SettingsCheck.cpp: the model to apply and the bands, the nodata and mask
// rule, threads and memory.
Check CheckModelAndBands(const RunAsk& ask, const InputFacts& facts, RunRequest& request);
Check CheckMask(const RunAsk& ask, RunRequest& request);
Check CheckResources(const RunAsk& ask, RunRequest& request);
// The machine's physical memory in bytes; 0 when it cannot be told.
std::int64_t PhysicalMemory();

// Space.cpp: the room the run needs where its folder goes, and the refusal
// when it is not there.
SpaceEstimate EstimateSpace(const RunRequest& request);
// inTmpDir: the run folder's place was asked for.
Refusal SpaceRefusal(const SpaceEstimate& space, bool inTmpDir);

} // namespace isodata_run
