// Whole-band reads at a reduced size with bounded resident memory: GDAL's own
// resampled read of a whole band, the same call with the same arguments, into
// memory that is handed back to the kernel while GDAL fills it.
#pragma once

#include <gdal.h>

#include <cstddef>
#include <string>

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
    // pixel choice included, exactly as into any other buffer.
    CPLErr ReadWholeBand(GDALRasterBand* band, int width, int height, GDALDataType type);

    // Hands the pages of bytes [offset, offset + length) back to the kernel;
    // their contents stay.
    void Release(std::size_t offset, std::size_t length);

private:
    bool Map(std::size_t bytes, const std::string& folder);

    std::size_t bytes_;
    unsigned char* data_ = nullptr;
    bool mapped_ = false;
};

// The folder of the file a dataset was opened from or created as; empty for
// datasets that are not files.
std::string FolderOf(const char* datasetPath);

} // namespace isodata
