// The assignment pass: every pixel of the working raster goes to its nearest
// centre in city-block distance, block by block.
//
//  1. Open fresh scratch files and reset the distance and member sums.
//  2. For every block: read all bands, find each pixel's nearest centre
//     (NearestCenters; strictly nearer wins, so ties keep the lower cluster;
//     rows shared out to the worker threads, if any), then in pixel order
//     count it per block, add its distance to its cluster's sum, add its
//     band values to its cluster's member sums and append its block-relative
//     index to its cluster's scratch file.
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

// NearestCenters over the first rows rows of a block, the rows shared out to
// pool: each pixel's answer depends on that pixel alone.
template <class T>
void NearestInPieces(WorkerPool* pool, const std::vector<const T*>& bands, std::size_t rowLength, std::size_t rows,
                     const std::vector<T>& centres, std::size_t clusters, double* best, double* label) {
    const Pieces pieces(rows, PiecesFor(pool));
    ForEachPiece(pool, pieces.count, [&](std::size_t p) {
        const std::size_t first = pieces.Begin(p) * rowLength, end = pieces.Begin(p + 1) * rowLength;
        std::vector<const T*> shifted(bands.size());
        for (std::size_t i = 0; i < bands.size(); ++i) shifted[i] = bands[i] + first;
        NearestCenters(shifted.data(), bands.size(), end - first, centres.data(), clusters, best + first,
                       label + first);
    });
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
    std::vector<double> best(rowLength * static_cast<std::size_t>(blockHeight));
    std::vector<double> label(best.size());
    std::vector<const T*> blockBands(bands);

    SteppedProgress progress(stage, 100.0 / static_cast<std::int32_t>(blockCount));
    progress.Start();
    RunningSums running(distanceSums, memberSums, bands);
    for (std::uint32_t b = 0; b < blockCount; ++b) {
        std::vector<std::uint32_t>& counts = blockClassCounts[b];
        counts.assign(clusters, 0);
        reader.Read(Block(b));
        // With no cluster left there is nothing to assign, count or record.
        const std::uint32_t rows = clusters > 0 && b < blockPixelHeights.size() ? blockPixelHeights[b] : 0;
        const std::uint32_t columns = b < blockPixelWidths.size() ? blockPixelWidths[b] : 0;
        for (std::size_t i = 0; i < bands; ++i) blockBands[i] = reader.Band(i);
        const std::uint8_t* valid = reader.Valid();
        // Whole rows at once: in a partial block the pixels past its edge are
        // the reader's zero fill, and their results go unused.
        NearestInPieces(pool, blockBands, rowLength, rows, flat, clusters, best.data(), label.data());
        // The members in pixel order, twice over: the sums are one stream
        // of additions and the counts and files another, which touch nothing
        // in common and may go side by side.
        const auto members = [&](auto&& visit) {
            for (std::uint32_t r = 0; r < rows; ++r) {
                for (std::uint32_t c = 0; c < columns; ++c) {
                    const std::size_t p = r * rowLength + c;
                    if (!valid || valid[p]) visit(static_cast<std::size_t>(label[p]), p);
                }
            }
        };
        ForEachPiece(pool, 2, [&](std::size_t stream) {
            if (stream == 0) {
                members([&](std::size_t k, std::size_t p) { running.Add(k, best[p], blockBands, p); });
                return;
            }
            members([&](std::size_t k, std::size_t p) {
                ++counts[k];
                classFiles.Append(k, static_cast<std::uint32_t>(p));
            });
            classFiles.FlushBuffers();
        });
        progress.Step();
    }
    running.Store();
    memberSumsCurrent = true;
    return true;
}

#define ISODATA_INSTANTIATE(T) template bool IsodataEngine<T>::ClassifyPixels(const StageProgress&);
ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_INSTANTIATE)
#undef ISODATA_INSTANTIATE

} // namespace isodata
