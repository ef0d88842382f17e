// The result pass: reads the full-size input as 32-bit floats, labels every
// pixel by its nearest centre, and writes the labels as bytes.
//
//  1. The input is read in windows of whole blocks, every chosen band in one
//     call: strips of 16 rows when the file is striped, strips a tile high
//     and a few tiles wide when it is tiled, so every block is read once
//     whatever the block cache holds.
//  2. With a validity mask, the reader hands out why each pixel of the window
//     is excluded beside its values (WindowReader.h); excluded pixels are
//     counted.
//  3. Each row of a window is labelled (LabelRow), excluded pixels as 0, and
//     its labels kept as their low byte; the rows are shared out to the
//     worker threads, if any, each gathering its own counts and moments,
//     which are then added up in row order.
//  4. Once a strip is done, progress advances by 100 / H for each of its rows
//     and its labels are written to band 1 in one call.
// With worker threads, the next windows are read on threads of their own
// while this one is labelled, each through a handle of its own on the input
// when no validity mask needs reading too (one reader otherwise); windows
// take turns in a ring of slots, and what each holds does not depend on when
// or by whom it was read.
#include "ResultRaster.h"

#include "LabelRow.h"
#include "WindowReader.h"

#include <GdalSession.h>

#include <gdal_priv.h>

#include <algorithm>
#include <deque>
#include <future>
#include <memory>

namespace isodata {

namespace {

// Rows of a striped file read per call; bounds the buffers to a few rows.
constexpr int kRowsPerRead = 16;
// Bytes of floats a window of a tiled file may hold.
constexpr std::size_t kWindowBytes = std::size_t{8} << 20;

// Strip height and window width of the reads.
struct WindowShape {
    int rows, columns;
};

WindowShape ShapeWindows(GDALDataset* source, std::size_t bands, int width) {
    int blockWidth = width, blockHeight = 1;
    if (source && source->GetRasterCount() > 0) source->GetRasterBand(1)->GetBlockSize(&blockWidth, &blockHeight);
    if (blockWidth >= width || blockWidth < 1 || blockHeight < 1) return {kRowsPerRead, width};
    const int rows = std::max(kRowsPerRead, blockHeight);
    const std::size_t blockBytes = static_cast<std::size_t>(rows) * static_cast<std::size_t>(blockWidth) *
                                   std::max<std::size_t>(bands, 1) * sizeof(float);
    const auto blocks = static_cast<int>(std::max<std::size_t>(1, kWindowBytes / blockBytes));
    return {rows, std::min(width, blocks * blockWidth)};
}

} // namespace

std::int32_t LabelPixel(const float* const* rowBuffers, std::size_t x, const LabelCenters& centers) {
    std::vector<const float*> column(centers.bands);
    for (std::size_t k = 0; k < centers.bands; ++k) column[k] = rowBuffers[k] + x;
    std::int32_t label = 0;
    LabelRow(column.data(), 1, centers, &label);
    return label;
}

namespace {

// One window of the input as read, through the handle it holds.
struct WindowSlot {
    WindowSlot(const KalUtility::_ptr_t<KalDataSource::RasterDataset>& input,
               const std::vector<std::uint32_t>& bandIndices, WindowShape shape, const ValidityRules& rules)
        : source(input), reader(source->GetGDALDataset(), bandIndices, shape.rows, shape.columns, rules) {}

    void Load(int left, int top, int width, int rows) {
        x0 = left, columns = width, count = rows;
        reader.Read(x0, top, columns, count);
    }

