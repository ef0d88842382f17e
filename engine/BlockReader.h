// Reads block b of every chosen band into full-size block buffers: the one
// reader behind the sampling, classification, centre and split passes.
//
// A buffer is blockWidth x blockHeight elements of T with row stride
// blockWidth in every block, so a pixel at column x, row y of the block is
// element y * blockWidth + x. A partial block (right column, bottom row) is
// zeroed first and its w x h pixels land in the top-left corner. A band the
// dataset lacks is not read; its buffer keeps what it held.
//
// Passes visit the blocks row by row, so the reader holds the rows of the
// current block row, every band read in one call, and serves each block of
// the row from them: each row of the image is read once per pass whatever
// the block cache holds. If that read fails, the blocks of the row are read
// band by band as a block each, which is what they would hold without it.
//
// A working copy held in memory hands the reader its bands whole (planes,
// one per dataset band, rows of the image's width): the blocks are then
// copied from there, without a read into held rows in between.
//
// With a validity mask (a Byte raster of the image's size, 0 = excluded) the
// reader holds the mask rows of the block row too and hands out the block's
// valid flags beside its values, laid out like them; outside a partial
// block's extent they are 0.
#pragma once

#include "BandSlots.h"
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
    // planes, when not empty, holds the dataset's bands in memory, band n at
    // planes[n - 1].
    BlockReader(GDALDataset* dataset, const std::vector<std::uint32_t>& bandIndices, std::int32_t blockWidth,
                std::int32_t blockHeight, GDALDataset* mask = nullptr, const std::vector<const T*>& planes = {})
        : dataset_(dataset),
          planes_(planes),
          mask_(mask && mask->GetRasterCount() >= 1 ? mask->GetRasterBand(1) : nullptr),
          slots_(dataset ? dataset->GetRasterCount() : 0, bandIndices),
          blockWidth_(blockWidth),
          blockHeight_(blockHeight),
          imageWidth_(dataset ? dataset->GetRasterXSize() : 0),
          imageHeight_(dataset ? dataset->GetRasterYSize() : 0),
          buffers_(bandIndices.size(),
                   std::vector<T>(static_cast<std::size_t>(blockWidth) * static_cast<std::size_t>(blockHeight))),
          valid_(mask_ ? static_cast<std::size_t>(blockWidth) * static_cast<std::size_t>(blockHeight) : 0) {}

    void Read(const BlockGeometry& g) {
        const bool held = HoldRows(g);
        if (mask_) ReadValid(g, held);
        for (std::size_t i = 0; i < buffers_.size(); ++i) {
            std::vector<T>& buffer = buffers_[i];
            if (g.partial) std::fill(buffer.begin(), buffer.end(), T(0));
            const std::size_t slot = slots_.SlotOf(i);
            if (slot == BandSlots::kMissing) continue;
            if (!held) {
                ReadBlock(g, slots_.BandMap()[slot], buffer);
                continue;
            }
            CopyBlock(g, planes_.empty() ? rows_.data() + slot * Plane() : PlaneRow(slot, g.y0), buffer.data());
        }
    }

    // Whether blocks can be read straight into buffers of the caller's, side
    // by side: every band the list names is in memory and no mask is read.
    bool Direct() const {
        if (planes_.empty() || mask_) return false;
        for (std::size_t i = 0; i < buffers_.size(); ++i)
            if (slots_.SlotOf(i) == BandSlots::kMissing) return false;
        return true;
    }

    // Block g, lying inside the image, of every band into out(i), a buffer
    // laid out like the reader's own, holding what Read would leave there.
    // Only when Direct(); touches nothing of the reader's, so blocks may be
    // read on several threads at once.
    template <class Out>
    void ReadDirect(const BlockGeometry& g, Out&& out) const {
        for (std::size_t i = 0; i < buffers_.size(); ++i) {
            T* to = out(i);
            if (g.partial) std::fill_n(to, buffers_[i].size(), T(0));
            CopyBlock(g, PlaneRow(slots_.SlotOf(i), g.y0), to);
        }
    }

    const T* Band(std::size_t i) const { return buffers_[i].data(); }
    std::size_t BandCount() const { return buffers_.size(); }
    // The block's valid flags (non-zero = valid), or null when every pixel is.
    const std::uint8_t* Valid() const { return mask_ ? valid_.data() : nullptr; }

