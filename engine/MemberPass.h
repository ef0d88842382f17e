// One pass over the image and the scratch files that hands every cluster's
// members of every block, with the block's pixels, to a visitor. The centre
// update and the split both accumulate over members this way.
//
// Files are consumed strictly in the order the classification pass wrote
// them: block after block, and within a block each cluster's own file from
// where the last block left it. The clusters of a block touch nothing in
// common (their files, their sums), so they may go to the worker threads.
#pragma once

#include "IsodataEngine.h"

#include <algorithm>

namespace isodata {

// visit(cluster, members, reader): members are the block-relative indices of
// the cluster's pixels in the current block, reader holds the block's bands.
// visit may touch the state of its cluster only.
template <class T>
template <class Visit>
void IsodataEngine<T>::VisitClusterMembers(const StageProgress& stage, Visit&& visit) {
    const std::size_t clusters = ClusterLoopCount();
    for (std::size_t c = 0; c < clusters; ++c) classFiles.Rewind(c);
    // The scratch files name valid pixels only, so no flags are needed.
    BlockReader<T> reader = MakeBlockReader(false);
    SteppedProgress progress(stage, 100.0 / static_cast<std::int32_t>(blockCount));
    progress.Start();
    std::vector<std::vector<std::uint32_t>> members(clusters);
    for (std::uint32_t b = 0; b < blockCount; ++b) {
        reader.Read(Block(b));
        ForEachPiece(pool, clusters, [&](std::size_t c) {
            classFiles.ReadNext(c, blockClassCounts[b][c], members[c]);
            visit(c, members[c], reader);
        });
        progress.Step();
    }
}

// Adds term(pixel, band) over the members to sums[band], in member order for
// every band. The bands go side by side, one running sum each, so each sum
// sees the same additions in the same order as a pass per band would.
template <class T, class Term>
void AccumulateMembers(const std::vector<std::uint32_t>& members, const BlockReader<T>& reader,
                       std::vector<double>& sums, Term&& term) {
    constexpr std::size_t kSideBySide = 8;
    for (std::size_t first = 0; first < sums.size(); first += kSideBySide) {
        const std::size_t count = std::min(kSideBySide, sums.size() - first);
        const T* bands[kSideBySide];
        double running[kSideBySide];
        for (std::size_t j = 0; j < count; ++j) {
            bands[j] = reader.Band(first + j);
            running[j] = sums[first + j];
        }
        for (std::uint32_t p : members)
            for (std::size_t j = 0; j < count; ++j) running[j] += term(bands[j][p], first + j);
        for (std::size_t j = 0; j < count; ++j) sums[first + j] = running[j];
    }
}

} // namespace isodata
