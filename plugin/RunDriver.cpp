// The run driver: prepares the files of a run and runs the engine instance
// for the working raster's pixel type.
//
//  1. Open the input; write a reduced Float32 copy of it beside the input
//     ("<input>tem.tif"), resampled by GDAL while reading, or in memory when
//     the budget allows. Without the plain rules and with several threads,
//     an input that fits the budget beside that copy is read whole into
//     memory once: the copy is picked from it and the result pass labels
//     from it.
//  2. With a validity mask, write the working copy's mask beside it; a mask
//     that leaves no pixel ends the run before anything else is made.
//  3. Create the full-size ENVI class raster, georeferenced like the input.
//  4. Run the engine for the working copy's pixel type.
//  5. Copy the input's RPC side file to the result, remove the working copy.
// The working copy survives only when the class raster cannot be created.
// A run that applies saved centres skips 1, 2 and 4: the class raster is
// labelled with them by the engine's own last two stages.
#include "RunDriver.h"

#include "ClassMetadata.h"
#include "FileNames.h"
#include "HeldInput.h"
#include "ProgressBridge.h"
#include "RunValidity.h"
#include "WorkingCopy.h"
#include "WorkingMask.h"

#include <KalDataSource.h>

#include <QFile>
#include <boost/any.hpp>

#include <gdal_priv.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace isodata {

