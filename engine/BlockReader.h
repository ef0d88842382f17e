// Reads block b of every chosen band into full-size block buffers: the one
// reader behind the sampling, classification, centre and split passes.
//
// A buffer is blockWidth x blockHeight elements of T with row stride
// blockWidth in every block, so a pixel at column x, row y of the block is
// element y * blockWidth + x. A partial block (right column, bottom row) is
// zeroed first and its w x h pixels land in the top-left corner. A band the
// dataset lacks is not read; its buffer keeps what it held.
#pragma once

#include "PixelTypes.h"

#include <gdal_priv.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace isodata {

struct BlockGeometry {
    std::int32_t x0, y0;   // origin in the image
    std::int32_t w, h;     // clipped extent
    bool partial;          // extent differs from the nominal block size
};

template <class T>
class BlockReader {
public:
    BlockReader(GDALDataset* dataset, const std::vector<std::uint32_t>& bandIndices, std::int32_t blockWidth,
                std::int32_t blockHeight)
        : blockWidth_(blockWidth),
          blockHeight_(blockHeight),
          buffers_(bandIndices.size(),
                   std::vector<T>(static_cast<std::size_t>(blockWidth) * static_cast<std::size_t>(blockHeight))) {
        bands_.reserve(bandIndices.size());
        for (std::uint32_t index : bandIndices) {
            GDALRasterBand* band = nullptr;
            if (dataset && index < static_cast<std::uint32_t>(dataset->GetRasterCount()))
                band = dataset->GetRasterBand(static_cast<int>(index) + 1);
            bands_.push_back(band);
        }
    }

    void Read(const BlockGeometry& g) {
        const GSpacing pixelSpacing = sizeof(T);
        const GSpacing lineSpacing = static_cast<GSpacing>(sizeof(T)) * blockWidth_;
        for (std::size_t i = 0; i < bands_.size(); ++i) {
            std::vector<T>& buffer = buffers_[i];
            if (g.partial) std::fill(buffer.begin(), buffer.end(), T(0));
            if (!bands_[i]) continue;
            // Failed reads are not detected; the buffer keeps its contents.
            const CPLErr ignored = bands_[i]->RasterIO(GF_Read, g.x0, g.y0, g.w, g.h, buffer.data(), g.w, g.h,
                                      PixelTraits<T>::gdalType, pixelSpacing, lineSpacing, nullptr);
            (void)ignored;
        }
    }

    const T* Band(std::size_t i) const { return buffers_[i].data(); }
    std::size_t BandCount() const { return buffers_.size(); }

private:
    std::int32_t blockWidth_, blockHeight_;
    std::vector<std::vector<T>> buffers_;
    std::vector<GDALRasterBand*> bands_;
};

} // namespace isodata
