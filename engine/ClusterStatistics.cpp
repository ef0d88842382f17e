// Centres and mean distances of the clusters after a classification pass.
//
//  1. ComputeClusterCenters: every member's band values summed per cluster,
//     as the classification pass added them up while writing the scratch
//     files, or by a pass over the image and the files when some index did
//     not reach its file; the new centre is that sum over the member count,
//     divided in single precision and stored in the pixel type (truncated
//     toward zero for integers).
//  2. ComputeMeanDistances: each cluster's distance sum over its count.
// An empty cluster gets 0/0: its mean distance is NaN and its centre is what
// the pixel type makes of a NaN (0, the lowest signed 32-bit value, or NaN).
#include "MemberPass.h"

namespace isodata {

template <class T>
void IsodataEngine<T>::ComputeClusterCenters(const StageProgress& stage) {
    const std::size_t clusters = ClusterLoopCount();
    const std::size_t bands = bandIndices.size();
    std::vector<std::vector<double>> sums(clusters, std::vector<double>(bands, 0.0));
    classPixelCounts.assign(clusters, 0);
    if (memberSumsCurrent && classFiles.AllWritten() && memberSums.size() == clusters * bands) {
        // The classification pass added up the members in file order already;
        // the stage still reports its steps block by block.
        SteppedProgress progress(stage, 100.0 / static_cast<std::int32_t>(blockCount));
        progress.Start();
        for (std::uint32_t b = 0; b < blockCount; ++b) {
            for (std::size_t c = 0; c < clusters; ++c)
                classPixelCounts[c] += static_cast<std::int32_t>(blockClassCounts[b][c]);
            progress.Step();
        }
        for (std::size_t c = 0; c < clusters; ++c)
            sums[c].assign(memberSums.begin() + c * bands, memberSums.begin() + (c + 1) * bands);
    } else {
        VisitClusterMembers(stage, [&](std::size_t c, const std::vector<std::uint32_t>& members,
                                    const typename BlockBatch<T>::View& reader) {
            AccumulateMembers(members, reader, sums[c],
                              [](T pixel, std::size_t) { return static_cast<double>(pixel); });
            classPixelCounts[c] += static_cast<std::int32_t>(members.size());
        });
    }
    for (std::size_t c = 0; c < clusters; ++c) {
        // Single precision on purpose, in every instance.
        const float count = static_cast<float>(classPixelCounts[c]);
        for (std::size_t i = 0; i < sums[c].size(); ++i)
            centers[c][i] = ToPixel<T>(static_cast<double>(static_cast<float>(sums[c][i]) / count));
    }
}

template <class T>
void IsodataEngine<T>::ComputeMeanDistances(const StageProgress& stage) {
    const std::size_t clusters = ClusterLoopCount();
    meanDistances.resize(clusters, 0.0);
    // Steps of 100 / (K + 1): the stage ends at K * 100 / (K + 1), not 100.
    SteppedProgress progress(stage, 100.0 / static_cast<double>(classSlots));
    progress.Start();
    for (std::size_t c = 0; c < clusters; ++c) {
        meanDistances[c] = distanceSums[c] / static_cast<double>(classPixelCounts[c]);
        progress.Step();
    }
}

#define ISODATA_INSTANTIATE(T)                                                            \
    template void IsodataEngine<T>::ComputeClusterCenters(const StageProgress&);         \
    template void IsodataEngine<T>::ComputeMeanDistances(const StageProgress&);
ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_INSTANTIATE)
#undef ISODATA_INSTANTIATE

} // namespace isodata
