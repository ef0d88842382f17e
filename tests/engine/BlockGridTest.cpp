// The block grid, and the clipped extents of its first, next-to-last and last
// blocks (right column, bottom row, corner).
#include "EngineHarness.h"

#include <tuple>

namespace {

TEST(BlockGridTest, LaysAtMostFiftyBlocksPerSideInMultiplesOfSixteenAndClipsTheEdges) {
    using Extent = std::pair<int, int>;
    const struct { int width, height, side, columns, rows; Extent first, nextToLast, last; } cases[] = {
        {100, 100, 64, 2, 2, {64, 64}, {64, 36}, {36, 36}},
        {50, 200, 64, 1, 4, {50, 64}, {50, 64}, {50, 8}},  // a single column is all right edge
        {3200, 3200, 64, 50, 50, {64, 64}, {64, 64}, {64, 64}},  // exactly 50 fit
        {3200, 3264, 80, 40, 41, {80, 80}, {80, 64}, {80, 64}},  // 51 rows: recomputed from the height
        {10000, 8000, 208, 49, 39, {208, 208}, {208, 96}, {16, 96}},
        {8000, 10000, 208, 39, 49, {208, 208}, {208, 16}, {96, 16}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
        isodata::IsodataEngine<float> engine;
        isodata::EngineTestSeam<float> seam(engine);
        isodata::EngineState& s = seam.State();
        s.width = c.width;
        s.height = c.height;
        seam.InitBlockGrid();
        EXPECT_EQ(std::make_tuple(s.blockWidth, s.blockHeight, s.blockColumns, s.blockRows, s.blockCount),
                  std::make_tuple(c.side, c.side, c.columns, c.rows, static_cast<std::uint32_t>(c.columns * c.rows)));
        const auto extent = [&](std::uint32_t b) { return Extent(seam.Block(b).w, seam.Block(b).h); };
        EXPECT_EQ(std::make_tuple(extent(0), extent(s.blockCount - 2), extent(s.blockCount - 1)),
                  std::make_tuple(c.first, c.nextToLast, c.last));
    }
}

} // namespace
