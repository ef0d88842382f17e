// Whole-band reads at a reduced size with bounded resident memory: GDAL's own
// resampled read of a whole band, the same call with the same arguments, into
// memory that is handed back to the kernel while GDAL fills it.
#pragma once

#include <gdal.h>

#include <cstddef>
#include <string>
#include <vector>

class GDALDataset;
class GDALRasterBand;

namespace isodata {

// Reduced bands up to this many bytes are read into ordinary memory.
constexpr std::size_t kHeapReadBytes = std::size_t{32} << 20;

// Room for one reduced band: zeroed memory on the heap up to heapBytes,
// beyond that a nameless scratch file of that size mapped into memory (on
// the heap after all when no such file can be made). A thread hands the
// mapped pages back to the kernel every few milliseconds while a read fills
// them, and Release hands back what the caller has used, so the resident
// share stays a few megabytes whatever the size; what was written stays in
// the file. The contents outlive reads: a read that fails leaves what was
// there before, as a reused buffer does.
class ReducedBuffer {
public:
    ReducedBuffer(std::size_t bytes, const std::string& folder, std::size_t heapBytes = kHeapReadBytes);
    ~ReducedBuffer();
    ReducedBuffer(const ReducedBuffer&) = delete;
    ReducedBuffer& operator=(const ReducedBuffer&) = delete;

    unsigned char* Data() { return data_; }
    bool Mapped() const { return mapped_; }

    // band->RasterIO(GF_Read, 0, 0, X, Y, Data(), width, height, type, 0, 0,
    // nullptr): the whole band at width x height, GDAL's overview choice and
    // pixel choice included, exactly as into any other buffer. With
    // fullResolution a reduced read takes no overview: the rows and columns
    // GDAL's nearest-neighbour read picks (NearestRows, NearestColumns) are read from the
    // band itself, a row at a time.
    CPLErr ReadWholeBand(GDALRasterBand* band, int width, int height, GDALDataType type, bool fullResolution = false);

    // Hands the pages of bytes [offset, offset + length) back to the kernel;
    // their contents stay.
    void Release(std::size_t offset, std::size_t length);

private:
    bool Map(std::size_t bytes, const std::string& folder);

    std::size_t bytes_;
    unsigned char* data_ = nullptr;
    bool mapped_ = false;
};

// The source rows (and columns) GDALRasterBand::IRasterIO's nearest-neighbour
// read picks for count reduced rows of a window of size rows from offset, in
// a band of bandSize rows, clamped to the band. Rows: (i + 0.5) steps from
// the window's start, each worked out afresh; columns: a running sum of the
// step from half a step in. Both nudged as GDAL nudges them. GDAL counts
// columns in whole steps when the step is a whole number; the running sum
// picks the same columns then.
std::vector<int> NearestRows(int offset, int size, int bandSize, int count);
std::vector<int> NearestColumns(int offset, int size, int bandSize, int count);

// Whether a band of dataset, or its mask band, has overviews a reduced read
// could use.
bool HasOverviews(GDALDataset* dataset);

// Whether handles of dataset opened apart share a file position, so that two
// threads reading through two of them would read each other's bytes: GDAL
// opens the file behind a raw band of a VRT once for the whole process.
// Such a dataset is read through one handle only.
bool HandlesShareFiles(GDALDataset* dataset);

// The folder of the file a dataset was opened from or created as; empty for
// datasets that are not files.
std::string FolderOf(const char* datasetPath);

} // namespace isodata
