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
            for (const bool plain : {true, false}) {
                centers.plainRules = plain;
                std::vector<std::int32_t> expected(length), labels(length);
                isodata::LabelTally expectedTally, tally;
                isodata::LabelRow(VectorIsa::Baseline, rows.data(), length, centers, expected.data(), nullptr,
                                  &expectedTally);
                for (const VectorIsa isa : sets) {
                    tally = {};
                    isodata::LabelRow(isa, rows.data(), length, centers, labels.data(), nullptr, &tally);
                    EXPECT_EQ(labels, expected) << "set " << static_cast<int>(isa) << ", " << length << " pixels, "
                                                << bands << " bands, plain rules " << plain;
                    EXPECT_EQ(tally.allZero, expectedTally.allZero);
                    EXPECT_EQ(tally.background, expectedTally.background);
                }
            }
        }
    }
}

// Pixels not excluded that stay unclassified are told apart: background,
// non-finite, beyond the distance limit; excluded ones are 0 and uncounted.
// Without the plain rules only the NaN stays unclassified, and the pixel 0 in
// both bands is counted among the classified.
TEST(LabelRowTest, UnclassifiedPixelsAreCountedByWhy) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> band1 = {0, 5, nan, 2e7f, 10, 0, 2e7f, 12};
    const std::vector<float> band2 = {0, -5, 1, 0, 10, 0, 0, 12};
    const std::uint8_t excluded[] = {0, 0, 0, 0, 0, 1, 1, 0};
    const std::uint8_t nonFinite[] = {0, 0, 2, 0, 0, 0, 0, 0};  // as the reader marks the NaN
    const float* rows[] = {band1.data(), band2.data()};
    const struct {
        bool plain;
        std::vector<std::int32_t> labels;
        std::int64_t background, nonFinite, beyondReach, allZero;
    } cases[] = {{true, {0, 0, 0, 0, 1, 0, 0, 1}, 2, 1, 1, 0}, {false, {1, 1, 0, 1, 1, 0, 0, 1}, 0, 1, 0, 1}};
    for (const auto& c : cases) {
        const isodata::LabelCenters centers{1, 2, {10, 10}, c.plain};
        std::vector<std::int32_t> labels(band1.size());
        isodata::LabelTally tally;
        isodata::LabelRow(rows, labels.size(), centers, labels.data(), excluded, &tally, nonFinite);
        EXPECT_EQ(labels, c.labels) << "plain rules " << c.plain;
        EXPECT_EQ((std::vector<std::int64_t>{tally.background, tally.nonFinite, tally.beyondReach, tally.allZero}),
                  (std::vector<std::int64_t>{c.background, c.nonFinite, c.beyondReach, c.allZero}))
            << "plain rules " << c.plain;
    }
}

} // namespace
