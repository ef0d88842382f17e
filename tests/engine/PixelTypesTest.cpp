// The per-type arithmetic: wrap-arounds, truncations and NaN conversions that
// decide distances and centres.
#include "PixelTypes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace isodata;

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const std::int32_t kInt32Min = std::numeric_limits<std::int32_t>::min();

TEST(ToPixelTest, TruncatesTowardZeroKeepsTheLowBitsAndMakesNaNTheIndefiniteInteger) {
    EXPECT_EQ(ToPixel<std::uint8_t>(260.0), 4);      // 250 + 10
    EXPECT_EQ(ToPixel<std::uint8_t>(-5.0), 251);     // 5 - 10
    EXPECT_EQ(ToPixel<std::uint8_t>(-0.9), 0);       // toward zero, not down
    EXPECT_EQ(ToPixel<std::int16_t>(32768.0), -32768);
    EXPECT_EQ(ToPixel<std::int32_t>(3e9), kInt32Min);
    EXPECT_EQ(ToPixel<std::uint32_t>(-1.0), 4294967295u);  // 64-bit truncation, low 32 bits
    EXPECT_EQ(ToPixel<std::uint16_t>(kNaN), 0);
    EXPECT_EQ(ToPixel<std::int32_t>(kNaN), kInt32Min);
    EXPECT_TRUE(std::isnan(ToPixel<float>(kNaN)));
}

TEST(DistanceTermTest, ThirtyTwoBitDifferencesWrapAndDoubleTakesTheRootOfTheSquare) {
    EXPECT_EQ(ClassifyTerm<std::uint32_t>(5, 10), 4294967291.0);          // centre below the pixel
    EXPECT_EQ(ClassifyTerm<std::int32_t>(2147483647, -2), 2147483647.0);  // overflows to -2147483647
    EXPECT_EQ(ClassifyTerm<std::int16_t>(-32768, 32767), 65535.0);
    EXPECT_TRUE(std::isinf(ClassifyTerm<double>(1e200, -1e200)));  // the square overflows
    EXPECT_EQ(ClassifyTerm<double>(1e-200, 0.0), 0.0);               // the square underflows
    EXPECT_EQ(SampleTerm<std::int16_t>(-30000, 30000), -5536);      // 60000 wraps
    EXPECT_TRUE(DistanceGreater(0.0f, std::nanf("")));  // NaN ranks below every number
    EXPECT_FALSE(DistanceGreater(std::nanf(""), 0.0f));
}

TEST(SquaredDeviationTest, WrapsInThirtyTwoBits) {
    EXPECT_EQ(SquaredDeviation<std::uint8_t>(230, 250), 400.0);
    EXPECT_EQ(SquaredDeviation<std::uint16_t>(65535, 0), -131071.0);  // 65535^2 as signed 32-bit
    EXPECT_EQ(SquaredDeviation<std::uint32_t>(0, 65536), 0.0);         // 2^32 wraps to 0
    EXPECT_EQ(SquaredDeviation<float>(1.5f, 1.0f), 0.25);
}

TEST(WeightedMeanTest, IntegersWrapAndTruncateAndTwoEmptyClustersHaveNoIntegerMean) {
    std::int16_t s = 0;
    ASSERT_TRUE(WeightedMean<std::int16_t>(-10, 2, 5, 1, s));
    EXPECT_EQ(s, -5);  // -15 / 3, toward zero
    std::int32_t i = 0;
    ASSERT_TRUE(WeightedMean<std::int32_t>(2000000000, 2, 0, 0, i));
    EXPECT_EQ(i, -147483648);  // 4e9 wraps to -294967296
    std::uint32_t u = 0;
    ASSERT_TRUE(WeightedMean<std::uint32_t>(4000000000u, 1, 0u, 1, u));
    EXPECT_EQ(u, 2000000000u);  // unsigned division
    std::uint8_t b = 7;
    EXPECT_FALSE(WeightedMean<std::uint8_t>(10, 0, 20, 0, b));
    EXPECT_EQ(b, 7);
    float f = 0.0f;
    EXPECT_TRUE(WeightedMean<float>(10.0f, 0, 20.0f, 0, f));
    EXPECT_TRUE(std::isnan(f));
}

} // namespace
