// From what a host was asked to a run's request. A host passes every
// setting as the person typed it (RunAsk); Prepare opens the files, asks
// the drivers and the machine, and returns either the checked request with
// the room it needs, or a refusal that names the asked-for setting at fault
// and why. The library spells no option: each host names the settings its
// own way (an option, a parameter, a keyword).
#pragma once

#include "RunApi.h"
#include "RunAsk.h"
#include "RunRequest.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace isodata_run {

// The room a run folder needs, worked out before anything is written, and
// the room its file system has.
struct SpaceEstimate {
    std::string folder;        // where the run folder goes
    std::int64_t needed = 0;   // the sum of the parts below
    std::int64_t free = -1;    // what an unprivileged writer may still use there; -1: unknown
    // The parts, in bytes.
    std::int64_t workingCopy = 0;   // the reduced copy of every band as floats, unless it stays in memory
    std::int64_t workingMask = 0;   // its validity mask, one byte a reduced pixel, when a mask is in force
    std::int64_t scratch = 0;       // the clusters' member index files, 4 bytes a reduced pixel and slack
    std::int64_t readScratch = 0;   // one band of the reduced copy, for inputs GDAL reads band by band
    std::int64_t result = 0;        // the class raster, one byte a pixel
    std::int64_t conversion = 0;    // its copy in another format (at most as large, as it is lossless)
    std::int64_t preview = 0;
    std::int64_t model = 0;         // the model file, when one is asked for

    bool Enough() const { return free < 0 || needed <= free; }
};

struct Prepared {
    std::optional<Refusal> refusal;  // set: nothing may run
    RunRequest request;              // without a refusal, the run to make
    SpaceEstimate space;             // once the files passed; its folder is empty before
};

// Checks ask in the order a person would fix things: the output's format,
// the input, a model to apply, the bands, nodata and masks, the output, the
// preview and the model file, the run folder's place, threads and memory,
// and last the room. Opens the input and any model or mask; writes nothing
// but short-lived probe files to learn whether folders are writable.
ISODATA_RUN_API Prepared Prepare(const RunAsk& ask);

// One line of every part of an estimate, for a debugging host.
ISODATA_RUN_API std::string SpaceDetails(const SpaceEstimate& space);

// bytes for a person: "41 GB", "3.5 MB", "512 bytes".
ISODATA_RUN_API std::string ByteCount(std::int64_t bytes);

} // namespace isodata_run
