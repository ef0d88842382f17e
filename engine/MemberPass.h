// One pass over the image and the scratch files that hands every cluster's
// members of every block, with the block's pixels, to a visitor. The centre
// update and the split both accumulate over members this way.
//
// Files are consumed strictly in the order the classification pass wrote
// them: block after block, and within a block each cluster's own file from
// where the last block left it. The clusters touch nothing in common (their
// files, their sums), so over a batch of blocks they may go to the worker
// threads, each cluster still taking the blocks in order.
#pragma once

#include "BlockBatch.h"
#include "IsodataEngine.h"

#include <algorithm>
#include <type_traits>

namespace isodata {

// visit(cluster, members, block): members are the block-relative indices of
// the cluster's pixels in the current block, block.Band(i) holds its bands.
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
    BlockBatch<T> batch(bandIndices.size(), blockWidth, blockHeight, 0, blockCount);
    std::vector<std::vector<std::uint32_t>> members(clusters);
    for (std::uint32_t first = 0; first < blockCount; first += batch.Capacity()) {
        batch.Load(reader, first, std::min(batch.Capacity(), blockCount - first), [this](std::uint32_t b) { return Block(b); }, pool);
        ForEachPiece(pool, clusters, [&](std::size_t c) {
            for (std::uint32_t j = 0; j < batch.Count(); ++j) {
                classFiles.ReadNext(c, blockClassCounts[first + j][c], members[c]);
                visit(c, members[c], batch.Block(j));
            }
        });
        for (std::uint32_t j = 0; j < batch.Count(); ++j) progress.Step();
    }
}

// Adds term(pixel, band) over the members to sums[band], in member order for
// every band. The bands go side by side, one running sum each, so each sum
// sees the same additions in the same order as a pass per band would.
template <class Block, class Term>
void AccumulateMembers(const std::vector<std::uint32_t>& members, const Block& reader,
                       std::vector<double>& sums, Term&& term) {
    constexpr std::size_t kSideBySide = 8;
    for (std::size_t first = 0; first < sums.size(); first += kSideBySide) {
        const std::size_t count = std::min(kSideBySide, sums.size() - first);
        using T = std::remove_cv_t<std::remove_pointer_t<decltype(reader.Band(0))>>;
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
