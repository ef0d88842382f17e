// The engine's setup from the record, its iteration driver and the driver's
// small helpers: block grid, removal of small clusters, the result dataset,
// release.
//
//  0. Setup refuses a record the engine cannot hold, else takes its values.
//  1. Lay the block grid, choose the initial centres, classify once.
//  2. Run maxIterations rounds: drop small clusters, recompute centres and
//     mean distances, then split or merge by the class counts and the round's
//     parity, reclassifying after a successful split or merge.
//  3. Drop small clusters a last time, label the full-size input, attach the
//     class names and colours, release everything.
#include "IsodataEngine.h"

#include <cmath>
#include <type_traits>

namespace isodata {

namespace {

// What an engine cannot hold: a negative initial cluster count, or more than
// kMaxInitialClusters. Every cluster costs a scratch file and a 256 KiB write
// buffer that each classification pass fills with zeros, so 4096 clusters
// already take 1 GiB. Far beyond that the allocation a record asks for does
// not fail cleanly: on a system that overcommits memory, the run is ended by
// the out-of-memory killer, host and all. So Setup refuses such a record
// before allocating anything. Every count up to the limit runs as it always
// has; above 255 clusters the class numbers wrap in the byte raster, which is
// defined behaviour, not a reason to refuse.
constexpr std::int32_t kMaxInitialClusters = 4096;

std::int32_t CeilDiv(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(std::ceil(static_cast<double>(a) / static_cast<double>(b)));
}

// A record count widened with sign to 64 bits, then read as unsigned.
std::uint64_t Widened(std::int32_t count) { return static_cast<std::uint64_t>(static_cast<std::int64_t>(count)); }

} // namespace

template <class T>
IsodataEngine<T>::~IsodataEngine() {
    ReleaseEngine();
}

template <class T>
bool IsodataEngine<T>::Setup(const EngineInputs& inputs, std::int32_t pixelTypeCode) {
    const stInfoClassificationISO& record = inputs.record;
    if (record.initialClassCount < 0 || record.initialClassCount > kMaxInitialClusters) return false;
    pixelType = pixelTypeCode;
    sourceDataset = inputs.input;
    inputDataset = inputs.working;
    workingPlanes = inputs.workingPlanes;
    inputPath = record.inputPath;
    resultPath = record.resultPath;
    width = inputs.width;
    height = inputs.height;
    workingMask = inputs.workingMask;
    // A signed 32-bit count, wrapping like one.
    meanDistancePixels = static_cast<std::int32_t>(
        workingMask ? static_cast<std::uint32_t>(inputs.workingValidPixels)
                    : static_cast<std::uint32_t>(height) * static_cast<std::uint32_t>(width));
    resultPass = inputs.resultPass;
    report = inputs.report;
    pool = inputs.pool;
    bandIndices.assign(record.bandIndices.begin(), record.bandIndices.end());
    bandCount = static_cast<std::int32_t>(bandIndices.size());
    desiredClassCount = Widened(record.desiredClassCount);
    classSlots = Widened(record.initialClassCount) + 1;
    classCount = Widened(record.initialClassCount);
    minClassPixels = record.minClassPixels;
    maxMergePairs = Widened(record.maxMergePairs);
    maxIterations = Widened(record.maxIterations);
    stdDevThreshold = record.stdDevThreshold;
    mergeDistanceThreshold = record.mergeDistanceThreshold;
    return true;
}

template <class T>
QString IsodataEngine<T>::StageText(const char* sourceText) const {
    return progressText + Translate(kEngineContext, sourceText);
}

template <class T>
void IsodataEngine<T>::InitBlockGrid() {
    blockColumns = CeilDiv(width, blockWidth);
    blockRows = CeilDiv(height, blockHeight);
    blockCount = static_cast<std::uint32_t>(blockColumns * blockRows);
    if (blockColumns <= kMaxBlocksPerSide && blockRows <= kMaxBlocksPerSide) return;
    // Larger images get larger blocks: the longer side over 50, raised to a
    // multiple of 16 pixels.
    const std::int32_t longer = width < height ? height : width;
    const double perBlock = std::ceil(static_cast<double>(longer) / kMaxBlocksPerSide);
    const std::int32_t side = 16 * static_cast<std::int32_t>(std::ceil(perBlock * 0.0625));
    blockWidth = blockHeight = side;
    blockColumns = CeilDiv(width, side);
    blockRows = CeilDiv(height, side);
    blockCount = static_cast<std::uint32_t>(blockColumns * blockRows);
}

template <class T>
BlockGeometry IsodataEngine<T>::Block(std::uint32_t b) const {
    const auto columns = static_cast<std::uint32_t>(blockColumns);
    BlockGeometry g{static_cast<std::int32_t>(b % columns) * blockWidth,
                    static_cast<std::int32_t>(b / columns) * blockHeight, blockWidth, blockHeight, false};
    const bool last = b + 1 == blockCount;
    const std::int32_t clippedW = width - (blockColumns - 1) * blockWidth;
    const std::int32_t clippedH = height - (blockRows - 1) * blockHeight;
    if ((b + 1) % columns == 0 && !last) {
        g.w = clippedW;
    } else if (static_cast<std::int64_t>(b) >= static_cast<std::int64_t>(blockCount) - blockColumns && !last) {
        g.h = clippedH;
    } else if (last) {
        g.w = clippedW;
        g.h = clippedH;
    }
    g.partial = g.w != blockWidth || g.h != blockHeight;
    return g;
}

template <class T>
BlockReader<T> IsodataEngine<T>::MakeBlockReader(bool withValidity) const {
    std::vector<const T*> planes;
    if constexpr (std::is_same_v<T, float>) planes = workingPlanes;
    return BlockReader<T>(inputDataset ? inputDataset->GetGDALDataset() : nullptr, bandIndices, blockWidth,
                          blockHeight, withValidity && workingMask ? workingMask->GetGDALDataset() : nullptr, planes);
}

template <class T>
std::int32_t IsodataEngine<T>::ClusterTotal(std::size_t k) const {
    std::uint32_t total = 0;  // a signed 32-bit sum; wraps like one
    for (std::uint32_t b = 0; b < blockCount && b < blockClassCounts.size(); ++b)
        if (k < blockClassCounts[b].size()) total += blockClassCounts[b][k];
    return static_cast<std::int32_t>(total);
}

template <class T>
bool IsodataEngine<T>::RemoveSmallClasses() {
    std::uint64_t remaining = classSlots - 1;
    const auto highest = static_cast<std::int32_t>(classSlots - 2);
    if (highest < 0) return false;
    const auto minimum = static_cast<std::int32_t>(minClassPixels);
    bool dropped = false;
    // From the highest number down, so the clusters still to test keep theirs.
    for (std::int32_t k = highest; k >= 0; --k) {
        if (ClusterTotal(static_cast<std::size_t>(k)) < minimum && static_cast<std::size_t>(k) < centers.size()) {
            centers.erase(centers.begin() + k);
            --remaining;
            dropped = true;
        }
    }
    if (dropped) classSlots = remaining + 1;
    return dropped;
}

template <class T>
bool IsodataEngine<T>::OpenResultDataset() {
    resultDataset = KalDataSource::DatasetFactory::Instance()->OpenRasterDataset(resultPath, KalDataSource::OpenUpdate);
    return static_cast<bool>(resultDataset);
}

template <class T>
void IsodataEngine<T>::ReleaseEngine() {
    RemoveClassFiles();
    std::vector<std::uint32_t>().swap(blockPixelWidths);
    std::vector<std::uint32_t>().swap(blockPixelHeights);
}

template <class T>
bool IsodataEngine<T>::CreateClassFiles() {
    return classFiles.Create(inputPath, classCount);
}

template <class T>
void IsodataEngine<T>::RemoveClassFiles() {
    classFiles.Remove();
}

template <class T>
std::int32_t IsodataEngine<T>::ReclassifyWhileSmallClassesDropped(ProgressFn progress, void* userData) {
    const std::uint64_t before = classSlots;
    while (RemoveSmallClasses()) {
        RemoveClassFiles();
        ClassifyPixels(StageProgress(progress, userData, StageText(kStatisticalClassification)));
    }
    return static_cast<std::int32_t>(before - classSlots);
}

template <class T>
void IsodataEngine<T>::RunIteration(std::uint64_t round, ProgressFn progress, void* userData, bool& stop) {
    // The prefix grows every round and is never reset: "1times iteration2times
    // iteration..." is what the host shows, on purpose.
    progressText += QString("%1").arg(round, 0, 10, QLatin1Char(' ')) + Translate(kEngineContext, kTimesIteration);
    IterationStep step;
    step.round = static_cast<std::int64_t>(round);
    step.removed = ReclassifyWhileSmallClassesDropped(progress, userData);
    ComputeClusterCenters(StageProgress(progress, userData, StageText(kComputingClusterCenter)));
    ComputeMeanDistances(StageProgress(progress, userData, StageText(kAverageDistance)));

    double weighted = 0.0;
    for (std::size_t c = 0; c < ClusterLoopCount(); ++c)
        weighted += static_cast<double>(classPixelCounts[c]) * meanDistances[c];
    overallMeanDistance = weighted / static_cast<double>(meanDistancePixels);
    step.meanDistance = overallMeanDistance;

    const std::uint64_t k = classCount, d = desiredClassCount;
    const bool odd = round % 2 == 1;
    if (k == d && odd) {
        stop = true;
    } else if (k <= d / 2 || (k < 2 * d && odd)) {
        if (SplitClusters(StageProgress(progress, userData, StageText(kSplit)))) {
            step.split = lastSplit;
            RemoveClassFiles();
            classCount = classSlots - 1;  // before the pass here, after it on a merge: kept as is
            ClassifyPixels(StageProgress(progress, userData, StageText(kSplitClassification)));
        }
    } else if (MergeClusters()) {
        step.merged = lastMerges;
        RemoveClassFiles();
        ClassifyPixels(StageProgress(progress, userData, StageText(kMergeClassification)));
        classCount = classSlots - 1;
    }
    step.classes = static_cast<std::int32_t>(classSlots - 1);
    history.push_back(std::move(step));
}

template <class T>
bool IsodataEngine<T>::RunIsodata(ProgressFn progress, void* userData) {
    InitBlockGrid();
    progressText = Translate(kEngineContext, kSelectInitialCenter);
    SelectInitialCenters(StageProgress(progress, userData, progressText));
    if (!ClassifyPixels(StageProgress(progress, userData, Translate(kEngineContext, kStatisticalClassification)))) {
        ReleaseEngine();
        return false;
    }
    // The counter is tested after its decrement, so 0 wraps and only the
    // early stop (K = D on an odd round) ends the loop.
    std::uint64_t remaining = maxIterations;
    std::uint64_t round = 1;
    do {
        bool stop = false;
        RunIteration(round++, progress, userData, stop);
        if (stop) break;
    } while (--remaining != 0);

    classCount = classSlots - 1;
    if (const std::int32_t removed = ReclassifyWhileSmallClassesDropped(progress, userData); removed > 0) {
        IterationStep last;
        last.removed = removed;
        last.classes = static_cast<std::int32_t>(classSlots - 1);
        last.meanDistance = std::nan("");
        history.push_back(std::move(last));
    }
    progressText = Translate(kEngineContext, kGenerateResultFile);
    if (!OpenResultDataset()) {
        ReleaseEngine();
        return false;
    }
    GenerateResultRaster(progress, userData);
    AttachClassMetadata();
    resultDataset.reset();
    ReleaseEngine();
    return true;
}

#define ISODATA_INSTANTIATE(T) template class IsodataEngine<T>;
ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_INSTANTIATE)
#undef ISODATA_INSTANTIATE

} // namespace isodata
