// The block grid and the clipped extent of every block.
#include "IsodataEngine.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

using Engine = isodata::IsodataEngine<float>;

struct GridCase {
    int width, height;
    int side, columns, rows;
};

class BlockGridTest : public ::testing::TestWithParam<GridCase> {};

TEST_P(BlockGridTest, LaysAtMostFiftyBlocksPerSideInMultiplesOfSixteen) {
    const GridCase c = GetParam();
    Engine e(stInfoClassificationISO{});
    e.width = c.width;
    e.height = c.height;
    e.InitBlockGrid();
    EXPECT_EQ(e.blockWidth, c.side);
    EXPECT_EQ(e.blockHeight, c.side);
    EXPECT_EQ(e.blockColumns, c.columns);
    EXPECT_EQ(e.blockRows, c.rows);
    EXPECT_EQ(e.blockCount, static_cast<std::uint32_t>(c.columns * c.rows));
}

INSTANTIATE_TEST_SUITE_P(Examples, BlockGridTest,
                         ::testing::Values(GridCase{100, 100, 64, 2, 2},       // nominal blocks kept
                                           GridCase{3200, 3200, 64, 50, 50},   // exactly 50 fits
                                           GridCase{3200, 3264, 80, 40, 41},   // 51 rows: recomputed from the height
                                           GridCase{10000, 8000, 208, 49, 39}, // recomputed from the width
                                           GridCase{8000, 10000, 208, 39, 49},
                                           GridCase{1, 1, 64, 1, 1}));

struct Extent {
    int b, x0, y0, w, h;
    bool partial;
};

void ExpectExtents(Engine& e, const std::vector<Extent>& expected) {
    ASSERT_EQ(e.blockCount, expected.size());
    for (const Extent& x : expected) {
        const isodata::BlockGeometry g = e.Block(static_cast<std::uint32_t>(x.b));
        EXPECT_EQ(std::make_tuple(g.x0, g.y0, g.w, g.h, g.partial), std::make_tuple(x.x0, x.y0, x.w, x.h, x.partial))
            << "block " << x.b;
    }
}

TEST(BlockExtentTest, ClipsTheRightColumnTheBottomRowAndTheLastBlock) {
    Engine e(stInfoClassificationISO{});
    e.width = 100;
    e.height = 100;
    e.InitBlockGrid();
    ExpectExtents(e, {{0, 0, 0, 64, 64, false}, {1, 64, 0, 36, 64, true}, {2, 0, 64, 64, 36, true},
                      {3, 64, 64, 36, 36, true}});
}

TEST(BlockExtentTest, SingleColumnClipsEveryBlockToTheImageWidth) {
    Engine e(stInfoClassificationISO{});
    e.width = 50;
    e.height = 200;
    e.InitBlockGrid();
    ExpectExtents(e, {{0, 0, 0, 50, 64, true}, {1, 0, 64, 50, 64, true}, {2, 0, 128, 50, 64, true},
                      {3, 0, 192, 50, 8, true}});
}

} // namespace
