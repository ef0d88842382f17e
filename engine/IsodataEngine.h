// The state of one ISODATA run over a raster of element type T, and its
// stages. The run driver fills the public members and calls RunIsodata; the
// stages live one per file beside this header.
//
// Cluster numbers inside the engine are 0-based (0 .. classSlots - 2); the
// class raster numbers them from 1, with 0 for unclassified pixels.
#pragma once

#include "BlockReader.h"
#include "ClassFiles.h"
#include "PixelTypes.h"

#include "ClassificationISO.h"
#include "Progress.h"

#include <KalDataSource.h>

#include <QString>

#include <cstdint>
#include <vector>

namespace isodata {

template <class T>
class IsodataEngine {
public:
    static constexpr std::int32_t kMaxBlocksPerSide = 50;
    static constexpr std::int32_t kInitialBlockSide = 64;
    static constexpr int kSamplesPerBlock = 1;

    explicit IsodataEngine(const stInfoClassificationISO& record);
    ~IsodataEngine();
    IsodataEngine(const IsodataEngine&) = delete;
    IsodataEngine& operator=(const IsodataEngine&) = delete;

    // The whole run: grid, initial centres, the iteration loop, the result.
    // True when the class raster was written.
    bool RunIsodata(ProgressFn progress, void* userData);

    // --- iteration driver helpers
    void InitBlockGrid();
    BlockGeometry Block(std::uint32_t b) const;
    bool RemoveSmallClasses();
    bool OpenResultDataset();
    bool CloseResultDataset();
    void ReleaseEngine();

    // --- stages
    void SampleBlocks(double* accA, double* accB, const StageProgress& stage, int samplesPerBlock);
    void SelectInitialCenters(double* accA, double* accB, const StageProgress& stage, int samplesPerBlock);
    bool CreateClassFiles();
    void RemoveClassFiles();
    bool ClassifyPixels(const StageProgress& stage);
    void ComputeClusterCenters(const StageProgress& stage);
    void ComputeMeanDistances(const StageProgress& stage);
    bool SplitClusters(const StageProgress& stage);
    bool MergeClusters();
    void GenerateResultRaster(ProgressFn progress, void* userData);
    void AttachClassMetadata();

    // Number of clusters the stages loop over: classSlots - 1.
    std::size_t ClusterLoopCount() const { return static_cast<std::size_t>(classSlots - 1); }

    // --- state (names shared with every stage)
    std::int32_t width = 0, height = 0;
    std::int32_t bandCount = 0;
    std::vector<std::uint32_t> bandIndices;
    std::int32_t blockColumns = 0, blockRows = 0;
    std::uint32_t blockCount = 0;
    std::int32_t blockWidth = kInitialBlockSide, blockHeight = kInitialBlockSide;
    KalUtility::_ptr_t<KalDataSource::RasterDataset> inputDataset;   // reduced working raster
    KalUtility::_ptr_t<KalDataSource::RasterDataset> sourceDataset;  // full-size input
    KalUtility::_ptr_t<KalDataSource::RasterDataset> resultDataset;  // class raster, open for update
    QString inputPath, resultPath, errorText, sourceName;
    std::vector<std::vector<T>> samples;                 // [band][sample]
    std::uint64_t classCount = 0;                        // K
    std::vector<std::uint32_t> blockPixelWidths, blockPixelHeights, blockPixelCounts;
    std::vector<std::vector<T>> centers;                 // [cluster][band]
    std::vector<std::vector<std::uint32_t>> blockClassCounts;  // [block][cluster]
    ClassFiles classFiles;
    std::int32_t pixelType = 0;
    QString progressText;
    stInfoClassificationISO params;
    std::uint64_t desiredClassCount = 0;                 // D
    std::uint64_t classSlots = 1;                        // K + 1
    std::int64_t minClassPixels = 0;
    std::uint64_t maxMergePairs = 0;
    std::uint64_t maxIterations = 0;
    double stdDevThreshold = 0.0;
    double mergeDistanceThreshold = 0.0;
    double overallMeanDistance = 0.0;
    std::vector<double> distanceSums;                    // [cluster]
    std::vector<double> meanDistances;                   // [cluster]
    std::vector<std::int32_t> classPixelCounts;          // [cluster]
    std::vector<std::vector<double>> classStdDevs;       // [cluster][rank], descending
    std::vector<double> memberSums;                      // [cluster * bands + band], members' values
    bool memberSumsCurrent = false;                      // memberSums add up what the scratch files hold

private:
    QString StageText(const char* sourceText) const;
    void RunIteration(std::uint64_t round, ProgressFn progress, void* userData, bool& stop);
    void ReclassifyWhileSmallClassesDropped(ProgressFn progress, void* userData);
    std::int32_t ClusterTotal(std::size_t k) const;
};

} // namespace isodata
