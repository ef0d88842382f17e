// Every instruction set the CPU runs labels the same rows with the same
// labels: odd lengths, NaN, infinities, huge values, negative zero and sums
// at the background threshold, over centres of every magnitude.
#include "LabelRow.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

using isodata::VectorIsa;

// Values drawn from a mix of ordinary numbers and the awkward ones.
float Draw(std::mt19937& rng) {
    static const float kAwkward[] = {std::numeric_limits<float>::quiet_NaN(),
                                     std::numeric_limits<float>::infinity(),
                                     -std::numeric_limits<float>::infinity(),
                                     3e38f,
                                     -3e38f,
                                     -0.0f,
                                     0.0f,
                                     0x1.5798eep-27f,
                                     0x1.5798f0p-27f,
                                     std::numeric_limits<float>::denorm_min(),
                                     9999999.0f};
    std::uniform_int_distribution<int> pick(0, 15);
    const int i = pick(rng);
    if (i < static_cast<int>(std::size(kAwkward))) return kAwkward[i];
    return std::uniform_real_distribution<float>(-300.0f, 300.0f)(rng);
}

TEST(LabelRowTest, EveryInstructionSetGivesTheBaselineLabels) {
    std::mt19937 rng(20240601);
    const std::vector<VectorIsa> sets = isodata::SupportedIsas();
    if (sets.size() == 1) GTEST_SKIP() << "this CPU runs the baseline copy only";
    for (const std::size_t length : {1u, 3u, 31u, 32u, 33u, 64u, 65u, 200u}) {
        for (const std::size_t bands : {1u, 4u, 7u}) {
            isodata::LabelCenters centers{9, bands, {}};
            for (std::size_t i = 0; i < centers.clusters * bands; ++i) centers.values.push_back(Draw(rng));
            std::vector<std::vector<float>> values(bands, std::vector<float>(length));
            std::vector<const float*> rows;
            for (auto& band : values) {
                for (float& v : band) v = Draw(rng);
                rows.push_back(band.data());
            }
            std::vector<std::int32_t> expected(length), labels(length);
            isodata::LabelRow(VectorIsa::Baseline, rows.data(), length, centers, expected.data());
            for (const VectorIsa isa : sets) {
                isodata::LabelRow(isa, rows.data(), length, centers, labels.data());
                EXPECT_EQ(labels, expected) << "set " << static_cast<int>(isa) << ", " << length << " pixels, "
                                            << bands << " bands";
            }
        }
    }
}

// Pixels not excluded that stay unclassified are told apart: background,
// non-finite, beyond the distance limit; excluded ones are 0 and uncounted.
TEST(LabelRowTest, UnclassifiedPixelsAreCountedByWhy) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> band1 = {0, 5, nan, 2e7f, 10, 0, 2e7f, 12};
    const std::vector<float> band2 = {0, -5, 1, 0, 10, 0, 0, 12};
    const std::uint8_t excluded[] = {0, 0, 0, 0, 0, 1, 1, 0};
    const std::uint8_t nonFinite[] = {0, 0, 2, 0, 0, 0, 0, 0};  // as the reader marks the NaN
    const float* rows[] = {band1.data(), band2.data()};
    const isodata::LabelCenters centers{1, 2, {10, 10}};
    std::vector<std::int32_t> labels(band1.size());
    isodata::LabelTally tally;
    isodata::LabelRow(rows, labels.size(), centers, labels.data(), excluded, &tally, nonFinite);
    EXPECT_EQ(labels, (std::vector<std::int32_t>{0, 0, 0, 0, 1, 0, 0, 1}));
    EXPECT_EQ(tally.background, 2);
    EXPECT_EQ(tally.nonFinite, 1);
    EXPECT_EQ(tally.beyondReach, 1);
}

} // namespace
