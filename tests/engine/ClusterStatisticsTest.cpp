// Centres recomputed from the members the scratch files hold, and the mean
// distances.
#include "EngineHarness.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>

namespace {

using enginetest::EngineHarness;
using enginetest::OneBand;

template <class T>
class ClusterStatisticsTypedTest : public ::testing::Test {};
using PixelTypes = ::testing::Types<std::uint8_t, std::uint16_t, std::int16_t, std::uint32_t, std::int32_t, float,
                                    double>;
TYPED_TEST_SUITE(ClusterStatisticsTypedTest, PixelTypes);

template <class T>
bool IsEmptyClusterCentre(T v) {
    if constexpr (std::is_floating_point_v<T>) return std::isnan(v);
    else if constexpr (std::is_same_v<T, std::int32_t>) return v == std::numeric_limits<std::int32_t>::min();
    else return v == 0;
}

TYPED_TEST(ClusterStatisticsTypedTest, CentreIsTheMemberMeanAndAnEmptyClusterGetsTheTypesNaNValue) {
    using T = TypeParam;
    EngineHarness<T> h;
    // Members 1 and 2 of cluster 0 (mean 1.5); nothing near centre 100. The
    // centre 2 lies above both pixels, so no unsigned difference wraps.
    h.Make(2, 1, OneBand({1, 2}), 2);
    h.ClassifyWith({{T(2)}, {T(100)}});
    h.engine->ComputeClusterCenters(h.Stage());
    h.engine->ComputeMeanDistances(h.Stage());
    if constexpr (std::is_floating_point_v<T>) EXPECT_EQ(h.engine->centers[0][0], T(1.5));
    else EXPECT_EQ(h.engine->centers[0][0], T(1));  // truncated, not rounded
    EXPECT_TRUE(IsEmptyClusterCentre(h.engine->centers[1][0])) << +h.engine->centers[1][0];
    EXPECT_EQ(h.engine->classPixelCounts, (std::vector<std::int32_t>{2, 0}));
    EXPECT_TRUE(std::isnan(h.engine->meanDistances[1]));
}

TEST(ClusterStatisticsTest, SumsReadMembersBlockByBlockInFileOrder) {
    EngineHarness<std::uint16_t> h;
    // 3 x 3 in 2 x 2 blocks; cluster 1 takes the values >= 500 spread over
    // all four blocks: 500, 600, 700, 800 -> mean 650.
    h.Make(3, 3, OneBand({500, 0, 600, 0, 0, 0, 700, 0, 800}), 2, 2);
    h.ClassifyWith({{0}, {650}});
    h.engine->ComputeClusterCenters(h.Stage());
    EXPECT_EQ(h.engine->classPixelCounts, (std::vector<std::int32_t>{5, 4}));
    EXPECT_EQ(h.engine->centers, (std::vector<std::vector<std::uint16_t>>{{0}, {650}}));
}

TEST(ClusterStatisticsTest, MembersOfAFileThatCannotBeWrittenReadAsIndexZero) {
    EngineHarness<std::uint8_t> h;
    // Cluster 1 takes 50 and 60, but a folder holds its file's name: its
    // members are read back as index 0 twice, the pixel 10.
    h.Make(3, 1, OneBand({10, 50, 60}), 2);
    std::filesystem::create_directory(h.dir.File("in1.km"));
    h.ClassifyWith({{0}, {55}});
    h.engine->ComputeClusterCenters(h.Stage());
    EXPECT_EQ(h.engine->classPixelCounts, (std::vector<std::int32_t>{1, 2}));
    EXPECT_EQ(h.engine->centers, (std::vector<std::vector<std::uint8_t>>{{10}, {10}}));
}

TEST(ClusterStatisticsTest, DivisionIsInSinglePrecision) {
    EngineHarness<double> h;
    // 1/3 in float widened back to double is not the double 1/3.
    h.Make(3, 1, OneBand({1, 0, 0}), 1);
    h.ClassifyWith({{0.0}});
    h.engine->ComputeClusterCenters(h.Stage());
    EXPECT_EQ(h.engine->centers[0][0], static_cast<double>(1.0f / 3.0f));
    EXPECT_NE(h.engine->centers[0][0], 1.0 / 3.0);
}

TEST(ClusterStatisticsTest, MeanDistanceProgressEndsShortOfOneHundred) {
    EngineHarness<float> h;
    h.Make(3, 1, OneBand({1, 5, 9}), 3);
    h.ClassifyWith({{0.0f}, {5.0f}, {10.0f}});
    h.engine->ComputeClusterCenters(h.Stage());
    h.reports.clear();
    h.engine->ComputeMeanDistances(h.Stage());
    ASSERT_EQ(h.reports.size(), 4u);
    EXPECT_EQ(h.reports.front().percent, 0.0);
    EXPECT_DOUBLE_EQ(h.reports.back().percent, 75.0);  // K * 100 / (K + 1)
    // Cluster 0 never accumulates a distance; cluster 2's member is 1 away.
    EXPECT_EQ(h.engine->meanDistances, (std::vector<double>{0.0, 0.0, 1.0}));
}

} // namespace
