// The room a run folder needs, worked out before anything is written, and
// the room its file system has, so that a run that cannot fit is refused up
// front rather than failing on a full disk half-way.
#pragma once

#include "RunRequest.h"

#include <cstdint>
#include <string>

namespace isodata_run {

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

    bool Enough() const { return free < 0 || needed <= free; }
};

// The estimate for request, whose input settings give the input's size,
// bands and driver; the run folder goes to request.tmpDir, or beside the
// output.
SpaceEstimate EstimateSpace(const RunRequest& request);

// bytes for a person: "41 GB", "3.5 MB", "512 bytes".
std::string ByteCount(std::int64_t bytes);

// "needs 41 GB in 'folder', 12 GB free; use --tmpdir ..." and the like.
std::string SpaceRefusal(const SpaceEstimate& space);

// One line of every part, for a debugging listener.
std::string SpaceDetails(const SpaceEstimate& space);

} // namespace isodata_run
