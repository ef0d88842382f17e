// Centres recomputed from the members the scratch files hold, and the mean
// distances.
#include "EngineHarness.h"

#include <GdalSession.h>

#include <cmath>
#include <filesystem>
#include <limits>

namespace {

using enginetest::EngineHarness;
using enginetest::OneBand;

template <class T>
class ClusterStatisticsTypedTest : public ::testing::Test {};
TYPED_TEST_SUITE(ClusterStatisticsTypedTest, enginetest::PixelTypes);

TYPED_TEST(ClusterStatisticsTypedTest, CentreIsTheMeanInSinglePrecisionAndAnEmptyClusterGetsTheTypesNaNValue) {
    using T = TypeParam;
    EngineHarness<T> h;
    // Members 1, 2 and 2 of cluster 0 (mean 5/3); nothing near centre 100.
    // The centre 2 lies above every pixel, so no unsigned difference wraps.
    h.Make(3, 1, OneBand({1, 2, 2}), 2);
    h.ClassifyWith({{T(2)}, {T(100)}});
    h.seam.ComputeClusterCenters(h.Stage());
    h.seam.ComputeMeanDistances(h.Stage());
    if constexpr (std::is_floating_point_v<T>) {
        // The float nearest 5/3, for double too: 13981013 / 2^23.
        EXPECT_EQ(h.seam.Centers()[0][0], T(1.66666662693023681640625));
        EXPECT_TRUE(std::isnan(h.seam.Centers()[1][0]));
    } else {
        EXPECT_EQ(h.seam.Centers()[0][0], T(1));  // truncated, not rounded
        // NaN converts to the lowest integer of the conversion's width.
        const T nanCentre = std::is_same_v<T, std::int32_t> ? std::numeric_limits<T>::min() : T(0);
        EXPECT_EQ(h.seam.Centers()[1][0], nanCentre);
    }
    EXPECT_EQ(h.state.classPixelCounts, (std::vector<std::int32_t>{3, 0}));
    EXPECT_TRUE(std::isnan(h.state.meanDistances[1]));
}

TEST(ClusterStatisticsTest, SumsReadMembersBlockByBlockInFileOrder) {
    EngineHarness<std::uint16_t> h;
    // 3 x 3 in 2 x 2 blocks; cluster 1 takes the values >= 500 spread over
    // all four blocks: 500, 600, 700, 800 -> mean 650.
    h.Make(3, 3, OneBand({500, 0, 600, 0, 0, 0, 700, 0, 800}), 2, 2);
    h.ClassifyWith({{0}, {650}});
    h.seam.ComputeClusterCenters(h.Stage());
    EXPECT_EQ(h.state.classPixelCounts, (std::vector<std::int32_t>{5, 4}));
    EXPECT_EQ(h.seam.Centers(), (std::vector<std::vector<std::uint16_t>>{{0}, {650}}));
}

TEST(ClusterStatisticsTest, MembersOfAFileThatCannotBeWrittenReadAsIndexZero) {
    EngineHarness<std::uint8_t> h;
    // Cluster 1 takes 50 and 60, but a folder holds its file's name: its
    // members are read back as index 0 twice, the pixel 10.
    h.Make(3, 1, OneBand({10, 50, 60}), 2);
    std::filesystem::create_directory(h.dir.File("in1.km"));
    const isodata::QuietGdalErrors quiet;  // the failed write is also reported to GDAL
    h.ClassifyWith({{0}, {55}});
    h.seam.ComputeClusterCenters(h.Stage());
    EXPECT_EQ(h.state.classPixelCounts, (std::vector<std::int32_t>{1, 2}));
    EXPECT_EQ(h.seam.Centers(), (std::vector<std::vector<std::uint8_t>>{{10}, {10}}));
}

TEST(ClusterStatisticsTest, MeanDistanceProgressEndsShortOfOneHundred) {
    EngineHarness<float> h;
    h.Make(3, 1, OneBand({1, 5, 9}), 3);
    h.ClassifyWith({{0.0f}, {5.0f}, {10.0f}});
    h.seam.ComputeClusterCenters(h.Stage());
    h.reports.clear();
    h.seam.ComputeMeanDistances(h.Stage());
    // Steps of 100 / (K + 1): 0, 25, 50, 75.
    ASSERT_EQ(h.reports.size(), 4u);
    EXPECT_DOUBLE_EQ(h.reports.back().first, 75.0);
    // Cluster 0 never accumulates a distance; cluster 2's member is 1 away.
    EXPECT_EQ(h.state.meanDistances, (std::vector<double>{0.0, 0.0, 1.0}));
}

} // namespace
