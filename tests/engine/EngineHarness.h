// Builds an engine over a small raster written from a table, with the
// scratch files landing in a temporary folder, and records its progress.
#pragma once

#include "IsodataEngine.h"
#include "support/TestSupport.h"

#include <KalDataSource.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace enginetest {

struct Report {
    double percent;
    std::string text;
};

inline int RecordProgress(double percent, const char* text, void* userData) {
    static_cast<std::vector<Report>*>(userData)->push_back({percent, text ? text : ""});
    return 1;
}

template <class T>
class EngineHarness {
public:
    // A raster of the engine's pixel type; bands[b][y * width + x].
    // blockSide < 64 makes a small grid out of a small image.
    void Make(int width, int height, const testsupport::BandValues& bands, std::uint64_t clusters,
              int blockSide = 64) {
        testsupport::RasterTable table;
        table.width = width;
        table.height = height;
        table.type = isodata::PixelTraits<T>::gdalType;
        table.bands = bands;
        testsupport::WriteRaster(dir.File("in.tif"), table);
        auto* factory = KalDataSource::DatasetFactory::Instance();
        factory->RegisterPlugin();
        engine = std::make_unique<isodata::IsodataEngine<T>>(stInfoClassificationISO{});
        engine->inputDataset = factory->OpenRasterDataset(dir.QFile("in.tif"), KalDataSource::OpenReadOnly);
        engine->sourceDataset = engine->inputDataset;
        engine->inputPath = dir.QFile("in.tif");
        engine->width = width;
        engine->height = height;
        for (std::uint32_t i = 0; i < bands.size(); ++i) engine->bandIndices.push_back(i);
        engine->bandCount = static_cast<std::int32_t>(bands.size());
        engine->blockWidth = engine->blockHeight = blockSide;
        engine->classCount = clusters;
        engine->classSlots = clusters + 1;
        engine->InitBlockGrid();
    }

    isodata::StageProgress Stage(const char* text = "stage") {
        return isodata::StageProgress(RecordProgress, &reports, QString::fromUtf8(text));
    }

    // Samples the blocks (which records their extents), then sets the centres.
    void SampleThenSetCenters(std::vector<std::vector<T>> centers) {
        double a = 0.0, b = 0.0;
        engine->SampleBlocks(&a, &b, Stage(), 1);
        engine->centers = std::move(centers);
        engine->classSlots = engine->centers.size() + 1;
        engine->classCount = engine->centers.size();
    }

    // Classifies with the given centres and recomputes centres and distances.
    void ClassifyWith(std::vector<std::vector<T>> centers) {
        SampleThenSetCenters(std::move(centers));
        ASSERT_TRUE(engine->ClassifyPixels(Stage()));
    }

    std::vector<std::uint32_t> ScratchFile(int k) const {
        const std::string bytes = testsupport::ReadText(dir.File("in" + std::to_string(k) + ".km"));
        std::vector<std::uint32_t> values(bytes.size() / 4);
        if (!values.empty()) std::memcpy(values.data(), bytes.data(), values.size() * 4);
        return values;
    }

    testsupport::TempDir dir;
    std::unique_ptr<isodata::IsodataEngine<T>> engine;
    std::vector<Report> reports;
};

// One band of values, row by row.
inline testsupport::BandValues OneBand(std::vector<double> values) { return {std::move(values)}; }

} // namespace enginetest
