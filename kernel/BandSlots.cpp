// Band list to band map: repeated bands share a slot, absent ones have none.
#include "BandSlots.h"

#include <algorithm>

namespace isodata {

BandSlots::BandSlots(int bandsInDataset, const std::vector<std::uint32_t>& bandIndices) {
    for (std::uint32_t index : bandIndices) {
        if (static_cast<std::int64_t>(index) >= bandsInDataset) {
            slotOf_.push_back(kMissing);
            continue;
        }
        const int number = static_cast<int>(index) + 1;
        const auto found = std::find(bandMap_.begin(), bandMap_.end(), number);
        slotOf_.push_back(static_cast<std::size_t>(found - bandMap_.begin()));
        if (found == bandMap_.end()) bandMap_.push_back(number);
    }
}

} // namespace isodata
