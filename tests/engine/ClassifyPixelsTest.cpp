// The assignment pass: nearest centre, ties, block strides, scratch files
// and distance sums. (NaN pixels and the unsigned 32-bit wrap are the
// kernel's: NearestCentersTest, PixelTypesTest.)
#include "EngineHarness.h"

namespace {

using enginetest::EngineHarness;
using enginetest::OneBand;

TEST(ClassifyPixelsTest, RecordsCountsDistancesAndBlockRelativeIndicesPerCluster) {
    EngineHarness<std::uint8_t> h;
    // 5 x 3 pixels in 4 x 2 blocks: a whole block, a right-column block one
    // pixel wide, a bottom-row block one pixel high, and a 1 x 1 corner.
    h.Make(5, 3, OneBand({0, 100, 0, 100, 100, 100, 0, 0, 0, 0, 0, 0, 100, 100, 0}), 2, 4);
    h.state.blockHeight = 2;
    h.seam.InitBlockGrid();
    h.ClassifyWith({{10}, {90}});
    // Block 0: members of cluster 1 at (0,1), (0,3), (1,0); block 1 (one
    // column): rows 0 and 1 are indices 0 and 4; block 2: columns 2, 3.
    EXPECT_EQ(h.ScratchFile(0), (std::vector<std::uint32_t>{0, 2, 5, 6, 7, 4, 0, 1, 0}));
    EXPECT_EQ(h.ScratchFile(1), (std::vector<std::uint32_t>{1, 3, 4, 0, 2, 3}));
    EXPECT_TRUE(h.ScratchFile(2).empty());  // one file more than clusters, always empty
    EXPECT_EQ(h.state.blockClassCounts, (std::vector<std::vector<std::uint32_t>>{{5, 3}, {1, 1}, {2, 2}, {1, 0}}));
    // Six members of cluster 1 at distance 10; cluster 0's members, also 10
    // away, are never added.
    EXPECT_EQ(h.state.distanceSums, (std::vector<double>{0.0, 60.0}));
}

TEST(ClassifyPixelsTest, EqualDistanceGoesToTheLowerCluster) {
    EngineHarness<std::int16_t> h;
    h.Make(1, 1, OneBand({60}), 6);
    // Distances 40, 30, 10, 20, 25, 10: clusters 2 and 5 tie.
    h.ClassifyWith({{100}, {90}, {50}, {80}, {85}, {70}});
    EXPECT_EQ(h.state.blockClassCounts[0], (std::vector<std::uint32_t>{0, 0, 1, 0, 0, 0}));
}

TEST(ClassifyPixelsTest, IndicesBeyondOneBufferAreWrittenInOrderAndReadBackInAnyRuns) {
    EngineHarness<std::uint8_t> h;
    // One block of 300 x 300 = 90 000 pixels, all in cluster 0: more than
    // one buffer of 65 536 indices.
    h.Make(300, 300, OneBand(std::vector<double>(90000, 1.0)), 1, 300);
    h.ClassifyWith({{1}});
    const std::vector<std::uint32_t> indices = h.ScratchFile(0);
    ASSERT_EQ(indices.size(), 90000u);
    for (std::uint32_t i = 0; i < indices.size(); ++i) ASSERT_EQ(indices[i], i);
    // Runs that straddle the reader's 64 KiB read-ahead; past the end, zeros.
    h.state.classFiles.Rewind(0);
    std::vector<std::uint32_t> run;
    std::uint32_t next = 0;
    for (const std::uint32_t n : {16000u, 16385u, 57615u}) {
        h.state.classFiles.ReadNext(0, n, run);
        for (const std::uint32_t v : run) ASSERT_EQ(v, next++);
    }
    h.state.classFiles.ReadNext(0, 3, run);
    EXPECT_EQ(run, (std::vector<std::uint32_t>{0, 0, 0}));
}

} // namespace
