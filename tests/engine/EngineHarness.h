// The engine tests' seam into an engine, and a harness that sets one up over a
// small raster written from a table, with its scratch files and result in a
// temporary folder and its progress recorded.
#pragma once

#include "IsodataEngine.h"
#include "support/TestSupport.h"

#include <KalDataSource.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace isodata {

// The state and the single stages that in a run only the iteration driver reaches.
template <class T>
class EngineTestSeam {
public:
    explicit EngineTestSeam(IsodataEngine<T>& engine) : e_(engine) {}
    EngineState& State() { return e_; }
    std::vector<std::vector<T>>& Centers() { return e_.centers; }
    void InitBlockGrid() { e_.InitBlockGrid(); }
    BlockGeometry Block(std::uint32_t b) const { return e_.Block(b); }
    void SampleBlocks(const StageProgress& stage) { e_.SampleBlocks(stage); }
    void SelectInitialCenters(const StageProgress& stage) { e_.SelectInitialCenters(stage); }
    bool ClassifyPixels(const StageProgress& stage) { return e_.ClassifyPixels(stage); }
    void ComputeClusterCenters(const StageProgress& stage) { e_.ComputeClusterCenters(stage); }
    void ComputeMeanDistances(const StageProgress& stage) { e_.ComputeMeanDistances(stage); }
    bool SplitClusters(const StageProgress& stage) { return e_.SplitClusters(stage); }
    bool MergeClusters() { return e_.MergeClusters(); }

private:
    IsodataEngine<T>& e_;
};

} // namespace isodata

namespace enginetest {

// The typed suites run over the engine's own list of pixel types.
template <class First, class... Rest> struct AfterFirst { using Types = ::testing::Types<Rest...>; };
#define ENGINETEST_AFTER_COMMA(T) , T
using PixelTypes = AfterFirst<void ISODATA_FOR_EACH_PIXEL_TYPE(ENGINETEST_AFTER_COMMA)>::Types;

template <class T>
class EngineHarness {
public:
    // A raster of the engine's pixel type, set up as the run driver does
    // with the record (or just an initial cluster count) and every band;
    // blockSide < 64 lays a small grid. A non-empty valid list (0 excluded)
    // becomes the working copy's validity mask.
    void Make(int width, int height, const testsupport::BandValues& bands, stInfoClassificationISO record,
              int blockSide = 64, const std::vector<double>& valid = {}) {
        testsupport::WriteRaster(dir.File("in.tif"), {width, height, isodata::PixelTraits<T>::gdalType, bands});
        record.inputPath = dir.QFile("in.tif");
        record.resultPath = dir.QFile("out.img");
        record.bandIndices.resize(bands.size());
        for (std::size_t i = 0; i < bands.size(); ++i) record.bandIndices[i] = static_cast<std::int32_t>(i);
        const auto raster = KalDataSource::DatasetFactory::Instance()->OpenRasterDataset(record.inputPath, 0);
        isodata::EngineInputs inputs;
        inputs.record = record;
        inputs.input = inputs.working = raster;
        inputs.width = width;
        inputs.height = height;
        if (!valid.empty()) {
            testsupport::WriteRaster(dir.File("mask.tif"), {width, height, GDT_Byte, {valid}});
            inputs.workingMask = KalDataSource::DatasetFactory::Instance()->OpenRasterDataset(dir.QFile("mask.tif"), 0);
            for (double v : valid) inputs.workingValidPixels += v != 0;
        }
        ASSERT_TRUE(engine.Setup(inputs, isodata::PixelTraits<T>::gdalType));
        state.blockWidth = state.blockHeight = blockSide;
        seam.InitBlockGrid();
    }
    void Make(int width, int height, const testsupport::BandValues& bands, std::int32_t clusters, int blockSide = 64,
              const std::vector<double>& valid = {}) {
        Make(width, height, bands, {{}, {}, 0, clusters, 0, 0, 0, 0.0, 0.0, {}}, blockSide, valid);
    }

    isodata::StageProgress Stage() { return {testsupport::RecordProgress, &reports, QStringLiteral("stage")}; }

    // Samples the blocks (which records their extents), then classifies with
    // the given centres.
    void ClassifyWith(std::vector<std::vector<T>> centers) {
        seam.SampleBlocks(Stage());
        seam.State().classSlots = centers.size() + 1;
        seam.Centers() = std::move(centers);
        ASSERT_TRUE(seam.ClassifyPixels(Stage()));
    }

    std::vector<std::uint32_t> ScratchFile(int k) const {
        const std::string bytes = testsupport::ReadText(dir.File("in" + std::to_string(k) + ".km"));
        std::vector<std::uint32_t> values(bytes.size() / 4);
        if (!values.empty()) std::memcpy(values.data(), bytes.data(), values.size() * 4);
        return values;
    }

    testsupport::TempDir dir;
    isodata::IsodataEngine<T> engine;
    isodata::EngineTestSeam<T> seam{engine};
    isodata::EngineState& state = seam.State();
    testsupport::Reports reports;
};

// One band of values, row by row.
inline testsupport::BandValues OneBand(std::vector<double> values) { return {std::move(values)}; }

} // namespace enginetest
