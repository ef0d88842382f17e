// The first cluster centres: one sample pixel per block, then farthest-first
// selection on the city-block distances between the samples.
//
//  1. SampleBlocks: read every block once, record its clipped extent (which
//     every later pass uses) and take its top-left pixel as the sample; with
//     a validity mask, its first valid pixel in row order, and none from a
//     block without one.
//  2. The first centre is the most central sample: the one whose largest
//     distance to any other sample is smallest.
//  3. Each further centre is the sample farthest from its nearest centre
//     chosen so far.
// Distances between samples are summed in the pixel type itself, so for the
// integer types they wrap (modulo 256 for bytes); that is intended. Rows of
// the distance matrix are computed when needed instead of being stored.
// Among equal distances the lowest sample number is taken.
#include "IsodataEngine.h"

namespace isodata {

namespace {

template <class T>
T SampleDistance(const std::vector<std::vector<T>>& samples, std::size_t x, std::size_t y) {
    T sum = T(0);
    for (const auto& band : samples) sum = SampleAdd(sum, SampleTerm(band[x], band[y]));
    return sum;
}

// Largest distance of every sample to any sample (its own distance being 0).
template <class T>
std::vector<T> Eccentricities(const std::vector<std::vector<T>>& samples, std::size_t n, SteppedProgress& progress) {
    std::vector<T> largest(n, T(0));
    for (std::size_t x = 0; x < n; ++x) {
        for (std::size_t y = x + 1; y < n; ++y) {
            const T d = SampleDistance(samples, x, y);
            if (DistanceGreater(d, largest[x])) largest[x] = d;
            if (DistanceGreater(d, largest[y])) largest[y] = d;
        }
        progress.Step();
    }
    return largest;
}

// Index of the first value no later one beats: better(a, b) says a beats b.
template <class T, class Better>
std::size_t IndexOfBest(const std::vector<T>& values, Better better) {
    std::size_t best = 0;
    for (std::size_t i = 1; i < values.size(); ++i)
        if (better(values[i], values[best])) best = i;
    return best;
}

template <class T>
std::size_t IndexOfSmallest(const std::vector<T>& values) {
    return IndexOfBest(values, [](T a, T b) { return DistanceGreater(b, a); });
}

template <class T>
std::size_t IndexOfLargest(const std::vector<T>& values) {
    return IndexOfBest(values, [](T a, T b) { return DistanceGreater(a, b); });
}

// Block-relative index of the first valid pixel of a w x h block in row
// order, or -1 when it has none.
std::int64_t FirstValid(const std::uint8_t* valid, std::int32_t w, std::int32_t h, std::int32_t stride) {
    for (std::int32_t r = 0; r < h; ++r)
        for (std::int32_t c = 0; c < w; ++c)
            if (valid[static_cast<std::size_t>(r) * stride + c]) return static_cast<std::int64_t>(r) * stride + c;
    return -1;
}

} // namespace

template <class T>
void IsodataEngine<T>::SampleBlocks(const StageProgress& stage) {
    blockPixelWidths.assign(blockCount, 0);
    blockPixelHeights.assign(blockCount, 0);
    samples.assign(bandIndices.size(), std::vector<T>(blockCount));
    sampleCount = 0;
    BlockReader<T> reader = MakeBlockReader();
    SteppedProgress progress(stage, 100.0 / static_cast<std::int32_t>(blockCount));
    progress.Start();
    for (std::uint32_t b = 0; b < blockCount; ++b) {
        const BlockGeometry g = Block(b);
        reader.Read(g);
        blockPixelWidths[b] = static_cast<std::uint32_t>(g.w);
        blockPixelHeights[b] = static_cast<std::uint32_t>(g.h);
        std::int64_t first = 0;  // the block's top-left pixel
        if (const std::uint8_t* valid = reader.Valid()) first = FirstValid(valid, g.w, g.h, blockWidth);
        if (first >= 0) {
            for (std::size_t i = 0; i < samples.size(); ++i) samples[i][sampleCount] = reader.Band(i)[first];
            ++sampleCount;
        }
        progress.Step();
    }
    for (auto& band : samples) band.resize(sampleCount);
}

template <class T>
void IsodataEngine<T>::SelectInitialCenters(const StageProgress& stage) {
    SampleBlocks(stage);
    const std::size_t n = sampleCount;
    const std::size_t k = static_cast<std::size_t>(classCount);
    centers.assign(k, std::vector<T>(bandIndices.size(), T(0)));

    SteppedProgress rows(stage, 100.0 / static_cast<double>(n));
    rows.Start();
    if (n == 0) return;
    const std::vector<T> eccentricity = Eccentricities(samples, n, rows);

    const StageProgress choosing(stage.Callback(), stage.UserData(),
                                 Translate(kOutputContext, kChoosingCenters));
    SteppedProgress progress(choosing, 100.0 / static_cast<double>(classCount));
    progress.Start();
    if (k == 0) return;

    const auto takeCenter = [&](std::size_t c, std::size_t sample) {
        for (std::size_t i = 0; i < samples.size(); ++i) centers[c][i] = samples[i][sample];
    };
    const std::size_t first = IndexOfSmallest(eccentricity);
    takeCenter(0, first);

    // Distance of every sample to its nearest chosen centre.
    std::vector<T> nearest(n);
    for (std::size_t y = 0; y < n; ++y) nearest[y] = SampleDistance(samples, first, y);
    for (std::size_t c = 1; c < k; ++c) {
        const std::size_t next = IndexOfLargest(nearest);
        takeCenter(c, next);
        for (std::size_t y = 0; y < n; ++y) {
            const T d = SampleDistance(samples, next, y);
            if (nearest[y] > d) nearest[y] = d;
        }
        progress.Step();
    }
}

#define ISODATA_INSTANTIATE(T)                                        \
    template void IsodataEngine<T>::SampleBlocks(const StageProgress&); \
    template void IsodataEngine<T>::SelectInitialCenters(const StageProgress&);
ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_INSTANTIATE)
#undef ISODATA_INSTANTIATE

} // namespace isodata
