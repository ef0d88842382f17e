// The per-type arithmetic: wrap-arounds, truncations and NaN conversions that
// decide distances and centres.
#include "PixelTypes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace isodata;

const double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(ToPixelTest, ByteKeepsTheLowEightBitsOfTheTruncation) {
    EXPECT_EQ(ToPixel<std::uint8_t>(260.0), 4);     // 250 + 10
    EXPECT_EQ(ToPixel<std::uint8_t>(-5.0), 251);    // 5 - 10
    EXPECT_EQ(ToPixel<std::uint8_t>(1.5), 1);
    EXPECT_EQ(ToPixel<std::uint8_t>(-0.9), 0);      // toward zero, not down
    EXPECT_EQ(ToPixel<std::uint8_t>(kNaN), 0);
}

TEST(ToPixelTest, SixteenBitTypesWrapThroughThirtyTwoBits) {
    EXPECT_EQ(ToPixel<std::int16_t>(32768.0), -32768);
    EXPECT_EQ(ToPixel<std::int16_t>(-2.7), -2);
    EXPECT_EQ(ToPixel<std::uint16_t>(-1.0), 65535);
    EXPECT_EQ(ToPixel<std::uint16_t>(kNaN), 0);
    EXPECT_EQ(ToPixel<std::int16_t>(kNaN), 0);
}

