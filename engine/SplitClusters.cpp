// The split: at most one cluster that is too spread out is replaced by two
// centres on either side of it.
//
//  1. One pass over the image and the scratch files sums every member's
//     squared deviation from its centre, per cluster and band.
//  2. Each cluster's band standard deviations (divisor n) are sorted, largest
//     first.
//  3. The cluster with the largest spread is found; from it, scanning
//     forward and then wrapping around, the first cluster passing the split
//     test is split.
//  4. Its centre moves by +half its largest deviation in every band, and a
//     copy inserted after it by -half.
#include "MemberPass.h"

#include <algorithm>
#include <cmath>

namespace isodata {

namespace {

// Descending, with NaN last so the order stays well defined.
bool LargerDeviation(double a, double b) { return DistanceGreater(a, b); }

} // namespace

template <class T>
bool IsodataEngine<T>::SplitClusters(const StageProgress& stage) {
    const std::size_t clusters = ClusterLoopCount();
    const std::size_t bands = bandIndices.size();
    classStdDevs.resize(clusters);
    for (auto& row : classStdDevs) row.resize(bands);
    std::vector<std::vector<double>> sumSquares(clusters, std::vector<double>(bands, 0.0));

    VisitClusterMembers(stage, [&](std::size_t c, const std::vector<std::uint32_t>& members,
                                const typename BlockBatch<T>::View& reader) {
        const std::vector<T>& centre = centers[c];
        // The pixel is the one at each member's index, not at the loop count.
        AccumulateMembers(members, reader, sumSquares[c],
                          [&centre](T pixel, std::size_t i) { return SquaredDeviation(pixel, centre[i]); });
    });
    for (std::size_t c = 0; c < clusters; ++c) {
        for (std::size_t i = 0; i < bands; ++i)
            classStdDevs[c][i] = std::sqrt(sumSquares[c][i] / static_cast<double>(classPixelCounts[c]));
        std::sort(classStdDevs[c].begin(), classStdDevs[c].end(), LargerDeviation);
    }
    if (bands == 0 || clusters == 0) return false;

    // The running maximum is held as a float on purpose: a later cluster
    // takes over when it beats the maximum as rounded to float. NaN never does.
    float widest = 0.0f;
    std::size_t start = 0;
    for (std::size_t c = 0; c < clusters; ++c) {
        if (classStdDevs[c][0] > static_cast<double>(widest)) {
            widest = static_cast<float>(classStdDevs[c][0]);
            start = c;
        }
    }
    const auto spreadTest = [&](std::size_t c) { return classStdDevs[c][0] > stdDevThreshold; };
    const auto farther = [&](std::size_t c) { return meanDistances[c] > overallMeanDistance; };
    // Forward scan: size bound 2M, compared as unsigned 64-bit.
    const std::uint64_t forwardBound = 2 * static_cast<std::uint64_t>(minClassPixels);
    // Wrap-around scan: size bound 2M + 2 in signed 32-bit. The two bounds
    // differ on purpose.
    const std::int32_t wrapBound = static_cast<std::int32_t>(
        2u * static_cast<std::uint32_t>(static_cast<std::int32_t>(minClassPixels)) + 2u);
    std::size_t chosen = clusters;
    for (std::size_t c = start; c < clusters && chosen == clusters; ++c) {
        const auto size = static_cast<std::uint64_t>(static_cast<std::int64_t>(classPixelCounts[c]));
        if (spreadTest(c) && (farther(c) || size > forwardBound)) chosen = c;
    }
    for (std::size_t c = 0; c < start && chosen == clusters; ++c)
        if (spreadTest(c) && (farther(c) || classPixelCounts[c] > wrapBound)) chosen = c;
    if (chosen == clusters) return false;
    lastSplit = static_cast<std::int32_t>(chosen + 1);

    const double offset = 0.5 * classStdDevs[chosen][0];
    centers.resize(static_cast<std::size_t>(classSlots));
    centers.back().resize(bands);
    for (std::size_t k = clusters; k > chosen; --k) centers[k] = centers[k - 1];
    // The same offset, half the largest deviation, goes to every band.
    for (std::size_t i = 0; i < bands; ++i) {
        centers[chosen][i] = ToPixel<T>(static_cast<double>(centers[chosen][i]) + offset);
        centers[chosen + 1][i] = ToPixel<T>(static_cast<double>(centers[chosen + 1][i]) - offset);
    }
    ++classSlots;
    return true;
}

#define ISODATA_INSTANTIATE(T) template bool IsodataEngine<T>::SplitClusters(const StageProgress&);
ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_INSTANTIATE)
#undef ISODATA_INSTANTIATE

} // namespace isodata
