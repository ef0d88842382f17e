// The split: which cluster is split, and where its two new centres land.
#include "EngineHarness.h"

#include <gtest/gtest.h>

namespace {

using enginetest::EngineHarness;
using enginetest::OneBand;

// Classifies with the given centres, then fixes the statistics the split
// test reads so each case controls them.
template <class T>
void Prepare(EngineHarness<T>& h, std::vector<std::vector<T>> centers, std::vector<double> meanDistances,
             double overall, double threshold, std::int64_t minPixels) {
    h.ClassifyWith(std::move(centers));
    h.engine->ComputeClusterCenters(h.Stage());
    h.engine->centers = {};
    h.engine->meanDistances = std::move(meanDistances);
    h.engine->overallMeanDistance = overall;
    h.engine->stdDevThreshold = threshold;
    h.engine->minClassPixels = minPixels;
}

TEST(SplitClustersTest, ByteCentresWrapAroundWhenMovedByHalfSigma) {
    EngineHarness<std::uint8_t> h;
    // Two members at 230 around a centre of 250: sigma 20.
    h.Make(2, 1, OneBand({230, 230}), 1);
    Prepare(h, {{240}}, {1.0}, 0.0, 5.0, 0);
    h.engine->centers = {{250}};
    ASSERT_TRUE(h.engine->SplitClusters(h.Stage()));
    EXPECT_EQ(h.engine->centers, (std::vector<std::vector<std::uint8_t>>{{4}, {240}}));  // 260 wraps to 4
    EXPECT_EQ(h.engine->classSlots, 3u);
    EXPECT_EQ(h.engine->classStdDevs[0][0], 20.0);
}

TEST(SplitClustersTest, EveryBandMovesByHalfTheLargestDeviation) {
    EngineHarness<float> h;
    // Band 0 deviates by 8, band 1 by 2: both centres move by 4 in both bands.
    h.Make(2, 1, {{2, 18}, {8, 12}}, 1);
    Prepare(h, {{10, 10}}, {1.0}, 0.0, 1.0, 0);
    h.engine->centers = {{10.0f, 10.0f}};
    ASSERT_TRUE(h.engine->SplitClusters(h.Stage()));
    EXPECT_EQ(h.engine->centers, (std::vector<std::vector<float>>{{14.0f, 14.0f}, {6.0f, 6.0f}}));
    EXPECT_EQ(h.engine->classStdDevs[0], (std::vector<double>{8.0, 2.0}));  // sorted, largest first
}

// Cluster 0: 21 members, sigma 10 (values 0/20 about 10). Cluster 1:
// 4 members (150/250 about 200, sigma 50) or (190/210, sigma 10 < 50).
class SplitSizeBoundTest : public ::testing::Test {
protected:
    void Make(double low, double high) {
        std::vector<double> v;
        for (int i = 0; i < 21; ++i) v.push_back(i % 2 ? 20.0 : 0.0);
        v.insert(v.end(), {low, high, low, high});
        h.Make(25, 1, OneBand(v), 2);
        // Mean distances never above the overall mean: only the size can pass.
        Prepare(h, {{10}, {200}}, {1.0, 1.0}, 5.0, 5.0, 10);
        h.engine->centers = {{10}, {200}};
    }
    EngineHarness<std::uint8_t> h;
};

TEST_F(SplitSizeBoundTest, ClusterBeforeTheWidestNeedsMoreThanTwiceTheMinimumPlusTwo) {
    Make(150, 250);  // cluster 1 is the widest; cluster 0 is reached by the wrap-around: 21 <= 22
    EXPECT_FALSE(h.engine->SplitClusters(h.Stage()));
    EXPECT_EQ(h.engine->centers, (std::vector<std::vector<std::uint8_t>>{{10}, {200}}));
    EXPECT_EQ(h.engine->classSlots, 3u);
}

TEST_F(SplitSizeBoundTest, ClusterFromTheWidestOnNeedsMoreThanTwiceTheMinimum) {
    Make(195, 205);  // cluster 0 is the widest and passes: 21 > 20
    ASSERT_TRUE(h.engine->SplitClusters(h.Stage()));
    EXPECT_EQ(h.engine->centers, (std::vector<std::vector<std::uint8_t>>{{15}, {5}, {200}}));
}

TEST(SplitClustersTest, LaterClusterPassingIsSplitEvenWhenAnEarlierOneWouldPass) {
    EngineHarness<std::int16_t> h;
    // Sigmas 4, 10, 6; the widest (1) fails on distance and size, so the
    // forward scan goes on to cluster 2 before any wrap-around to 0.
    h.Make(6, 1, OneBand({-4, 4, 90, 110, 294, 306}), 3);
    Prepare(h, {{0}, {100}, {300}}, {9.0, 1.0, 9.0}, 5.0, 3.0, 100);
    h.engine->centers = {{0}, {100}, {300}};
    ASSERT_TRUE(h.engine->SplitClusters(h.Stage()));
    EXPECT_EQ(h.engine->centers, (std::vector<std::vector<std::int16_t>>{{0}, {100}, {303}, {297}}));
}

TEST(SplitClustersTest, EmptyClusterIsNeverSplit) {
    EngineHarness<float> h;
    h.Make(2, 1, OneBand({1, 1}), 2);
    Prepare(h, {{1}, {90}}, {0.0, 9.0}, 0.0, 0.0, 0);
    h.engine->centers = {{1.0f}, {90.0f}};
    // Cluster 1 has no member: its deviation is NaN and fails every test.
    EXPECT_FALSE(h.engine->SplitClusters(h.Stage()));
    EXPECT_TRUE(std::isnan(h.engine->classStdDevs[1][0]));
}

} // namespace
