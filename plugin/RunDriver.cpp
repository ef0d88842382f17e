// The run driver: prepares the files of a run and runs the engine instance
// for the working raster's pixel type.
//
//  1. Open the input; write a reduced Float32 copy of it beside the input
//     ("<input>tem.tif"), resampled by GDAL while reading.
//  2. Create the full-size ENVI class raster, georeferenced like the input.
//  3. Run the engine for the working copy's pixel type.
//  4. Copy the input's RPC side file to the result, remove the working copy.
// The working copy survives only when the class raster cannot be created.
#include "RunDriver.h"

#include "ISODataClassification.h"
#include "IsodataEngine.h"
#include "ProgressBridge.h"
#include "WorkingCopy.h"

#include <KalDataSource.h>

#include <QFile>
#include <boost/any.hpp>

#include <gdal_priv.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace isodata {

namespace {

using KalDataSource::DatasetFactory;
using KalDataSource::RasterDataset;
using KalUtility::_ptr_t;

constexpr const char* kWorkingSuffix = "tem.tif";

// Removes the working copy when the run leaves, unless told to keep it.
class WorkingFileGuard {
public:
    explicit WorkingFileGuard(QString path) : path_(std::move(path)) {}
    ~WorkingFileGuard() {
        if (!keep_ && QFile::exists(path_)) QFile::remove(path_);
    }
    void Keep() { keep_ = true; }

private:
    QString path_;
    bool keep_ = false;
};

// Geotransform, then the envelope bound by bound, then the coordinate system.
void CopyGeoreferencing(const _ptr_t<RasterDataset>& from, const _ptr_t<RasterDataset>& to) {
    double transform[6];
    from->GetGeoTransform(transform);
    to->SetGeoTransform(transform);
    const auto source = from->GetEnvelope();
    const auto target = to->GetEnvelope();
    target->SetXMin(source->GetXMin());
    target->SetYMin(source->GetYMin());
    target->SetXMax(source->GetXMax());
    target->SetYMax(source->GetYMax());
    if (const auto srs = from->GetSpatialReference()) to->SetSpatialReference(srs);
}

template <class T>
RunResult RunEngine(KalAlgo::IKalAlgo& algorithm, const EngineInputs& files, int pixelType) {
    IsodataEngine<T> engine(files.record);
    engine.pixelType = pixelType;
    engine.sourceDataset = files.input;
    engine.inputDataset = files.working;
    engine.inputPath = files.record.inputPath;
    engine.resultPath = files.record.resultPath;
    engine.width = files.width;
    engine.height = files.height;
    engine.bandIndices.assign(files.record.bandIndices.begin(), files.record.bandIndices.end());
    engine.bandCount = static_cast<std::int32_t>(engine.bandIndices.size());
    engine.blockWidth = engine.blockHeight = IsodataEngine<T>::kInitialBlockSide;
    // Counts are widened with sign, so a negative count becomes a huge one.
    engine.desiredClassCount = static_cast<std::uint64_t>(static_cast<std::int64_t>(files.record.desiredClassCount));
    engine.classSlots = static_cast<std::uint64_t>(static_cast<std::int64_t>(files.record.initialClassCount) + 1);
    engine.classCount = static_cast<std::uint64_t>(static_cast<std::int64_t>(files.record.initialClassCount));
    engine.minClassPixels = files.record.minClassPixels;
    engine.maxMergePairs = static_cast<std::uint64_t>(static_cast<std::int64_t>(files.record.maxMergePairs));
    engine.maxIterations = static_cast<std::uint64_t>(static_cast<std::int64_t>(files.record.maxIterations));
    engine.stdDevThreshold = files.record.stdDevThreshold;
    engine.mergeDistanceThreshold = files.record.mergeDistanceThreshold;
    // An engine failure's message stays inside the plug-in.
    return engine.RunIsodata(ProgressCallback, &algorithm) ? RunResult::Success : PixelTraits<T>::failure;
}

} // namespace

