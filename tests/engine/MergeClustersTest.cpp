// The merge works on centres and per-block counts only, so each case sets
// them directly.
#include "IsodataEngine.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

template <class T>
struct MergeCase {
    isodata::IsodataEngine<T> engine{stInfoClassificationISO{}};

    // One band per centre; counts[c] pixels of cluster c, spread over two
    // blocks to exercise the per-block sum.
    MergeCase(std::vector<T> centres, std::vector<std::uint32_t> counts, double threshold,
              std::uint64_t maxPairs = 10, std::uint64_t desired = 0) {
        for (T c : centres) engine.centers.push_back({c});
        engine.classSlots = centres.size() + 1;
        engine.classCount = centres.size();
        engine.blockCount = 2;
        engine.blockClassCounts.assign(2, std::vector<std::uint32_t>(centres.size(), 0));
        for (std::size_t c = 0; c < counts.size(); ++c) {
            engine.blockClassCounts[0][c] = counts[c] / 2;
            engine.blockClassCounts[1][c] = counts[c] - counts[c] / 2;
        }
        engine.mergeDistanceThreshold = threshold;
        engine.maxMergePairs = maxPairs;
        engine.desiredClassCount = desired;
    }

    std::vector<T> Centres() const {
        std::vector<T> out;
        for (const auto& c : engine.centers) out.push_back(c[0]);
        return out;
    }
};

template <class T>
class MergeTypedTest : public ::testing::Test {};
using PixelTypes = ::testing::Types<std::uint8_t, std::uint16_t, std::int16_t, std::uint32_t, std::int32_t, float,
                                    double>;
TYPED_TEST_SUITE(MergeTypedTest, PixelTypes);

// Centres are listed in descending order so that no unsigned 32-bit
// difference wraps; the wrap has a test of its own.
TYPED_TEST(MergeTypedTest, EqualSizesRemoveTheHigherNumberedClusterAndKeepTheOther) {
    MergeCase<TypeParam> m({100, 20, 10}, {4, 4, 4}, 15.0);
    EXPECT_TRUE(m.engine.MergeClusters());
    EXPECT_EQ(m.Centres(), (std::vector<TypeParam>{100, 20}));
    EXPECT_EQ(m.engine.classSlots, 3u);
}

TYPED_TEST(MergeTypedTest, LargerLowerClusterIsRemovedAndLaterClustersMoveDown) {
    MergeCase<TypeParam> m({100, 20, 10}, {1, 6, 2}, 15.0);
    EXPECT_TRUE(m.engine.MergeClusters());
    EXPECT_EQ(m.Centres(), (std::vector<TypeParam>{100, 10}));
}

TYPED_TEST(MergeTypedTest, APairIsProcessedEvenWhenOneOfItsClustersWasAlreadyMerged) {
    // A=25, B=10, C=0: BC (10) first, then AB (15) although B took part.
    MergeCase<TypeParam> m({25, 10, 0}, {2, 2, 2}, 20.0);
    ASSERT_TRUE(m.engine.MergeClusters());
    EXPECT_EQ(m.Centres(), (std::vector<TypeParam>{25}));
    EXPECT_EQ(m.engine.classSlots, 2u);
}

TYPED_TEST(MergeTypedTest, AClusterMarkedTwiceIsRemovedOnceButCountsTwice) {
    // A (5 pixels, the middle one) is larger than B and C: both of its pairs
    // mark it; B and C are too far apart to pair.
    MergeCase<TypeParam> m({20, 10, 0}, {1, 5, 1}, 15.0);
    ASSERT_TRUE(m.engine.MergeClusters());
    EXPECT_EQ(m.Centres(), (std::vector<TypeParam>{20, 0}));
    EXPECT_EQ(m.engine.classSlots, 2u);  // one slot fewer than centres kept
}

TYPED_TEST(MergeTypedTest, AtTheThresholdOrWithoutPairsNothingChanges) {
    MergeCase<TypeParam> atThreshold({20, 0}, {3, 3}, 20.0);
    EXPECT_FALSE(atThreshold.engine.MergeClusters());
    EXPECT_EQ(atThreshold.Centres(), (std::vector<TypeParam>{20, 0}));
    MergeCase<TypeParam> noPairs({5, 0}, {3, 3}, 20.0, 0);
    EXPECT_FALSE(noPairs.engine.MergeClusters());
    EXPECT_EQ(noPairs.Centres(), (std::vector<TypeParam>{5, 0}));
    EXPECT_EQ(noPairs.engine.classSlots, 3u);
}

TYPED_TEST(MergeTypedTest, StopsWhenTheSlotsReachHalfTheDesiredCount) {
    // Six clusters, 7 slots, desired 10: after two pairs 5 <= 10 / 2, although
    // every pair is a candidate and the pair limit allows ten.
    MergeCase<TypeParam> m({60, 46, 33, 21, 10, 0}, {1, 1, 1, 1, 1, 1}, 100.0, 10, 10);
    ASSERT_TRUE(m.engine.MergeClusters());
    EXPECT_EQ(m.engine.classSlots, 5u);
    EXPECT_EQ(m.Centres(), (std::vector<TypeParam>{60, 46, 33, 21}));
}

TYPED_TEST(MergeTypedTest, TwoEmptyClustersDoNotCrash) {
    MergeCase<TypeParam> m({12, 10}, {0, 0}, 5.0);
    ASSERT_TRUE(m.engine.MergeClusters());
    EXPECT_EQ(m.Centres(), (std::vector<TypeParam>{12}));  // cluster j went, i stayed
}

TEST(MergeClustersTest, UnsignedDifferencesWrapSoOrderMatters) {
    // 5 - 10 wraps to 2^32 - 5: no candidate. 10 - 5 = 5: merged.
    MergeCase<std::uint32_t> wraps({5, 10}, {1, 1}, 100.0);
    EXPECT_FALSE(wraps.engine.MergeClusters());
    MergeCase<std::uint32_t> plain({10, 5}, {1, 1}, 100.0);
    EXPECT_TRUE(plain.engine.MergeClusters());
}

TEST(MergeClustersTest, EuclideanDistanceOverBands) {
    isodata::IsodataEngine<double> e{stInfoClassificationISO{}};
    e.centers = {{0.0, 0.0}, {3.0, 4.0}};  // 5 apart (city-block 7)
    e.classSlots = 3;
    e.blockCount = 1;
    e.blockClassCounts = {{1, 1}};
    e.maxMergePairs = 1;
    e.mergeDistanceThreshold = 5.5;
    EXPECT_TRUE(e.MergeClusters());
    e.centers = {{0.0, 0.0}, {3.0, 4.0}};
    e.classSlots = 3;
    e.mergeDistanceThreshold = 5.0;
    EXPECT_FALSE(e.MergeClusters());
}

} // namespace