namespace {

using KalDataSource::DatasetFactory;
using KalDataSource::RasterDataset;
using KalUtility::_ptr_t;

// Removes a working file when the run leaves, from the moment it exists (an
// exception while it is written included), unless told to keep it.
class WorkingFileGuard {
public:
    ~WorkingFileGuard() {
        if (!keep_ && !path_.isEmpty() && QFile::exists(path_)) QFile::remove(path_);
    }
    void Watch(const QString& path) { path_ = path; }
    bool Watching() const { return !path_.isEmpty(); }
    void Keep() { keep_ = true; }

private:
    QString path_;
    bool keep_ = false;
};

// The working copy's mask, opened for the engine, and the valid pixels it
// leaves; Success, or why the run cannot go on.
RunResult PrepareWorkingMask(const RunValidity& validity, EngineInputs& files, const QString& path,
                             WorkingFileGuard& guard) {
    guard.Watch(path);
    const std::int64_t valid =
        WriteWorkingMask(validity.Rules(), files.input->GetGDALDataset(), files.working->GetGDALDataset(),
                         std::vector<std::uint32_t>(files.record.bandIndices.begin(), files.record.bandIndices.end()),
                         path, kHeapReadBytes, files.resultPass.plainRules);
    if (valid < 0) return RunResult::WorkingCopyFailed;
    if (valid == 0) return RunResult::NoValidPixel;
    files.workingMask = DatasetFactory::Instance()->OpenRasterDataset(path, KalDataSource::OpenReadOnly);
    files.workingValidPixels = valid;
    return files.workingMask ? RunResult::Success : RunResult::WorkingCopyFailed;
}

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

// An engine that refuses the record, or that cannot go on (memory running
// out, a progress slot that throws), fails like one whose run failed: its
// destructor has removed its scratch files before the code is returned, and
// the driver then cleans up as after any failure. An engine failure's message
// stays inside the plug-in.
template <class T>
RunResult RunEngine(KalAlgo::IKalAlgo& algorithm, const EngineInputs& files, int pixelType) {
    try {
        IsodataEngine<T> engine;
        if (engine.Setup(files, pixelType) && engine.RunIsodata(ProgressCallback, &algorithm))
            return RunResult::Success;
    } catch (...) {
    }
    return PixelTraits<T>::failure;
}

// The full-size ENVI class raster, georeferenced like the input and closed
// again: its users open it by path.
bool CreateClassRaster(const EngineInputs& files) {
    auto result = DatasetFactory::Instance()->CreateRasterDataset(
        files.record.resultPath, files.input->GetRasterXSize(), files.input->GetRasterYSize(), 1,
        KalDataSource::PDT_Byte, QString::fromLatin1(kResultFormat));
    if (!result) return false;
    CopyGeoreferencing(files.input, result);
    return true;
}

void CopyRpcSideFile(const EngineInputs& files) {
    if (const auto result = DatasetFactory::Instance()->OpenRasterDataset(files.record.resultPath, KalDataSource::OpenReadOnly))
        DatasetFactory::CopyRPCFile(files.input, result);
}

// The whole input in memory, when the budget holds it beside the working
// copy and the working copy comes from the full-resolution pixels (without
// the plain rules): then the working copy is picked from it and the result
// pass labels from it, and the input is read once. Null otherwise, and on
// one thread: there, reading it whole up front costs about what the result
// pass's own read does (GDAL de-interleaving every block either way) while
// the working copy without it reads only the picked rows' blocks, so the
// held copy would save no time and cost its memory. With more threads its
// strips are read side by side and the result pass converts from memory.
// Bytes of input held at most. Measured on two cores with 6-band Byte
// GeoTIFFs: holding 384 MB (8000 x 8000) shortened a run by an eighth, while
// holding 1.5 GB (16000 x 16000) lengthened it by two fifths, the time going
// to page faults on the fresh memory and GDAL's block churn while reading
// it. Larger inputs are read twice, as without a budget.
constexpr std::int64_t kMostHeldBytes = std::int64_t{512} << 20;

std::unique_ptr<HeldInput> HoldInput(const EngineInputs& files, const stIsodataRunOptions& options) {
    const std::int64_t working = WorkingCopyBytes(files.width, files.height, files.input->GetBandCount());
    if (options.plainRules || !isodata::WorkingCopyInMemory(working, options.memoryBytes) || !files.pool ||
        files.pool->Threads() < 2)
        return nullptr;
    return HeldInput::Read(files.input->GetGDALDataset(), std::min(options.memoryBytes - working, kMostHeldBytes),
                           files.pool);
}

// The working copy held in memory, band after band, when the budget allows:
// the same pixels as the file, written by the same code (picked from held
// when the input is held), read by every pass without a file in between,
// straight from its bands (planes receives them). Null when it does not fit
// or cannot be had.
_ptr_t<RasterDataset> WorkingCopyInMemory(const EngineInputs& files, std::int64_t budget, const HeldInput* held,
                                          std::vector<const float*>& planes) {
    const std::int64_t bytes = WorkingCopyBytes(files.width, files.height, files.input->GetBandCount());
    if (!isodata::WorkingCopyInMemory(bytes, budget)) return _ptr_t<RasterDataset>();
    GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDataset* copy = memory ? memory->Create("", files.width, files.height, files.input->GetBandCount(),
                                                GDT_Float32, nullptr)
                               : nullptr;
    if (!copy) return _ptr_t<RasterDataset>();
    _ptr_t<RasterDataset> working(new RasterDataset(copy, QString()));
    // A MEM dataset made so holds each band as rows of width floats.
    for (int b = 1; b <= copy->GetRasterCount(); ++b)
        planes.push_back(static_cast<const float*>(copy->GetInternalHandle(("MEMORY" + std::to_string(b)).c_str())));
    if (std::find(planes.begin(), planes.end(), nullptr) != planes.end()) planes.clear();
    if (held)
        WriteWorkingCopy(*held, copy, files.width, files.height, files.pool);
    else
        WriteWorkingCopy(files.input->GetGDALDataset(), copy, files.width, files.height, kHeapReadBytes, files.pool,
                         files.resultPass.plainRules);
    return working;
}

// The working copy as a GeoTIFF beside the input, reopened for reading.
_ptr_t<RasterDataset> WorkingCopyOnDisk(const EngineInputs& files, WorkingFileGuard& guard) {
    DatasetFactory* factory = DatasetFactory::Instance();
    const QString workingPath = WorkingCopyPath(files.record.inputPath);
    {
        auto working = factory->CreateRasterDataset(workingPath, files.width, files.height,
                                                    files.input->GetBandCount(), KalDataSource::PDT_Float32,
                                                    QStringLiteral("GTiff"));
        if (!working) return _ptr_t<RasterDataset>();
        guard.Watch(workingPath);
        CopyGeoreferencing(files.input, working);
        WriteWorkingCopy(files.input->GetGDALDataset(), working->GetGDALDataset(), files.width, files.height,
                         kHeapReadBytes, files.pool, files.resultPass.plainRules);
    }  // closing the handle flushes the file
    return KalUtility::dynamic_ptr_cast<RasterDataset>(factory->OpenDataset(workingPath, KalDataSource::OpenReadOnly));
}

// Steps 1 to 5 for an opened input.
RunResult Cluster(KalAlgo::IKalAlgo& algorithm, EngineInputs& files, const RunValidity& validity,
                  const stIsodataRunOptions& options, stIsodataRunReport* report) {
    const int x = files.input->GetRasterXSize(), y = files.input->GetRasterYSize();
    const double factor = ReductionFactor(x, y);
    files.width = ReducedSize(x, factor);
    files.height = ReducedSize(y, factor);

    const std::unique_ptr<HeldInput> held = HoldInput(files, options);
    files.resultPass.held = held.get();
    WorkingFileGuard guard;
    files.working = WorkingCopyInMemory(files, options.memoryBytes, held.get(), files.workingPlanes);
    if (!files.working) {
        files.working = WorkingCopyOnDisk(files, guard);
        if (!files.working) return RunResult::WorkingCopyFailed;  // not made, or not readable once written
    }
    WorkingFileGuard maskGuard;
    if (validity.Rules().Any()) {
        const RunResult prepared =
            PrepareWorkingMask(validity, files, WorkingMaskPath(files.record.inputPath), maskGuard);
        if (report) report->workingValidPixels = files.workingValidPixels;
        if (prepared != RunResult::Success) return prepared;
    }
    if (!CreateClassRaster(files)) {
        guard.Keep();  // the working copy stays on disk when no result could be created
        maskGuard.Keep();
        return RunResult::ResultNotCreated;
    }
    const RunResult outcome = RunEngineForWorkingRaster(algorithm, files);
    CopyRpcSideFile(files);
    files.working.reset();
    files.workingPlanes.clear();
    files.workingMask.reset();
    files.resultPass.held = nullptr;
    return outcome;
}

// The class raster labelled with given centres, as a run's last two stages
// label it with its own.
RunResult Label(KalAlgo::IKalAlgo& algorithm, EngineInputs& files, const std::vector<std::vector<double>>& centres) {
    if (!CreateClassRaster(files)) return RunResult::ResultNotCreated;
    {
        const auto result = DatasetFactory::Instance()->OpenRasterDataset(files.record.resultPath,
                                                                          KalDataSource::OpenUpdate);
        if (!result) return RunResult::ResultNotCreated;
        const std::vector<std::uint32_t> bands(files.record.bandIndices.begin(), files.record.bandIndices.end());
        GenerateResultRaster(files.input, result, bands, ToLabelCenters(centres, bands.size()), ProgressCallback,
                             &algorithm, files.resultPass, files.report);
        AttachClassMetadata(result, BuildClassMetadata(centres.size()));
    }
    if (files.report) files.report->centres = centres;
    CopyRpcSideFile(files);
    return RunResult::Success;
}

void FillReport(stIsodataRunReport& report, const PassReport& pass) {
    report.excludedPixels = pass.excluded.pixels;
    report.excludedByMaskBands = pass.excluded.byMaskBands;
    report.excludedByNonFinite = pass.excluded.byNonFinite;
    report.excludedByMaskRaster = pass.excluded.byMaskRaster;
    report.backgroundPixels = pass.unclassified.background;
    report.nonFinitePixels = pass.unclassified.nonFinite;
    report.zeroPixels = pass.unclassified.allZero;
    report.beyondReachPixels = pass.unclassified.beyondReach;
    report.pixelType = pass.pixelType;
    report.iterations.clear();
    for (const IterationStep& step : pass.iterations) {
        stIsodataIteration round;
        round.round = step.round;
        round.removed = step.removed;
        round.split = step.split;
        for (const auto& [first, second] : step.merged) round.merged.insert(round.merged.end(), {first, second});
        round.classes = step.classes;
        round.meanDistance = step.meanDistance;
        report.iterations.push_back(std::move(round));
    }
    report.classes.assign(pass.centres.size(), stIsodataClassReport());
    for (std::size_t c = 0; c < pass.centres.size(); ++c) {
        report.classes[c].centre = pass.centres[c];
        if (c >= pass.classes.size()) continue;
        report.classes[c].pixels = pass.classes[c].pixels;
        report.classes[c].mean = pass.classes[c].mean;
        report.classes[c].stddev = pass.classes[c].stddev;
        report.classes[c].covariance = pass.classes[c].covariance;
    }
}

} // namespace