TEST(ToPixelTest, ThirtyTwoBitTypesUseTheirOwnWidths) {
    EXPECT_EQ(ToPixel<std::int32_t>(kNaN), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(ToPixel<std::int32_t>(3e9), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(ToPixel<std::int32_t>(-7.9), -7);
    EXPECT_EQ(ToPixel<std::uint32_t>(kNaN), 0u);
    EXPECT_EQ(ToPixel<std::uint32_t>(-1.0), 4294967295u);  // 64-bit truncation, low 32 bits
    EXPECT_EQ(ToPixel<std::uint32_t>(4294967296.0 + 7.0), 7u);
}

TEST(ToPixelTest, FloatRoundsAndDoubleKeeps) {
    EXPECT_EQ(ToPixel<float>(0.1), 0.1f);
    EXPECT_EQ(ToPixel<double>(0.1), 0.1);
    EXPECT_TRUE(std::isnan(ToPixel<float>(kNaN)));
}

TEST(ClassifyTermTest, UnsignedThirtyTwoBitWrapsWhenTheCentreIsBelowThePixel) {
    EXPECT_EQ(ClassifyTerm<std::uint32_t>(10, 5), 5.0);
    EXPECT_EQ(ClassifyTerm<std::uint32_t>(5, 10), 4294967291.0);
}

TEST(ClassifyTermTest, SignedThirtyTwoBitWrapsOnOverflow) {
    // 2147483647 - (-2) overflows to -2147483647.
    EXPECT_EQ(ClassifyTerm<std::int32_t>(2147483647, -2), 2147483647.0);
    EXPECT_EQ(ClassifyTerm<std::int32_t>(-3, 4), 7.0);
}

TEST(ClassifyTermTest, SmallIntegersAndFloatsGiveTheAbsoluteDifference) {
    EXPECT_EQ(ClassifyTerm<std::uint8_t>(3, 250), 247.0);
    EXPECT_EQ(ClassifyTerm<std::int16_t>(-32768, 32767), 65535.0);
    EXPECT_EQ(ClassifyTerm<float>(0.25f, 1.0f), 0.75);
}

TEST(ClassifyTermTest, DoubleTakesTheRootOfTheSquare) {
    // |d| would be 1e200; its square overflows and so does the distance.
    EXPECT_TRUE(std::isinf(ClassifyTerm<double>(1e200, -1e200)));
    EXPECT_EQ(ClassifyTerm<double>(1e-200, 0.0), 0.0);  // the square underflows
    EXPECT_EQ(ClassifyTerm<double>(2.5, 1.0), 1.5);
}

TEST(SampleDistanceTest, ByteSumsWrapModulo256) {
    const std::uint8_t term = SampleTerm<std::uint8_t>(0, 200);
    EXPECT_EQ(term, 200);
    EXPECT_EQ(SampleAdd<std::uint8_t>(term, term), 144);  // 400 mod 256
}

TEST(SampleDistanceTest, SignedSixteenBitDifferenceWraps) {
    // 30000 - (-30000) = 60000, which reads back as -5536.
    EXPECT_EQ(SampleTerm<std::int16_t>(30000, -30000), -5536);
    EXPECT_EQ(SampleTerm<std::int16_t>(-30000, 30000), -5536);
}

TEST(DistanceOrderTest, NaNRanksBelowEveryNumber) {
    EXPECT_TRUE(DistanceGreater(0.0f, std::nanf("")));
    EXPECT_FALSE(DistanceGreater(std::nanf(""), 0.0f));
    EXPECT_FALSE(DistanceGreater(std::nanf(""), std::nanf("")));
    EXPECT_TRUE(DistanceGreater(2, 1));
}

TEST(SquaredDeviationTest, WrapsInThirtyTwoBits) {
    EXPECT_EQ(SquaredDeviation<std::uint8_t>(230, 250), 400.0);
    // 65535^2 does not fit a signed 32-bit square: it wraps to -131071.
    EXPECT_EQ(SquaredDeviation<std::uint16_t>(65535, 0), -131071.0);
    EXPECT_EQ(SquaredDeviation<std::uint32_t>(0, 65536), 0.0);  // 2^32 wraps to 0
    EXPECT_EQ(SquaredDeviation<std::int32_t>(0, 65536), 0.0);
    EXPECT_EQ(SquaredDeviation<float>(1.5f, 1.0f), 0.25);
}

TEST(CenterDifferenceTest, UnsignedThirtyTwoBitWraps) {
    EXPECT_EQ(CenterDifference<std::uint32_t>(5, 10), 4294967291.0);
    EXPECT_EQ(CenterDifference<std::uint8_t>(5, 10), -5.0);
}

TEST(WeightedMeanTest, IntegersDivideExactlyAndTruncate) {
    std::uint8_t b = 0;
    ASSERT_TRUE(WeightedMean<std::uint8_t>(10, 3, 20, 1, b));
    EXPECT_EQ(b, 12);  // (30 + 20) / 4
    std::int16_t s = 0;
    ASSERT_TRUE(WeightedMean<std::int16_t>(-10, 1, 5, 2, s));
    EXPECT_EQ(s, 0);  // 0 / 3
    ASSERT_TRUE(WeightedMean<std::int16_t>(-10, 2, 5, 1, s));
    EXPECT_EQ(s, -5);  // -15 / 3
    std::uint32_t u = 0;
    ASSERT_TRUE(WeightedMean<std::uint32_t>(4000000000u, 1, 0u, 1, u));
    EXPECT_EQ(u, 2000000000u);  // unsigned division
}

TEST(WeightedMeanTest, SignedProductsWrapInThirtyTwoBits) {
    std::int32_t v = 0;
    // 2e9 * 2 wraps to -294967296; / 2 gives -147483648.
    ASSERT_TRUE(WeightedMean<std::int32_t>(2000000000, 2, 0, 0, v));
    EXPECT_EQ(v, -147483648);
}

TEST(WeightedMeanTest, TwoEmptyClustersHaveNoIntegerMeanAndAFloatNaN) {
    std::uint8_t b = 7;
    EXPECT_FALSE(WeightedMean<std::uint8_t>(10, 0, 20, 0, b));
    EXPECT_EQ(b, 7);
    std::int32_t i = 7;
    EXPECT_FALSE(WeightedMean<std::int32_t>(10, 0, 20, 0, i));
    float f = 0.0f;
    EXPECT_TRUE(WeightedMean<float>(10.0f, 0, 20.0f, 0, f));
    EXPECT_TRUE(std::isnan(f));
    double d = 0.0;
    EXPECT_TRUE(WeightedMean<double>(10.0, 0, 20.0, 0, d));
    EXPECT_TRUE(std::isnan(d));
}

} // namespace
