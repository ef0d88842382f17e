// The "|"-separated band list of the command-style entry: every piece, empty
// ones included, becomes one 0-based index.
#include "BandList.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace {

struct BandListCase {
    const char* name;
    std::string list;
    std::vector<std::int32_t> expected;
};
void PrintTo(const BandListCase& c, std::ostream* os) { *os << c.name; }

class ParseBandListTest : public ::testing::TestWithParam<BandListCase> {};

TEST_P(ParseBandListTest, GivesOneIndexPerPiece) {
    EXPECT_EQ(isodata::ParseBandList(GetParam().list), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Lists, ParseBandListTest,
    ::testing::Values(BandListCase{"SingleBand", "7", {7}},
                      BandListCase{"ThreeBandsInOrder", "2|0|1", {2, 0, 1}},
                      BandListCase{"AdjacentSeparatorsGiveZeroBetween", "1||3", {1, 0, 3}},
                      BandListCase{"EmptyListGivesOneZero", "", {0}},
                      BandListCase{"NonNumericPieceGivesZero", "2|x|5", {2, 0, 5}},
                      BandListCase{"TrailingSeparatorGivesTrailingZero", "4|", {4, 0}},
                      BandListCase{"LeadingSeparatorGivesLeadingZero", "|4", {0, 4}},
                      BandListCase{"OnlySeparatorGivesTwoZeros", "|", {0, 0}},
                      BandListCase{"NumberPrefixIsTaken", "12abc| 3", {12, 3}},
                      BandListCase{"NegativeNumberIsKept", "-1|2", {-1, 2}},
                      BandListCase{"OtherSeparatorsAreNotSplit", "1,2;3", {1}}),
    [](const ::testing::TestParamInfo<BandListCase>& info) { return std::string(info.param.name); });

} // namespace
