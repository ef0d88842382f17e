// The class moments of a labelling: a covariance worked out by hand, and the
// sums of many bands taken pair by pair equal to the bits those of few bands
// take all pairs at once, over runs of every length.
#include "ClassStatistics.h"
#include "ResultRaster.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace {

using isodata::ClassMoments;
using isodata::LabelCenters;

LabelCenters Centres(std::size_t clusters, std::size_t bands, float value) {
    LabelCenters c;
    c.clusters = clusters;
    c.bands = bands;
    c.values.assign(clusters * bands, value);
    return c;
}

TEST(ClassMomentsTest, TheCovarianceOfThreePixelsIsTheHandWorkedOne) {
    // Class 1: (1, 2), (3, 6), (5, 4); mean (3, 4); deviations (-2, -2), (0, 2), (2, 0).
    const std::vector<float> band0{1, 3, 9, 5}, band1{2, 6, 9, 4};
    const float* rows[] = {band0.data(), band1.data()};
    const std::vector<std::int32_t> labels{1, 1, 0, 1};
    ClassMoments moments(Centres(1, 2, 2.5f), true, true);
    moments.AddRow(rows, labels.data(), labels.size());
    const auto classes = moments.Finish();
    ASSERT_EQ(classes[0].covariance.size(), 4u);
    const double expected[] = {8.0 / 3, 4.0 / 3, 4.0 / 3, 8.0 / 3};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(classes[0].covariance[i], expected[i], 1e-13) << i;
    EXPECT_NEAR(classes[0].mean[1], 4.0, 1e-13);
}

TEST(ClassMomentsTest, ManyBandsPairByPairGiveTheBitsOfFewBandsAllAtOnce) {
    // Runs of 1 to 40 pixels of three classes; the first four of eighteen
    // bands (beyond the bands summed all at once) are the four-band scene.
    const std::size_t width = 600, few = 4, many = 18;
    std::mt19937 random(7);
    // Values over six orders of magnitude, so that the order of additions shows in the last bits.
    std::uniform_real_distribution<float> exponent(-4.0f, 6.0f);
    std::vector<std::vector<float>> bands(many, std::vector<float>(width));
    for (auto& band : bands)
        for (float& v : band) v = std::exp(exponent(random));
    std::vector<std::int32_t> labels(width);
    for (std::size_t x = 0; x < width;) {
        const std::size_t run = 1 + random() % 40;
        const std::int32_t label = static_cast<std::int32_t>(random() % 4);
        for (std::size_t i = 0; i < run && x < width; ++i, ++x) labels[x] = label;
    }
    std::vector<const float*> rows;
    for (const auto& band : bands) rows.push_back(band.data());
    ClassMoments allAtOnce(Centres(3, few, 100.0f), true, true), pairByPair(Centres(3, many, 100.0f), true, true);
    allAtOnce.AddRow(rows.data(), labels.data(), width);
    pairByPair.AddRow(rows.data(), labels.data(), width);
    const auto a = allAtOnce.Finish(), b = pairByPair.Finish();
    for (std::size_t c = 0; c < 3; ++c) {
        ASSERT_GT(a[c].pixels, 0);
        for (std::size_t k = 0; k < few; ++k)
            for (std::size_t l = 0; l < few; ++l)
                EXPECT_EQ(a[c].covariance[k * few + l], b[c].covariance[k * many + l]) << c << " " << k << " " << l;
    }
}

} // namespace
