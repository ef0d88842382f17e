// The merge: pairs of centres closer than the merge distance, closest first,
// up to the pair limit; each processed pair removes one of its clusters.
//
//  1. Collect every pair (i < j) whose Euclidean centre distance is below
//     the threshold.
//  2. Walk them closest first. The larger cluster of the pair (on equal
//     sizes the higher-numbered one) takes the size-weighted mean of both
//     centres and is marked for removal; the other keeps its centre.
//  3. Stop at the pair limit or when the slot count reaches half the desired
//     class count; drop the marked clusters, renumbering the rest densely.
// These rules are the engine's established behaviour and are kept as they
// are: the mean lands in the cluster that goes away (it matters only when
// that centre takes part in a later pair of the same call), a pair is never
// skipped because one of its clusters was already merged, and the slot count
// falls once per processed pair even when a cluster is marked twice.
#include "IsodataEngine.h"

#include <algorithm>
#include <cmath>

namespace isodata {

namespace {

struct MergeCandidate {
    double distance;
    std::uint64_t first;
    std::uint64_t second;
};

template <class T>
double CenterDistance(const std::vector<T>& a, const std::vector<T>& b) {
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double d = CenterDifference(a[i], b[i]);
        sum += d * d;
    }
    return std::sqrt(sum);
}

} // namespace

template <class T>
bool IsodataEngine<T>::MergeClusters() {
    const auto clusters = static_cast<std::int32_t>(classSlots - 1);
    std::vector<MergeCandidate> candidates;
    for (std::int32_t i = 0; i < clusters - 1; ++i) {
        for (std::int32_t j = i + 1; j < clusters; ++j) {
            const double d = CenterDistance(centers[i], centers[j]);
            if (mergeDistanceThreshold > d)
                candidates.push_back({d, static_cast<std::uint64_t>(i), static_cast<std::uint64_t>(j)});
        }
    }
    // Farthest first, walked from the back. Equal distances keep the order
    // they were found in, so of those the later pair is processed first.
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const MergeCandidate& a, const MergeCandidate& b) { return a.distance > b.distance; });

    std::vector<unsigned char> removed(static_cast<std::size_t>(std::max(clusters, 0)), 0);
    bool merged = false;
    std::uint64_t processed = 0;
    lastMerges.clear();
    for (auto it = candidates.rbegin(); it != candidates.rend(); ++it) {
        if (processed >= maxMergePairs) break;
        merged = true;
        const std::size_t i = it->first, j = it->second;
        lastMerges.emplace_back(static_cast<std::int32_t>(i + 1), static_cast<std::int32_t>(j + 1));
        const std::int32_t ni = ClusterTotal(i), nj = ClusterTotal(j);
        const std::size_t into = ni > nj ? i : j;
        const std::size_t other = into == i ? j : i;
        const std::int32_t nInto = into == i ? ni : nj, nOther = into == i ? nj : ni;
        for (std::size_t b = 0; b < centers[into].size(); ++b) {
            T mean;
            // Two empty clusters have no integer mean; the centre stays.
            if (WeightedMean(centers[into][b], nInto, centers[other][b], nOther, mean)) centers[into][b] = mean;
        }
        removed[into] = 1;
        --classSlots;
        if (classSlots <= desiredClassCount / 2) break;
        ++processed;
    }

    std::vector<std::vector<T>> kept;
    for (std::int32_t c = 0; c < clusters; ++c)
        if (!removed[static_cast<std::size_t>(c)]) kept.push_back(std::move(centers[static_cast<std::size_t>(c)]));
    centers = std::move(kept);
    return merged;
}

#define ISODATA_INSTANTIATE(T) template bool IsodataEngine<T>::MergeClusters();
ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_INSTANTIATE)
#undef ISODATA_INSTANTIATE

} // namespace isodata
