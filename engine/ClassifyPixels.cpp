// The assignment pass: every pixel of the working raster goes to its nearest
// centre in city-block distance, block by block.
//
//  1. Open fresh scratch files and reset the distance and member sums.
//  2. For every block: read all bands, find each pixel's nearest centre
//     (NearestCenters; strictly nearer wins, so ties keep the lower cluster),
//     then in pixel order count it per block, add its distance to its
//     cluster's sum, add its band values to its cluster's member sums and
//     append its block-relative index to its cluster's scratch file. Blocks
//     go in batches (BlockBatch): the blocks of a batch find their nearest
//     centres side by side on the worker threads, if any; the sums, and the
//     counts and files, are then two streams in block and pixel order that
//     may go side by side too.
//  3. Every cluster's buffered indices reach its file before the next block.
// A pixel the validity mask excludes joins no cluster: it is not counted,
// adds to no sum and reaches no file, so every later statistic sees valid
// pixels only.
// Cluster 0 never accumulates a distance: its sum stays 0 whatever its
// members. That is the engine's long-standing rule and is kept.
// The member sums are added in the order the scratch files hold the members,
// so the centre update gets from them what a pass over the files would give.
// While pixels keep going to one cluster its sums are held in registers
// (RunningSums), which changes nothing about the order of the additions.
#include "IsodataEngine.h"
#include "BlockBatch.h"
#include "NearestCenters.h"

namespace isodata {

namespace {

// The centres as K rows of B values, the layout NearestCenters reads.
template <class T>
std::vector<T> FlattenCenters(const std::vector<std::vector<T>>& centers, std::size_t clusters, std::size_t bands) {
    std::vector<T> flat;
    flat.reserve(clusters * bands);
    for (std::size_t k = 0; k < clusters; ++k)
        for (std::size_t i = 0; i < bands; ++i) flat.push_back(centers[k][i]);
    return flat;
}

// The distance and member sums of the cluster the last pixel went to, held
// apart from their arrays until the next pixel goes elsewhere: each sum still
// gets the same additions in the same order, without a round trip through
// memory for every pixel. Up to kHeld bands; more go to the arrays directly.
class RunningSums {
public:
    static constexpr std::size_t kHeld = 16;

    RunningSums(std::vector<double>& distance, std::vector<double>& members, std::size_t bands)
        : distance_(distance), members_(members), bands_(bands) {}
    ~RunningSums() { Store(); }

    template <class T>
    void Add(std::size_t k, double best, const std::vector<const T*>& values, std::size_t p) {
        if (bands_ > kHeld) {
            if (k > 0) distance_[k] += best;
            double* sums = members_.data() + k * bands_;
            for (std::size_t i = 0; i < bands_; ++i) sums[i] += static_cast<double>(values[i][p]);
            return;
        }
        if (k != cluster_) Switch(k);
        if (k > 0) runDistance_ += best;  // cluster 0 never accumulates a distance
        for (std::size_t i = 0; i < bands_; ++i) run_[i] += static_cast<double>(values[i][p]);
    }

    // Puts the held sums back into the arrays.
    void Store() {
        if (cluster_ == kNone) return;
        distance_[cluster_] = runDistance_;
        std::copy_n(run_, bands_, members_.data() + cluster_ * bands_);
        cluster_ = kNone;
    }

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    void Switch(std::size_t k) {
        Store();
        cluster_ = k;
        runDistance_ = distance_[k];
        std::copy_n(members_.data() + k * bands_, bands_, run_);
    }