RunResult RunEngineForWorkingRaster(KalAlgo::IKalAlgo& algorithm, const EngineInputs& files) {
    const auto band = files.working ? files.working->GetRasterBand(0) : _ptr_t<KalDataSource::RasterBand>();
    const int code = band ? static_cast<int>(band->GetRasterDataType()) : 0;
    // The host's pixel-type codes are GDAL's data-type numbers.
    switch (code) {
#define ISODATA_ENGINE_CASE(T) \
    case PixelTraits<T>::gdalType: return RunEngine<T>(algorithm, files, code);
        ISODATA_FOR_EACH_PIXEL_TYPE(ISODATA_ENGINE_CASE)
#undef ISODATA_ENGINE_CASE
    default: return RunResult::UnknownPixelType;
    }
}

RunResult RunClassification(KalAlgo::IKalAlgo& algorithm) {
    return RunClassification(algorithm, boost::any_cast<stInfoClassificationISO>(algorithm.GetParams()),
                             stIsodataRunOptions(), nullptr);
}

RunResult RunClassification(KalAlgo::IKalAlgo& algorithm, const stInfoClassificationISO& record,
                            const stIsodataRunOptions& options, stIsodataRunReport* report) {
    EngineInputs files;
    files.record = record;
    EmitProgress(&algorithm, 0.0, Translate(kFrameContext, kRunStarted));

    files.input = KalUtility::dynamic_ptr_cast<RasterDataset>(
        DatasetFactory::Instance()->OpenDataset(record.inputPath, KalDataSource::OpenReadOnly));
    if (!files.input) return RunResult::InputNotOpened;
    RunValidity validity;
    if (!validity.Open(files.input->GetGDALDataset(), options, record.bandIndices)) return RunResult::MaskUnusable;
    files.resultPass.validity = validity.Rules();
    files.resultPass.classStatistics = options.classStatistics;
    files.resultPass.classCovariance = options.classCovariance;
    files.resultPass.plainRules = options.plainRules;
    PassReport passReport;
    if (report) files.report = &passReport;
    WorkerPool pool(std::max(options.threads, 1));
    files.pool = files.resultPass.pool = &pool;

    const RunResult outcome = options.applyCentres.empty() ? Cluster(algorithm, files, validity, options, report)
                                                           : Label(algorithm, files, options.applyCentres);
    if (report) FillReport(*report, passReport);
    return outcome;
}

} // namespace isodata