private:
    std::size_t Plane() const { return imageWidth_ * static_cast<std::size_t>(blockHeight_); }

    // Makes rows_ hold the rows of g's block row; false when they could not
    // be read or the block reaches outside the image.
    bool HoldRows(const BlockGeometry& g) {
        if (g.x0 < 0 || g.w < 0 || static_cast<std::size_t>(g.x0) + static_cast<std::size_t>(g.w) > imageWidth_ ||
            g.h > blockHeight_)
            return false;
        if (g.y0 == heldY0_ && g.h == heldRows_) return heldOk_;
        heldY0_ = g.y0;
        heldRows_ = g.h;
        heldOk_ = false;
        if (slots_.Count() == 0) return heldOk_;
        heldOk_ = planes_.empty() ? ReadRows(g) : g.y0 >= 0 && g.y0 + g.h <= imageHeight_;
        if (heldOk_ && mask_) {
            maskRows_.resize(Plane());
            heldOk_ = mask_->RasterIO(GF_Read, 0, g.y0, static_cast<int>(imageWidth_), g.h, maskRows_.data(),
                                      static_cast<int>(imageWidth_), g.h, GDT_Byte, 0, 0, nullptr) == CE_None;
        }
        return heldOk_;
    }

    // Row y of the slot's band in memory.
    const T* PlaneRow(std::size_t slot, std::int32_t y) const {
        return planes_[static_cast<std::size_t>(slots_.BandMap()[slot] - 1)] + static_cast<std::size_t>(y) * imageWidth_;
    }

    // Block g's rows from rows of the image's width starting at its top row.
    void CopyBlock(const BlockGeometry& g, const T* rows, T* to) const {
        const T* from = rows + static_cast<std::size_t>(g.x0);
        for (std::int32_t r = 0; r < g.h; ++r)
            std::copy_n(from + static_cast<std::size_t>(r) * imageWidth_, g.w, to + static_cast<std::size_t>(r) * blockWidth_);
    }

    bool ReadRows(const BlockGeometry& g) {
        rows_.resize(slots_.Count() * Plane());
        const GSpacing line = static_cast<GSpacing>(sizeof(T)) * static_cast<GSpacing>(imageWidth_);
        return dataset_->RasterIO(GF_Read, 0, g.y0, static_cast<int>(imageWidth_), g.h, rows_.data(),
                                  static_cast<int>(imageWidth_), g.h, PixelTraits<T>::gdalType,
                                  static_cast<int>(slots_.Count()), slots_.BandMap().data(), sizeof(T), line,
                                  line * blockHeight_, nullptr) == CE_None;
    }

    // The block's flags from the held mask rows, or read on their own.
    void ReadValid(const BlockGeometry& g, bool held) {
        std::fill(valid_.begin(), valid_.end(), std::uint8_t(0));
        if (!held) {
            const CPLErr ignored = mask_->RasterIO(GF_Read, g.x0, g.y0, g.w, g.h, valid_.data(), g.w, g.h, GDT_Byte,
                                                   1, blockWidth_, nullptr);
            (void)ignored;
            return;
        }
        for (std::int32_t r = 0; r < g.h; ++r)
            std::copy_n(maskRows_.data() + static_cast<std::size_t>(r) * imageWidth_ + static_cast<std::size_t>(g.x0),
                        g.w, valid_.data() + static_cast<std::size_t>(r) * blockWidth_);
    }

    // One band's block on its own. Failed reads are not detected; the buffer
    // keeps its contents.
    void ReadBlock(const BlockGeometry& g, int band, std::vector<T>& buffer) {
        const GSpacing lineSpacing = static_cast<GSpacing>(sizeof(T)) * blockWidth_;
        const CPLErr ignored = dataset_->GetRasterBand(band)->RasterIO(
            GF_Read, g.x0, g.y0, g.w, g.h, buffer.data(), g.w, g.h, PixelTraits<T>::gdalType, sizeof(T),
            lineSpacing, nullptr);
        (void)ignored;
    }

    GDALDataset* dataset_;
    std::vector<const T*> planes_;  // the bands in memory; empty: read through dataset_
    GDALRasterBand* mask_;
    BandSlots slots_;
    std::int32_t blockWidth_, blockHeight_;
    std::size_t imageWidth_;
    std::int32_t imageHeight_;
    std::vector<std::vector<T>> buffers_;
    std::vector<std::uint8_t> valid_;
    std::vector<T> rows_;  // [slot][row][column] of the held block row
    std::vector<std::uint8_t> maskRows_;  // [row][column] of the held block row
    std::int32_t heldY0_ = -1, heldRows_ = 0;
    bool heldOk_ = false;
};

} // namespace isodata
