// The bands a list names, each read once: a list of 0-based band indices,
// possibly repeating a band or naming one the dataset lacks, becomes the
// 1-based band numbers of one multi-band read and, for every list entry, the
// place of its band in that read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace isodata {

class BandSlots {
public:
    static constexpr std::size_t kMissing = static_cast<std::size_t>(-1);

    BandSlots(int bandsInDataset, const std::vector<std::uint32_t>& bandIndices);

    // Band numbers to read, first mention first; GDAL's band-map type.
    std::vector<int>& BandMap() { return bandMap_; }
    const std::vector<int>& BandMap() const { return bandMap_; }
    std::size_t Count() const { return bandMap_.size(); }
    // Place in the read of the list's entry-th band, or kMissing.
    std::size_t SlotOf(std::size_t entry) const { return slotOf_[entry]; }

private:
    std::vector<int> bandMap_;
    std::vector<std::size_t> slotOf_;
};

} // namespace isodata
