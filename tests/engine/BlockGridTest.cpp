// The block grid and the clipped extent of every block.
#include "EngineHarness.h"

#include <tuple>

namespace {

struct Grid {
    isodata::IsodataEngine<float> engine;
    isodata::EngineTestSeam<float> seam{engine};
    Grid(int width, int height) {
        seam.State().width = width;
        seam.State().height = height;
        seam.InitBlockGrid();
    }
};

TEST(BlockGridTest, LaysAtMostFiftyBlocksPerSideInMultiplesOfSixteen) {
    const struct { int width, height, side, columns, rows; } cases[] = {
        {100, 100, 64, 2, 2},       {3200, 3200, 64, 50, 50},  // exactly 50 fit
        {3200, 3264, 80, 40, 41},   // 51 rows: recomputed from the height
        {10000, 8000, 208, 49, 39}, {8000, 10000, 208, 39, 49}, {1, 1, 64, 1, 1}};
    for (const auto& c : cases) {
        const isodata::EngineState& s = Grid(c.width, c.height).seam.State();
        EXPECT_EQ(std::make_tuple(s.blockWidth, s.blockHeight, s.blockColumns, s.blockRows, s.blockCount),
                  std::make_tuple(c.side, c.side, c.columns, c.rows, static_cast<std::uint32_t>(c.columns * c.rows)))
            << c.width << " x " << c.height;
    }
}

TEST(BlockGridTest, ClipsTheRightColumnTheBottomRowAndTheLastBlock) {
    // (b, x0, y0, w, h, partial) of every block: a 2 x 2 grid, then a single
    // column narrower than a block.
    using Extent = std::tuple<std::uint32_t, int, int, int, int, bool>;
    const struct { int width, height; std::vector<Extent> extents; } cases[] = {
        {100, 100, {{0, 0, 0, 64, 64, false}, {1, 64, 0, 36, 64, true}, {2, 0, 64, 64, 36, true},
                    {3, 64, 64, 36, 36, true}}},
        {50, 200, {{0, 0, 0, 50, 64, true}, {1, 0, 64, 50, 64, true}, {2, 0, 128, 50, 64, true},
                   {3, 0, 192, 50, 8, true}}}};
    for (const auto& c : cases) {
        Grid grid(c.width, c.height);
        EXPECT_EQ(grid.seam.State().blockCount, c.extents.size());
        for (const Extent& e : c.extents) {
            const isodata::BlockGeometry g = grid.seam.Block(std::get<0>(e));
            EXPECT_EQ(std::make_tuple(std::get<0>(e), g.x0, g.y0, g.w, g.h, g.partial), e);
        }
    }
}

} // namespace
