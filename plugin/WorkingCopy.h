// The reduced Float32 copy of the input that the clustering runs on.
#pragma once

#include "HeldInput.h"
#include "ReducedRead.h"
#include "WorkerPool.h"

#include <cstddef>

class GDALDataset;

namespace isodata {

// How the copy was read.
enum class WorkingCopyRead {
    OnePass,  // every source block read once, all bands together
    PerBand,  // one whole-band resampled read per band
};

// Bytes that the one-pass copy's buffers (a batch of gathered rows and a
// window of source blocks for each lane reading side by side) take at most
// together, whatever the thread count; a single group too large for it is
// still read, by one lane.
inline constexpr std::size_t kCopyBufferBytes = std::size_t{16} << 20;

// Writes every band of input, reduced to width x height, into the band of the
// same number of working. The pixels are those a whole-band nearest-neighbour
// RasterIO into a width x height Float32 buffer gives, overview choice
// included. Inputs whose reads GDAL's driver may resample in its own way are
// copied band by band with exactly that RasterIO, into ordinary memory up to
// heapBytes a band and into a mapped scratch file beside working beyond.
// Transfer errors are not reported. With pool, the one-pass read is shared
// out to its threads; the copy is the same.
// bufferBytes bounds the one-pass copy's buffers (kCopyBufferBytes): more
// threads share it, in smaller buffers or fewer lanes; the copy is the same.
// Without useOverviews the pixels are those of the same read of the input
// opened without its overviews: GDAL's nearest-neighbour pick from the
// full-resolution band.
WorkingCopyRead WriteWorkingCopy(GDALDataset* input, GDALDataset* working, int width, int height,
                                 std::size_t heapBytes = kHeapReadBytes, WorkerPool* pool = nullptr,
                                 bool useOverviews = true, std::size_t bufferBytes = kCopyBufferBytes);

// The same copy from the input held in memory: every band of held reduced to
// width x height by the nearest-neighbour picks from its full-resolution
// pixels (NearestRows, NearestColumns), converted to floats as GDAL converts
// them, which is what the whole-band read of the input opened without its
// overviews gives. With pool, rows are shared out to its threads.
void WriteWorkingCopy(const HeldInput& held, GDALDataset* working, int width, int height, WorkerPool* pool = nullptr);

} // namespace isodata
