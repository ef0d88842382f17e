// Farthest-first choice of the initial centres. One-pixel blocks make every
// pixel a sample, so the samples are laid out by hand. (Which pixel of a
// larger block is sampled shows in the golden run; the extents the sampling
// pass records, in the classification tests.)
#include "EngineHarness.h"

namespace {

using enginetest::OneBand;
template <class T>
using Centres = std::vector<std::vector<T>>;

// The centres chosen from one row of one-pixel blocks.
template <class T>
Centres<T> Choose(const testsupport::BandValues& row, std::int32_t clusters) {
    enginetest::EngineHarness<T> h;
    h.Make(static_cast<int>(row[0].size()), 1, row, clusters, 1);
    h.seam.SelectInitialCenters(h.Stage());
    return h.seam.Centers();
}

TEST(InitialCentersTest, StartsFromTheMostCentralSampleThenTakesTheFarthest) {
    // Largest distances: 190, 180, 170, 190, 100, so 100 is most central;
    // then 200 lies farthest from it, then 10 from both.
    EXPECT_EQ(Choose<std::uint8_t>(OneBand({10, 20, 30, 200, 100}), 3), (Centres<std::uint8_t>{{100}, {200}, {10}}));
}

TEST(InitialCentersTest, ByteDistancesWrapSoAFarPairCanLookClose) {
    // Samples A(0,0), B(200,200), C(150,0): AB = 400 mod 256 = 144, AC = 150,
    // BC = 250. A is most central; C, not B, is farthest from it.
    EXPECT_EQ(Choose<std::uint8_t>({{0, 200, 150}, {0, 200, 0}}, 2), (Centres<std::uint8_t>{{0, 0}, {150, 0}}));
}

TEST(InitialCentersTest, TiesGoToTheLowerSampleAndNoClusterLeavesNoCentre) {
    // Largest distances 9, 5, 5, 9: the first of the two central samples.
    EXPECT_EQ(Choose<float>(OneBand({0.0, 4.0, 5.0, 9.0}), 1), (Centres<float>{{4.0f}}));
    EXPECT_TRUE(Choose<float>(OneBand({1.0, 2.0, 3.0}), 0).empty());
}

} // namespace
