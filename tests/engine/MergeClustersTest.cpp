// The merge works on centres and per-block counts only, so each case sets
// them directly.
#include "EngineHarness.h"

namespace {

// An engine holding the given centres (one row each), counts[c] pixels of
// cluster c in a single block, and the merge controls.
template <class T>
struct Merge {
    Merge(std::vector<std::vector<T>> centres, std::vector<std::uint32_t> counts, double threshold,
          std::uint64_t maxPairs = 10, std::uint64_t desired = 0) {
        auto& s = seam.State();
        s.classSlots = centres.size() + 1;
        s.blockCount = 1;
        s.blockClassCounts = {counts};
        s.mergeDistanceThreshold = threshold;
        s.maxMergePairs = maxPairs;
        s.desiredClassCount = desired;
        seam.Centers() = std::move(centres);
    }
    isodata::IsodataEngine<T> engine;
    isodata::EngineTestSeam<T> seam{engine};
};

template <class T>
class MergeTypedTest : public ::testing::Test {};
TYPED_TEST_SUITE(MergeTypedTest, enginetest::PixelTypes);

// Centres are listed in descending order so that no unsigned 32-bit
// difference wraps; the wrap has a test of its own.
TYPED_TEST(MergeTypedTest, ClosestPairsFirstTheLargerClusterGoesAndSlotsFallPerPair) {
    using T = TypeParam;
    const struct {
        const char* name;
        std::vector<std::vector<T>> centres;
        std::vector<std::uint32_t> counts;
        double threshold;
        std::uint64_t maxPairs, desired;
        std::vector<std::vector<T>> after;
        std::uint64_t slotsAfter;  // classSlots afterwards
    } cases[] = {
        {"equal sizes: the higher number goes", {{100}, {20}, {10}}, {4, 4, 4}, 15.0, 10, 0, {{100}, {20}}, 3},
        {"the larger, lower cluster goes", {{100}, {20}, {10}}, {1, 6, 2}, 15.0, 10, 0, {{100}, {10}}, 3},
        {"a pair counts though one of it merged", {{25}, {10}, {0}}, {2, 2, 2}, 20.0, 10, 0, {{25}}, 2},
        {"marked twice: removed once, counted twice", {{20}, {10}, {0}}, {1, 5, 1}, 15.0, 10, 0, {{20}, {0}}, 2},
        {"at the threshold nothing merges", {{20}, {0}}, {3, 3}, 20.0, 10, 0, {{20}, {0}}, 3},
        {"a pair limit of 0 merges nothing", {{5}, {0}}, {3, 3}, 20.0, 0, 0, {{5}, {0}}, 3},
        {"stops at half the desired count", {{60}, {46}, {33}, {21}, {10}, {0}}, {1, 1, 1, 1, 1, 1}, 100.0, 10, 10,
         {{60}, {46}, {33}, {21}}, 5},
        {"two empty clusters: the second goes", {{12}, {10}}, {0, 0}, 5.0, 10, 0, {{12}}, 2}};
    for (const auto& c : cases) {
        Merge<T> m(c.centres, c.counts, c.threshold, c.maxPairs, c.desired);
        EXPECT_EQ(m.seam.MergeClusters(), c.slotsAfter < c.centres.size() + 1) << c.name;
        EXPECT_EQ(m.seam.Centers(), c.after) << c.name;
        EXPECT_EQ(m.seam.State().classSlots, c.slotsAfter) << c.name;
    }
}

TEST(MergeClustersTest, UnsignedDifferencesWrapAndDistanceIsEuclidean) {
    // 5 - 10 wraps to 2^32 - 5: no candidate. 10 - 5 = 5: merged.
    EXPECT_FALSE((Merge<std::uint32_t>({{5}, {10}}, {1, 1}, 100.0).seam.MergeClusters()));
    EXPECT_TRUE((Merge<std::uint32_t>({{10}, {5}}, {1, 1}, 100.0).seam.MergeClusters()));
    // (0, 0) and (3, 4) are 5 apart (city-block 7).
    EXPECT_TRUE((Merge<double>({{0, 0}, {3, 4}}, {1, 1}, 5.5).seam.MergeClusters()));
    EXPECT_FALSE((Merge<double>({{0, 0}, {3, 4}}, {1, 1}, 5.0).seam.MergeClusters()));
}

} // namespace