RunResult RunEngineForWorkingRaster(KalAlgo::IKalAlgo& algorithm, const EngineInputs& files) {
    const auto band = files.working ? files.working->GetRasterBand(0) : _ptr_t<KalDataSource::RasterBand>();
    const int code = band ? static_cast<int>(band->GetRasterDataType()) : 0;
    switch (code) {
    case KalDataSource::PDT_Byte: return RunEngine<std::uint8_t>(algorithm, files, code);
    case KalDataSource::PDT_UInt16: return RunEngine<std::uint16_t>(algorithm, files, code);
    case KalDataSource::PDT_Int16: return RunEngine<std::int16_t>(algorithm, files, code);
    case KalDataSource::PDT_UInt32: return RunEngine<std::uint32_t>(algorithm, files, code);
    case KalDataSource::PDT_Int32: return RunEngine<std::int32_t>(algorithm, files, code);
    case KalDataSource::PDT_Float32: return RunEngine<float>(algorithm, files, code);
    case KalDataSource::PDT_Float64: return RunEngine<double>(algorithm, files, code);
    default: return RunResult::UnknownPixelType;
    }
}

double ReductionFactor(int width, int height) {
    const double shorter = static_cast<double>(width < height ? width : height);
    if (shorter <= 100.0) return 1.0;
    if (shorter <= 5000.0) return 0.5;
    return 0.25;
}

int ReducedSize(int size, double factor) { return static_cast<int>(size * factor + 0.5); }

RunResult RunClassification(KalAlgo::IKalAlgo& algorithm) {
    EngineInputs files;
    files.record = boost::any_cast<stInfoClassificationISO>(algorithm.GetParams());
    const QString inputPath = files.record.inputPath, resultPath = files.record.resultPath;
    EmitProgress(&algorithm, 0.0, Translate(kFrameContext, "ISOData Is Runing..."));

    DatasetFactory* factory = DatasetFactory::Instance();
    files.input = KalUtility::dynamic_ptr_cast<RasterDataset>(factory->OpenDataset(inputPath, KalDataSource::OpenReadOnly));
    if (!files.input) return RunResult::InputNotOpened;
    const int x = files.input->GetRasterXSize(), y = files.input->GetRasterYSize();
    const double factor = ReductionFactor(x, y);
    files.width = ReducedSize(x, factor);
    files.height = ReducedSize(y, factor);

    const QString workingPath = inputPath + QLatin1String(kWorkingSuffix);
    {
        auto working = factory->CreateRasterDataset(workingPath, files.width, files.height,
                                                    files.input->GetBandCount(), KalDataSource::PDT_Float32,
                                                    QStringLiteral("GTiff"));
        if (!working) return RunResult::WorkingCopyFailed;
        CopyGeoreferencing(files.input, working);
        WriteWorkingCopy(files.input->GetGDALDataset(), working->GetGDALDataset(), files.width, files.height);
    }  // closing the handle flushes the file
    WorkingFileGuard guard(workingPath);
    files.working = KalUtility::dynamic_ptr_cast<RasterDataset>(factory->OpenDataset(workingPath, KalDataSource::OpenReadOnly));

    {
        auto result = factory->CreateRasterDataset(resultPath, x, y, 1, KalDataSource::PDT_Byte, QStringLiteral("ENVI"));
        if (!result) {
            guard.Keep();  // the working copy stays on disk when no result could be created
            return RunResult::ResultNotCreated;
        }
        CopyGeoreferencing(files.input, result);
    }  // the engine opens the result again by path

    const RunResult outcome = RunEngineForWorkingRaster(algorithm, files);
    if (const auto result = factory->OpenRasterDataset(resultPath, KalDataSource::OpenReadOnly))
        DatasetFactory::CopyRPCFile(files.input, result);
    files.working.reset();
    return outcome;
}

} // namespace isodata
