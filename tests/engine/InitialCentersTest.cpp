// Farthest-first choice of the initial centres. One-pixel blocks make every
// pixel a sample, so the samples are laid out by hand. (Which pixel of a
// larger block is sampled shows in the golden run; the extents the sampling
// pass records, in the classification tests.)
#include "EngineHarness.h"

namespace {

using enginetest::EngineHarness;
using enginetest::OneBand;

template <class T>
std::vector<std::vector<T>> Choose(EngineHarness<T>& h) {
    h.seam.SelectInitialCenters(h.Stage());
    return h.seam.Centers();
}

TEST(InitialCentersTest, StartsFromTheMostCentralSampleThenTakesTheFarthest) {
    EngineHarness<std::uint8_t> h;
    // Largest distances: 190, 180, 170, 190, 100, so 100 is most central;
    // then 200 lies farthest from it, then 10 from both.
    h.Make(5, 1, OneBand({10, 20, 30, 200, 100}), 3, 1);
    EXPECT_EQ(Choose(h), (std::vector<std::vector<std::uint8_t>>{{100}, {200}, {10}}));
}

TEST(InitialCentersTest, ByteDistancesWrapSoAFarPairCanLookClose) {
    EngineHarness<std::uint8_t> h;
    // Samples A(0,0), B(200,200), C(150,0): AB = 400 mod 256 = 144, AC = 150,
    // BC = 250. A is most central; C, not B, is farthest from it.
    h.Make(3, 1, {{0, 200, 150}, {0, 200, 0}}, 2, 1);
    EXPECT_EQ(Choose(h), (std::vector<std::vector<std::uint8_t>>{{0, 0}, {150, 0}}));
}

TEST(InitialCentersTest, TiesGoToTheLowerSampleAndNoClusterLeavesNoCentre) {
    EngineHarness<float> one, none;
    // Largest distances 9, 5, 5, 9: the first of the two central samples.
    one.Make(4, 1, OneBand({0.0, 4.0, 5.0, 9.0}), 1, 1);
    EXPECT_EQ(Choose(one), (std::vector<std::vector<float>>{{4.0f}}));
    none.Make(3, 1, OneBand({1.0, 2.0, 3.0}), 0, 1);
    EXPECT_TRUE(Choose(none).empty());
}

} // namespace