    KalUtility::_ptr_t<KalDataSource::RasterDataset> source;
    WindowReader reader;
    int x0 = 0, columns = 0, count = 0;
};

// Readers working ahead of the labelling: one, or up to this many with
// handles of their own.
constexpr int kMostReaders = 4;

// The slots of a pass and how many readers fill them: without worker
// threads one slot and none ahead; with them a ring of readers + 1 slots.
// Loads run side by side only with several readers, so then every slot
// reads through a handle of its own, its mask bands too; one reader uses the
// input's own. Mask bands of another dataset (a virtual copy with other
// nodata values) or a mask raster keep to one reader.
std::vector<std::unique_ptr<WindowSlot>> Slots(const KalUtility::_ptr_t<KalDataSource::RasterDataset>& source,
                                               const std::vector<std::uint32_t>& bandIndices, WindowShape shape,
                                               const ResultPassOptions& options, int& readers) {
    const ValidityRules& rules = options.validity;
    const bool ownMasks = !rules.maskRaster && (!rules.maskBandsOf || rules.maskBandsOf == source->GetGDALDataset());
    const bool ahead = options.pool && options.pool->Threads() > 1;
    readers = !ahead ? 0 : !ownMasks ? 1 : std::min(options.pool->Threads(), kMostReaders);
    std::vector<std::unique_ptr<WindowSlot>> slots;
    slots.push_back(std::make_unique<WindowSlot>(source, bandIndices, shape, rules));
    if (readers == 1) slots.push_back(std::make_unique<WindowSlot>(source, bandIndices, shape, rules));
    for (int i = 1; readers > 1 && i <= readers; ++i) {
        const auto handle = KalDataSource::DatasetFactory::Instance()->OpenRasterDataset(source->GetPath(),
                                                                                       KalDataSource::OpenReadOnly);
        if (!handle) {  // no other handle: one reader after all
            readers = 1;
            slots.resize(1);
            slots.push_back(std::make_unique<WindowSlot>(source, bandIndices, shape, rules));
            break;
        }
        ValidityRules own = rules;
        if (own.maskBandsOf) own.maskBandsOf = handle->GetGDALDataset();
        slots.push_back(std::make_unique<WindowSlot>(handle, bandIndices, shape, own));
    }
    return slots;
}

// What labelling the rows of one window needs and leaves: the centres,
// per-row counts and moments, and the bytes to write.
struct WindowLabels {
    const LabelCenters& centers;
    bool figures;  // the caller wants the counts and moments
    std::vector<ResultPassReport>& rowTally;
    std::vector<ClassMoments>& rowMoments;
    std::vector<std::uint8_t>& out;
    std::size_t outStride;

