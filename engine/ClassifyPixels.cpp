// The assignment pass: every pixel of the working raster goes to its nearest
// centre in city-block distance, block by block.
//
//  1. Open fresh scratch files and reset the distance sums.
//  2. For every block: read all bands, find each pixel's nearest centre
//     (strictly nearer wins, so ties keep the lower cluster), count it per
//     block, add its distance to its cluster's sum and append its
//     block-relative index to its cluster's scratch file.
//  3. Every cluster's buffered indices reach its file before the next block.
// Cluster 0 never accumulates a distance: its sum stays 0 whatever its
// members. That is the engine's long-standing rule and is kept.
#include "IsodataEngine.h"

#include <limits>

namespace isodata {

namespace {

struct RowScratch {
    explicit RowScratch(std::size_t n) : best(n), distance(n), label(n) {}
    std::vector<double> best, distance;
    std::vector<double> label;  // held as a double, so it blends in step with the distance
};

// Nearest centre of n consecutive pixels. Loops run over pixels innermost so
// the compiler can vectorise them; every pixel still sums its bands in band
// order, so the distances are those of a pixel-by-pixel loop.
template <class T>
void NearestCenters(const std::vector<const T*>& bands, std::size_t n, const std::vector<std::vector<T>>& centers,
                    std::size_t clusters, RowScratch& s) {
    double* __restrict best = s.best.data();
    double* __restrict dist = s.distance.data();
    double* __restrict label = s.label.data();
    std::fill_n(best, n, std::numeric_limits<double>::infinity());
    std::fill_n(label, n, 0.0);
    for (std::size_t k = 0; k < clusters; ++k) {
        std::fill_n(dist, n, 0.0);
        for (std::size_t i = 0; i < bands.size(); ++i) {
            const T centre = centers[k][i];
            const T* __restrict pixel = bands[i];
            for (std::size_t x = 0; x < n; ++x) dist[x] += ClassifyTerm(centre, pixel[x]);
        }
        const auto cluster = static_cast<double>(k);
        for (std::size_t x = 0; x < n; ++x) {
            const bool nearer = best[x] > dist[x];
            best[x] = nearer ? dist[x] : best[x];
            label[x] = nearer ? cluster : label[x];
        }
    }
}

} // namespace

template <class T>
bool IsodataEngine<T>::ClassifyPixels(const StageProgress& stage) {
    const std::size_t clusters = ClusterLoopCount();
    classCount = classSlots - 1;
    if (!CreateClassFiles()) return false;
    distanceSums.assign(clusters, 0.0);
    BlockReader<T> reader(inputDataset ? inputDataset->GetGDALDataset() : nullptr, bandIndices, blockWidth,
                          blockHeight);
    blockClassCounts.assign(blockCount, {});

    const std::size_t rowLength = static_cast<std::size_t>(blockWidth);
    RowScratch scratch(rowLength);
    std::vector<const T*> rowBands(bandIndices.size());

    SteppedProgress progress(stage, 100.0 / static_cast<std::int32_t>(blockCount));
    progress.Start();
    for (std::uint32_t b = 0; b < blockCount; ++b) {
        std::vector<std::uint32_t>& counts = blockClassCounts[b];
        counts.assign(clusters, 0);
        reader.Read(Block(b));
        const std::uint32_t rows = b < blockPixelHeights.size() ? blockPixelHeights[b] : 0;
        const std::uint32_t columns = b < blockPixelWidths.size() ? blockPixelWidths[b] : 0;
        for (std::uint32_t r = 0; r < rows; ++r) {
            const std::size_t rowStart = static_cast<std::size_t>(r) * rowLength;
            for (std::size_t i = 0; i < rowBands.size(); ++i) rowBands[i] = reader.Band(i) + rowStart;
            NearestCenters(rowBands, columns, centers, clusters, scratch);
            // With no cluster left there is nothing to count or record.
            if (clusters == 0) continue;
            for (std::uint32_t c = 0; c < columns; ++c) {
                const auto k = static_cast<std::size_t>(scratch.label[c]);
                if (k > 0) distanceSums[k] += scratch.best[c];
                ++counts[k];
                classFiles.Append(k, static_cast<std::uint32_t>(rowStart + c));
            }
        }
        classFiles.FlushBuffers();
        progress.Step();
    }
    return true;
}

#define ISODATA_INSTANTIATE(T) template bool IsodataEngine<T>::ClassifyPixels(const StageProgress&);
ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_INSTANTIATE)
#undef ISODATA_INSTANTIATE

} // namespace isodata
