// A run of consecutive blocks held at once: their bands and valid flags
// copied out of the block reader, so that the blocks can be worked on side
// by side by the worker threads, while whatever must go in block order (sums,
// scratch files, progress) is still done in block order afterwards.
#pragma once

#include "BlockReader.h"
#include "WorkerPool.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace isodata {

template <class T>
class BlockBatch {
public:
    // Bytes of blocks held at once: about what the caches keep, since a batch
    // is gone through again by every cluster or stream; at least one block.
    static constexpr std::size_t kBytes = std::size_t{2} << 20;

    BlockBatch(std::size_t bands, std::int32_t blockWidth, std::int32_t blockHeight, std::size_t extraBytesPerPixel,
               std::uint32_t blockCount)
        : bands_(bands), pixels_(static_cast<std::size_t>(blockWidth) * static_cast<std::size_t>(blockHeight)) {
        const std::size_t perBlock = std::max<std::size_t>(1, pixels_ * (bands * sizeof(T) + 1 + extraBytesPerPixel));
        capacity_ = static_cast<std::uint32_t>(std::clamp<std::size_t>(kBytes / perBlock, 1, std::max(blockCount, 1u)));
        values_.resize(static_cast<std::size_t>(capacity_) * bands_ * pixels_);
        valid_.resize(static_cast<std::size_t>(capacity_) * pixels_);
    }

    std::uint32_t Capacity() const { return capacity_; }

    // Reads count blocks from first on; geometry(b) gives block b's place.
    // Bands in memory are copied straight into the batch, blocks shared out
    // to pool's threads; otherwise the reader reads each block in turn and
    // it is copied from there.
    template <class Geometry>
    void Load(BlockReader<T>& reader, std::uint32_t first, std::uint32_t count, Geometry&& geometry,
              WorkerPool* pool = nullptr) {
        first_ = first;
        count_ = count;
        hasValid_ = false;
        if (reader.Direct()) {
            ForEachPiece(pool, count, [&](std::size_t j) {
                reader.ReadDirect(geometry(first + static_cast<std::uint32_t>(j)),
                                  [&](std::size_t i) { return Plane(static_cast<std::uint32_t>(j), i); });
            });
            return;
        }
        for (std::uint32_t j = 0; j < count; ++j) {
            reader.Read(geometry(first + j));
            for (std::size_t i = 0; i < bands_; ++i) std::copy_n(reader.Band(i), pixels_, Plane(j, i));
            if (const std::uint8_t* valid = reader.Valid()) {
                hasValid_ = true;
                std::copy_n(valid, pixels_, valid_.data() + static_cast<std::size_t>(j) * pixels_);
            }
        }
    }

    std::uint32_t First() const { return first_; }
    std::uint32_t Count() const { return count_; }
    const T* Band(std::uint32_t j, std::size_t i) const { return const_cast<BlockBatch*>(this)->Plane(j, i); }
    // Non-zero where the pixel is valid, or null when every pixel is.
    const std::uint8_t* Valid(std::uint32_t j) const {
        return hasValid_ ? valid_.data() + static_cast<std::size_t>(j) * pixels_ : nullptr;
    }

    // Block j of the batch as a reader of one block: what a member pass visits.
    struct View {
        const BlockBatch* batch;
        std::uint32_t j;
        const T* Band(std::size_t i) const { return batch->Band(j, i); }
    };
    View Block(std::uint32_t j) const { return {this, j}; }

private:
    T* Plane(std::uint32_t j, std::size_t i) {
        return values_.data() + (static_cast<std::size_t>(j) * bands_ + i) * pixels_;
    }

    std::size_t bands_, pixels_;
    std::uint32_t capacity_ = 1, first_ = 0, count_ = 0;
    bool hasValid_ = false;
    std::vector<T> values_;
    std::vector<std::uint8_t> valid_;
};

} // namespace isodata
