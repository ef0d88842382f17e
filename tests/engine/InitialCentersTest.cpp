// Sampling and farthest-first choice of the initial centres. One-pixel blocks
// make every pixel a sample, so the samples are laid out by hand.
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

TEST(InitialCentersTest, SamplesAreTheTopLeftPixelOfEveryBlockAndExtentsAreRecorded) {
    EngineHarness<std::uint16_t> h;
    // 5 x 3 in 4 x 2 blocks: top-left pixels at (0,0), (4,0), (0,2), (4,2).
    std::vector<double> v(15);
    for (int i = 0; i < 15; ++i) v[i] = 100 + i;
    h.Make(5, 3, OneBand(v), 1, 4);
    h.state.blockHeight = 2;
    h.seam.InitBlockGrid();
    h.seam.SampleBlocks(h.Stage());
    EXPECT_EQ(h.seam.Samples()[0], (std::vector<std::uint16_t>{100, 104, 110, 114}));
    EXPECT_EQ(h.state.blockPixelWidths, (std::vector<std::uint32_t>{4, 1, 4, 1}));
    EXPECT_EQ(h.state.blockPixelHeights, (std::vector<std::uint32_t>{2, 2, 1, 1}));
    EXPECT_EQ(h.state.blockPixelCounts, (std::vector<std::uint32_t>{8, 2, 4, 1}));
}

} // namespace
