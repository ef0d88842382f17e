// The per-type arithmetic the stage tests do not reach with small values:
// 32-bit wrap-arounds, truncations, NaN and overflow.
#include "PixelTypes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace isodata;

TEST(PixelTypesTest, ConversionsTruncateTowardZeroAndKeepTheLowBitsOfTheirWidth) {
    const std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
    EXPECT_EQ(ToPixel<std::uint8_t>(-0.9), 0);  // toward zero, not down
    EXPECT_EQ(ToPixel<std::int16_t>(32768.0), -32768);
    EXPECT_EQ(ToPixel<std::int32_t>(3e9), lowest);
    EXPECT_EQ(ToPixel<std::int32_t>(std::nan("")), lowest);
    EXPECT_EQ(ToPixel<std::uint32_t>(-1.0), 4294967295u);  // 64-bit truncation, low 32 bits
}

TEST(PixelTypesTest, DifferencesAndSquaresWrapInThirtyTwoBitsAndDoubleSquaresOverflow) {
    EXPECT_EQ(ClassifyTerm<std::uint32_t>(5, 10), 4294967291.0);         // a centre below the pixel is far
    EXPECT_EQ(ClassifyTerm<std::int32_t>(2147483647, -2), 2147483647.0);  // overflows to -2147483647
    EXPECT_EQ(ClassifyTerm<std::int16_t>(-32768, 32767), 65535.0);
    EXPECT_TRUE(std::isinf(ClassifyTerm<double>(1e200, -1e200)));  // sqrt of an infinite square
    EXPECT_EQ(SampleTerm<std::int16_t>(-30000, 30000), -5536);      // 60000 wraps
    EXPECT_EQ(SquaredDeviation<std::uint16_t>(65535, 0), -131071.0);  // 65535^2 as signed 32-bit
    EXPECT_EQ(SquaredDeviation<std::uint32_t>(0, 65536), 0.0);         // 2^32 wraps to 0
    EXPECT_TRUE(DistanceGreater(0.0f, std::nanf("")));  // NaN ranks below every number
    EXPECT_FALSE(DistanceGreater(std::nanf(""), 0.0f));
}

TEST(PixelTypesTest, WeightedMeansWrapAndDivideInTheirOwnSignedness) {
    std::int32_t i = 0;
    ASSERT_TRUE(WeightedMean<std::int32_t>(2000000000, 2, 0, 0, i));
    EXPECT_EQ(i, -147483648);  // 4e9 wraps to -294967296, halved
    std::uint32_t u = 0;
    ASSERT_TRUE(WeightedMean<std::uint32_t>(4000000000u, 1, 0u, 1, u));
    EXPECT_EQ(u, 2000000000u);
    std::int16_t s = 0;
    ASSERT_TRUE(WeightedMean<std::int16_t>(-10, 2, 5, 1, s));
    EXPECT_EQ(s, -5);  // -15 / 3
}

} // namespace