    std::vector<double>& distance_;
    std::vector<double>& members_;
    std::size_t bands_;
    std::size_t cluster_ = kNone;
    double runDistance_ = 0.0;
    double run_[kHeld] = {};
};

} // namespace

template <class T>
bool IsodataEngine<T>::ClassifyPixels(const StageProgress& stage) {
    const std::size_t clusters = ClusterLoopCount();
    const std::size_t bands = bandIndices.size();
    classCount = classSlots - 1;
    memberSumsCurrent = false;
    if (!CreateClassFiles()) return false;
    distanceSums.assign(clusters, 0.0);
    memberSums.assign(clusters * bands, 0.0);
    BlockReader<T> reader = MakeBlockReader();
    blockClassCounts.assign(blockCount, {});

    const std::vector<T> flat = FlattenCenters(centers, clusters, bands);
    const std::size_t rowLength = static_cast<std::size_t>(blockWidth);
    const std::size_t blockPixels = rowLength * static_cast<std::size_t>(blockHeight);
    BlockBatch<T> batch(bands, blockWidth, blockHeight, 2 * sizeof(double), blockCount);
    std::vector<double> best(static_cast<std::size_t>(batch.Capacity()) * blockPixels);
    std::vector<double> label(best.size());

    SteppedProgress progress(stage, 100.0 / static_cast<std::int32_t>(blockCount));
    progress.Start();
    RunningSums running(distanceSums, memberSums, bands);
    for (std::uint32_t first = 0; first < blockCount; first += batch.Capacity()) {
        batch.Load(reader, first, std::min(batch.Capacity(), blockCount - first), [this](std::uint32_t b) { return Block(b); }, pool);
        // With no cluster left there is nothing to assign, count or record.
        const auto rowsOf = [&](std::uint32_t b) { return clusters > 0 && b < blockPixelHeights.size() ? blockPixelHeights[b] : 0u; };
        ForEachPiece(pool, batch.Count(), [&](std::size_t j) {
            std::vector<const T*> blockBands(bands);
            for (std::size_t i = 0; i < bands; ++i) blockBands[i] = batch.Band(static_cast<std::uint32_t>(j), i);
            // Whole rows at once: in a partial block the pixels past its edge
            // are the reader's zero fill, and their results go unused.
            NearestCenters(blockBands.data(), bands, rowsOf(first + static_cast<std::uint32_t>(j)) * rowLength,
                           flat.data(), clusters, best.data() + j * blockPixels, label.data() + j * blockPixels);
        });
        // The members of the batch in block and pixel order, twice over.
        const auto members = [&](std::uint32_t j, auto&& visit) {
            const std::uint32_t b = first + j;
            const std::uint32_t columns = b < blockPixelWidths.size() ? blockPixelWidths[b] : 0;
            const std::uint8_t* valid = batch.Valid(j);
            const double* labels = label.data() + j * blockPixels;
            for (std::uint32_t r = 0; r < rowsOf(b); ++r) {
                for (std::uint32_t c = 0; c < columns; ++c) {
                    const std::size_t p = r * rowLength + c;
                    if (!valid || valid[p]) visit(static_cast<std::size_t>(labels[p]), p);
                }
            }
        };
        ForEachPiece(pool, 2, [&](std::size_t stream) {
            for (std::uint32_t j = 0; j < batch.Count(); ++j) {
                if (stream == 0) {
                    std::vector<const T*> blockBands(bands);
                    for (std::size_t i = 0; i < bands; ++i) blockBands[i] = batch.Band(j, i);
                    const double* bests = best.data() + j * blockPixels;
                    members(j, [&](std::size_t k, std::size_t p) { running.Add(k, bests[p], blockBands, p); });
                    continue;
                }
                std::vector<std::uint32_t>& counts = blockClassCounts[first + j];
                counts.assign(clusters, 0);
                members(j, [&](std::size_t k, std::size_t p) {
                    ++counts[k];
                    classFiles.Append(k, static_cast<std::uint32_t>(p));
                });
                classFiles.FlushBuffers();
            }
        });
        for (std::uint32_t j = 0; j < batch.Count(); ++j) progress.Step();
    }
    running.Store();
    memberSumsCurrent = true;
    return true;
}

#define ISODATA_INSTANTIATE(T) template bool IsodataEngine<T>::ClassifyPixels(const StageProgress&);
ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_INSTANTIATE)
#undef ISODATA_INSTANTIATE

} // namespace isodata
