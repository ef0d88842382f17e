// The full-size input held in memory, read once, so that a run whose budget
// allows it reads its input a single time: the working copy is picked from
// it and the result pass labels from it.
#pragma once

#include "WorkerPool.h"

#include <gdal_priv.h>

#include <cstdint>
#include <memory>

namespace isodata {

class HeldInput {
public:
    // Bytes every band of input takes in memory in its own type.
    static std::int64_t Bytes(GDALDataset* input);

    // Every band of input read whole, each band's rows one after the other,
    // when they take at most budget bytes and the input reads as the result
    // pass reads it (a GeoTIFF, not JPEG-compressed, every band of one
    // type); null otherwise, or when the read fails or the memory cannot be
    // had (the caller then reads the input as it would without). With pool,
    // strips of whole blocks are read side by side, each through a handle of
    // its own; the bytes are the same. GDAL's errors of a read that succeeds
    // are raised again on the calling thread; those of one that fails are
    // dropped, as the caller's own read raises them again.
    static std::unique_ptr<HeldInput> Read(GDALDataset* input, std::int64_t budget, WorkerPool* pool);

    // A dataset of its own over the held bands (GDAL's MEM driver, the
    // input's size and band count), for one thread at a time: read as 32-bit
    // floats it gives what the same read of the input gives.
    GDALDatasetUniquePtr View() const;

    int Width() const { return width_; }
    int Height() const { return height_; }
    int Bands() const { return bands_; }
    GDALDataType Type() const { return type_; }
    // Band b (0-based), width x height values of Type().
    const unsigned char* Band(int b) const;

private:
    HeldInput(int width, int height, int bands, GDALDataType type);
    bool ReadFrom(GDALDataset* input, WorkerPool* pool);

    int width_, height_, bands_;
    GDALDataType type_;
    std::size_t bandBytes_;
    std::unique_ptr<unsigned char[]> values_;
};

} // namespace isodata
