// The state of one ISODATA run over a raster of element type T, and its
// stages. The run driver calls Setup and then RunIsodata; everything else is
// the iteration driver's own business. The stages live one per file beside
// this header.
//
// Cluster numbers inside the engine are 0-based (0 .. classSlots - 2); the
// class raster numbers them from 1, with 0 for unclassified pixels.
#pragma once

#include "BlockReader.h"
#include "ClassFiles.h"
#include "PixelTypes.h"

#include "ClassificationISO.h"
#include "Progress.h"
#include "ResultRaster.h"
#include "WorkerPool.h"

#include <KalDataSource.h>

#include <QString>

#include <cstdint>
#include <vector>

namespace isodata {

// What the run driver hands an engine: the record and the run's two rasters,
// and with a validity mask the working copy's mask and the rules the result
// pass reads at full size.
struct EngineInputs {
    stInfoClassificationISO record;
    KalUtility::_ptr_t<KalDataSource::RasterDataset> input;    // full size
    KalUtility::_ptr_t<KalDataSource::RasterDataset> working;  // reduced copy
    std::vector<const float*> workingPlanes;                   // its bands when held in memory, whole; else empty
    int width = 0, height = 0;                                 // reduced size
    KalUtility::_ptr_t<KalDataSource::RasterDataset> workingMask;  // Byte, reduced size, 0 = excluded; null: none
    std::int64_t workingValidPixels = 0;                       // pixels the working mask leaves in
    ResultPassOptions resultPass;
    PassReport* report = nullptr;                              // filled at the end when given
    WorkerPool* pool = nullptr;                                // threads the passes share out to; null: none
};

// Everything a run holds but its pixel-typed values, grouped by role. It is a
// plain base of the engine template so that every stage uses these names as
// they are.
struct EngineState {
    // Run inputs, set once by Setup. Counts from the record are widened with
    // sign, so a negative count becomes a huge one.
    std::int32_t width = 0, height = 0;              // working raster size
    std::int32_t bandCount = 0;                      // B
    std::vector<std::uint32_t> bandIndices;          // 0-based dataset bands
    KalUtility::_ptr_t<KalDataSource::RasterDataset> inputDataset;   // reduced working raster
    std::vector<const float*> workingPlanes;  // its bands, whole, when it is held in memory as floats; else empty
    KalUtility::_ptr_t<KalDataSource::RasterDataset> sourceDataset;  // full-size input
    // The working copy's validity mask, or null when every pixel takes part,
    // and the pixel count the overall mean distance is taken over: the valid
    // pixels, which without a mask are all height x width of them.
    KalUtility::_ptr_t<KalDataSource::RasterDataset> workingMask;
    std::int32_t meanDistancePixels = 0;
    ResultPassOptions resultPass;
    PassReport* report = nullptr;
    WorkerPool* pool = nullptr;
    QString inputPath, resultPath;
    std::int32_t pixelType = 0;
    std::uint64_t desiredClassCount = 0;             // D
    std::int64_t minClassPixels = 0;
    std::uint64_t maxMergePairs = 0;
    std::uint64_t maxIterations = 0;
    double stdDevThreshold = 0.0;
    double mergeDistanceThreshold = 0.0;

    // Block grid: runs start from 64 x 64 blocks, which InitBlockGrid may
    // enlarge; the sampling pass records every block's clipped extent, which
    // all later passes use.
    std::int32_t blockWidth = 64, blockHeight = 64;
    std::int32_t blockColumns = 0, blockRows = 0;
    std::uint32_t blockCount = 0;
    std::vector<std::uint32_t> blockPixelWidths, blockPixelHeights;
    std::size_t sampleCount = 0;                     // N: samples taken, one per block holding a valid pixel

    // Clusters (their centres are in the engine, typed): counts, per-block
    // membership counts and the scratch files holding the members.
    std::uint64_t classCount = 0;                    // K
    std::uint64_t classSlots = 1;                    // K + 1
    std::vector<std::vector<std::uint32_t>> blockClassCounts;  // [block][cluster]
    ClassFiles classFiles;

    // Per-pass statistics of the clusters.
    std::vector<double> distanceSums;                // [cluster], from the classification
    std::vector<std::int32_t> classPixelCounts;      // [cluster], from the centre update
    std::vector<double> meanDistances;               // [cluster]
    double overallMeanDistance = 0.0;
    std::vector<std::vector<double>> classStdDevs;   // [cluster][rank], descending, from the split
    std::vector<double> memberSums;                  // [cluster * bands + band], members' values
    bool memberSumsCurrent = false;                  // memberSums add up what the scratch files hold

    // What the rounds did, for the report; read by nothing that decides.
    std::vector<IterationStep> history;
    std::int32_t lastSplit = 0;                      // 1-based cluster the last split took; 0: none
    std::vector<std::pair<std::int32_t, std::int32_t>> lastMerges;  // 1-based pairs the last merge took

    // Result and texts.
    KalUtility::_ptr_t<KalDataSource::RasterDataset> resultDataset;  // class raster, open for update
    QString progressText;                            // prefix of every stage text in the loop
};

// The tests' way to a single stage; defined by the engine tests only.
template <class T> class EngineTestSeam;

template <class T>
class IsodataEngine : private EngineState {
public:
    IsodataEngine() = default;
    ~IsodataEngine();
    IsodataEngine(const IsodataEngine&) = delete;
    IsodataEngine& operator=(const IsodataEngine&) = delete;

    // Takes the record's values and the run's rasters. False, with nothing
    // allocated, for a record the engine cannot hold.
    bool Setup(const EngineInputs& inputs, std::int32_t pixelTypeCode);

    // The whole run: grid, initial centres, the iteration loop, the result.
    // True when the class raster was written.
    bool RunIsodata(ProgressFn progress, void* userData);

private:
    friend class EngineTestSeam<T>;

    static constexpr std::int32_t kMaxBlocksPerSide = 50;

    // Samples and centres in the pixel type.
    std::vector<std::vector<T>> samples;             // [band][sample]
    std::vector<std::vector<T>> centers;             // [cluster][band]

    // The iteration driver and its helpers (RunIsodata.cpp).
    QString StageText(const char* sourceText) const;
    void RunIteration(std::uint64_t round, ProgressFn progress, void* userData, bool& stop);
    // The clusters dropped, counted.
    std::int32_t ReclassifyWhileSmallClassesDropped(ProgressFn progress, void* userData);
    void InitBlockGrid();
    BlockGeometry Block(std::uint32_t b) const;
    std::size_t ClusterLoopCount() const { return static_cast<std::size_t>(classSlots - 1); }
    std::int32_t ClusterTotal(std::size_t k) const;
    bool RemoveSmallClasses();
    bool CreateClassFiles();
    void RemoveClassFiles();
    bool OpenResultDataset();
    void ReleaseEngine();

    // The stages, one file each.
    void SampleBlocks(const StageProgress& stage);
    void SelectInitialCenters(const StageProgress& stage);
    bool ClassifyPixels(const StageProgress& stage);
    void ComputeClusterCenters(const StageProgress& stage);
    void ComputeMeanDistances(const StageProgress& stage);
    bool SplitClusters(const StageProgress& stage);
    bool MergeClusters();
    void GenerateResultRaster(ProgressFn progress, void* userData);
    void AttachClassMetadata();

    // A reader of the working copy's blocks; withValidity adds the valid flags.
    BlockReader<T> MakeBlockReader(bool withValidity = true) const;

    // One pass over the image and the scratch files (MemberPass.h).
    template <class Visit>
    void VisitClusterMembers(const StageProgress& stage, Visit&& visit);
};

} // namespace isodata
