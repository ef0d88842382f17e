// The assignment kernel gives every pixel the distance and the cluster of the
// per-pixel rule (ClassifyTerm summed band by band, strictly nearer wins), in
// every instruction set the CPU runs, for every pixel type: odd lengths,
// extreme values, NaN and infinities included.
#include "EngineHarness.h"
#include "NearestCenters.h"
#include "PixelTypes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

using isodata::VectorIsa;

// Ordinary values mixed with the type's extremes and, for floating point,
// NaN, infinities, negative zero and the largest finite values.
template <class T>
T Draw(std::mt19937& rng) {
    using L = std::numeric_limits<T>;
    std::vector<T> awkward{L::lowest(), L::max(), T(0), T(1)};
    if constexpr (std::is_floating_point_v<T>)
        awkward.insert(awkward.end(), {L::quiet_NaN(), L::infinity(), -L::infinity(), T(-0.0), L::denorm_min()});
    const auto i = std::uniform_int_distribution<std::size_t>(0, awkward.size() * 3)(rng);
    if (i < awkward.size()) return awkward[i];
    return static_cast<T>(std::uniform_int_distribution<int>(0, 250)(rng));
}

// The rule pixel by pixel.
template <class T>
void Reference(const std::vector<std::vector<T>>& bands, std::size_t x, const std::vector<T>& centers,
               std::size_t clusters, double& best, double& label) {
    best = std::numeric_limits<double>::infinity();
    label = 0.0;
    for (std::size_t k = 0; k < clusters; ++k) {
        double dist = 0.0;
        for (std::size_t i = 0; i < bands.size(); ++i) dist += isodata::ClassifyTerm(centers[k * bands.size() + i], bands[i][x]);
        if (best > dist) {
            best = dist;
            label = static_cast<double>(k);
        }
    }
}

bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

template <class T>
class NearestCentersTest : public testing::Test {};

TYPED_TEST_SUITE(NearestCentersTest, enginetest::PixelTypes);

TYPED_TEST(NearestCentersTest, EveryInstructionSetGivesThePerPixelRule) {
    using T = TypeParam;
    std::mt19937 rng(7);
    for (const std::size_t length : {1u, 3u, 15u, 16u, 17u, 33u, 100u}) {
        for (const std::size_t bandCount : {1u, 3u, 6u}) {
            for (const std::size_t clusters : {0u, 1u, 5u}) {
                std::vector<std::vector<T>> bands(bandCount, std::vector<T>(length));
                std::vector<const T*> pointers;
                for (auto& band : bands) {
                    for (T& v : band) v = Draw<T>(rng);
                    pointers.push_back(band.data());
                }
                std::vector<T> centers(clusters * bandCount);
                for (T& c : centers) c = Draw<T>(rng);
                std::vector<double> expectedBest(length), expectedLabel(length);
                for (std::size_t x = 0; x < length; ++x)
                    Reference(bands, x, centers, clusters, expectedBest[x], expectedLabel[x]);
                for (const VectorIsa isa : isodata::SupportedIsas()) {
                    std::vector<double> best(length), label(length);
                    isodata::NearestCenters(isa, pointers.data(), bandCount, length, centers.data(), clusters,
                                            best.data(), label.data());
                    EXPECT_TRUE(SameBits(best, expectedBest) && label == expectedLabel)
                        << "set " << static_cast<int>(isa) << ", " << length << " pixels, " << bandCount
                        << " bands, " << clusters << " clusters";
                }
            }
        }
    }
}

} // namespace