    void Row(const WindowSlot& window, int r, std::vector<const float*>& rows,
             std::vector<std::int32_t>& labels) const {
        for (std::size_t k = 0; k < rows.size(); ++k) rows[k] = window.reader.Row(k, r);
        const std::size_t n = static_cast<std::size_t>(window.columns);
        const std::uint8_t* why = window.reader.Excluded(r);
        ResultPassReport& tally = rowTally[static_cast<std::size_t>(r)];
        if (why) tally.excluded.Add(why, n);
        LabelRow(rows.data(), n, centers, labels.data(), why, figures ? &tally.unclassified : nullptr);
        if (figures) rowMoments[static_cast<std::size_t>(r)].AddRow(rows.data(), labels.data(), n);
        // Class numbers above 255 keep their low byte.
        std::uint8_t* row = out.data() + static_cast<std::size_t>(r) * outStride + static_cast<std::size_t>(window.x0);
        for (std::size_t x = 0; x < n; ++x) row[x] = static_cast<std::uint8_t>(labels[x]);
    }
};

void Accumulate(ResultPassReport& total, ResultPassReport& row) {
    total.excluded.pixels += row.excluded.pixels;
    total.excluded.byMaskBands += row.excluded.byMaskBands;
    total.excluded.byNonFinite += row.excluded.byNonFinite;
    total.excluded.byMaskRaster += row.excluded.byMaskRaster;
    total.unclassified.background += row.unclassified.background;
    total.unclassified.nonFinite += row.unclassified.nonFinite;
    total.unclassified.beyondReach += row.unclassified.beyondReach;
    row = ResultPassReport();
}

// The windows of the pass in order: strips from the top, windows from the left.
struct WindowPlace {
    int x0, y0, columns, count;
};

std::vector<WindowPlace> Windows(WindowShape shape, int width, int height) {
    std::vector<WindowPlace> places;
    for (int y0 = 0; y0 < height; y0 += shape.rows)
        for (int x0 = 0; x0 < width; x0 += shape.columns)
            places.push_back({x0, y0, std::min(shape.columns, width - x0), std::min(shape.rows, height - y0)});
    return places;
}

} // namespace

void GenerateResultRaster(const KalUtility::_ptr_t<KalDataSource::RasterDataset>& source,
                                  const KalUtility::_ptr_t<KalDataSource::RasterDataset>& result,
                                  const std::vector<std::uint32_t>& bandIndices, const LabelCenters& centers,
                                  ProgressFn progress, void* userData, const ResultPassOptions& options,
                                  ResultPassReport* report) {
    const int width = source->GetRasterXSize(), height = source->GetRasterYSize();
    const std::size_t w = static_cast<std::size_t>(width);
    const WindowShape shape = ShapeWindows(source->GetGDALDataset(), bandIndices.size(), width);
    int readers = 0;
    const std::vector<std::unique_ptr<WindowSlot>> slots = Slots(source, bandIndices, shape, options, readers);
    ResultPassReport tally;
    ClassMoments moments(centers, options.classStatistics);
    std::vector<ResultPassReport> rowTally(static_cast<std::size_t>(shape.rows));
    std::vector<ClassMoments> rowMoments(static_cast<std::size_t>(shape.rows),
                                         ClassMoments(centers, options.classStatistics));
    std::vector<std::uint8_t> out(w * static_cast<std::size_t>(shape.rows));
    const WindowLabels labelling{centers, report != nullptr, rowTally, rowMoments, out, w};
    GDALDataset* target = result ? result->GetGDALDataset() : nullptr;
    GDALRasterBand* targetBand = target && target->GetRasterCount() >= 1 ? target->GetRasterBand(1) : nullptr;

    const QString text = Translate(kOutputContext, kGeneratingResultFile);
    StageProgress(progress, userData, text).Report(0.0);
    const double step = 100.0 / height;
    double done = 0.0;
    const std::vector<WindowPlace> places = Windows(shape, width, height);
    const auto load = [&](std::size_t i) {
        slots[i % slots.size()]->Load(places[i].x0, places[i].y0, places[i].columns, places[i].count);
    };
    // Read on a thread of its own, its GDAL errors raised again here.
    const auto loadAhead = [&](std::size_t i) {
        GdalErrorCapture capture;
        load(i);
        return capture.Take();
    };
    std::deque<std::future<std::vector<GdalErrorCapture::Error>>> loading;  // windows i, i + 1, ... in order
    std::size_t launched = 0;
    for (std::size_t i = 0; i < places.size(); ++i) {
        while (readers > 0 && launched < places.size() && launched < i + static_cast<std::size_t>(readers))
            loading.push_back(std::async(std::launch::async, loadAhead, launched++));
        if (readers > 0) {
            GdalErrorCapture::Replay(loading.front().get());
            loading.pop_front();
        } else {
            load(i);
        }
        WindowSlot& window = *slots[i % slots.size()];
        const Pieces pieces(static_cast<std::size_t>(window.count), PiecesFor(options.pool));
        ForEachPiece(options.pool, pieces.count, [&](std::size_t p) {
            std::vector<const float*> rows(bandIndices.size());
            std::vector<std::int32_t> labels(static_cast<std::size_t>(window.columns));
            for (std::size_t r = pieces.Begin(p); r < pieces.Begin(p + 1); ++r)
                labelling.Row(window, static_cast<int>(r), rows, labels);
        });
        for (int r = 0; r < window.count; ++r) {
            Accumulate(tally, rowTally[static_cast<std::size_t>(r)]);
            moments.MergeFrom(rowMoments[static_cast<std::size_t>(r)]);
        }
        if (i + 1 < places.size() && places[i + 1].y0 == places[i].y0) continue;  // the strip goes on
        for (int r = 0; r < window.count; ++r) {
            done += step;
            StageProgress(progress, userData, text).Report(done);
        }
        if (targetBand) {
            const CPLErr ignored = targetBand->RasterIO(GF_Write, 0, places[i].y0, width, window.count, out.data(),
                                                        width, window.count, GDT_Byte, 0, 0, nullptr);
            (void)ignored;
        }
    }
    if (report) {
        *report = tally;
        report->classes = moments.Finish();
    }
}

} // namespace isodata
