// The result pass: reads the full-size input as 32-bit floats, labels every
// pixel by its nearest centre, and writes the labels as bytes.
//
//  1. The input is read in windows of whole blocks, every chosen band in one
//     call: strips of 16 rows when the file is striped, strips a tile high
//     and a few tiles wide when it is tiled, so every block is read once
//     whatever the block cache holds.
//  2. With a validity mask, the reader hands out why each pixel of the window
//     is excluded beside its values (WindowReader.h); excluded pixels are
//     counted. For the figures it also marks the non-finite pixels the
//     rules leave in, which the labelling counts apart.
//  3. Each row of a window is labelled (LabelRow), excluded pixels as 0, and
//     its labels kept as their low byte; the rows are shared out to the
//     worker threads, if any, each gathering its own counts and moments,
//     which are then added up in row order.
//  4. Once a strip is done, progress advances by 100 / H for each of its rows
//     and its labels are written to band 1 in one call.
// Windows take turns in a ring of slots filled ahead of the labelling: with
// worker threads the next windows are read on threads of their own while
// this one is labelled, each through a handle of its own on the input when
// no validity mask needs reading too (one reader otherwise); with one thread
// or one reader each window is read on the calling thread when its turn
// comes.
#include "ResultRaster.h"

#include "LabelRow.h"
#include "ReducedRead.h"
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

// One window of the input as read, through the handle it holds, or its
// values from a view of its own of the input held in memory.
struct WindowSlot {
    // figures: the caller counts non-finite pixels the rules leave in.
    WindowSlot(const KalUtility::_ptr_t<KalDataSource::RasterDataset>& input,
               const std::vector<std::uint32_t>& bandIndices, WindowShape shape, const ValidityRules& rules,
               bool figures, const HeldInput* held)
        : source(input),
          view(held ? held->View() : nullptr),
          reader(view ? view.get() : source->GetGDALDataset(), bandIndices, shape.rows, shape.columns, rules,
                 figures) {}

    void Load(int left, int top, int width, int rows) {
        x0 = left, columns = width, count = rows;
        reader.Read(x0, top, columns, count);
    }

    KalUtility::_ptr_t<KalDataSource::RasterDataset> source;
    GDALDatasetUniquePtr view;
    WindowReader reader;
    int x0 = 0, columns = 0, count = 0;
};

// Readers working ahead of the labelling: one, or up to this many with
// handles of their own, as many as kReadAheadBytes holds windows of.
constexpr int kMostReaders = 4;
// Bytes the readers' windows take together when there are several: two of
// the widest windows. The windows keep their shape (the figures are summed
// window by window), so large windows mean fewer readers, whatever the
// thread count.
constexpr std::size_t kReadAheadBytes = 2 * kWindowBytes;

// The ring of slots of a pass, one a reader (at most kMostReaders, and as
// many windows as kReadAheadBytes holds): while window i is labelled the
// readers fill windows i + 1 to i + readers - 1, and window i + readers
// takes window i's slot only once its labelling is done. Several readers
// load side by side, so each slot but the first reads through a handle of
// its own, its mask bands too; the first uses the input's own. Mask bands of
// another dataset (a virtual copy with other nodata values) or a mask raster
// keep to one reader, and so does an input whose handles share a file. With
// the input held in memory every slot reads its values from a view of its
// own, and a file handle of its own is opened only for the mask bands the
// rules read.
std::vector<std::unique_ptr<WindowSlot>> Slots(const KalUtility::_ptr_t<KalDataSource::RasterDataset>& source,
                                               const std::vector<std::uint32_t>& bandIndices, WindowShape shape,
                                               const ResultPassOptions& options, bool figures) {
    const ValidityRules& rules = options.validity;
    const bool ownMasks = !rules.maskRaster && (!rules.maskBandsOf || rules.maskBandsOf == source->GetGDALDataset());
    const int threads = options.pool ? options.pool->Threads() : 1;
    const std::size_t windowBytes = static_cast<std::size_t>(shape.rows) * static_cast<std::size_t>(shape.columns) *
                                    std::max<std::size_t>(bandIndices.size(), 1) * sizeof(float);
    const int fit = static_cast<int>(std::clamp<std::size_t>(kReadAheadBytes / windowBytes, 1, kMostReaders));
    const int readers = ownMasks && !HandlesShareFiles(source->GetGDALDataset()) ? std::min(threads, fit) : 1;
    std::vector<std::unique_ptr<WindowSlot>> slots;
    slots.push_back(std::make_unique<WindowSlot>(source, bandIndices, shape, rules, figures, options.held));
    for (int i = 1; i < readers; ++i) {
        const auto handle = options.held && !rules.maskBandsOf
                                ? source
                                : KalDataSource::DatasetFactory::Instance()->OpenRasterDataset(
                                      source->GetPath(), KalDataSource::OpenReadOnly);
        if (!handle) {  // no other handle: one reader after all
            slots.resize(1);
            break;
        }
        ValidityRules own = rules;
        if (own.maskBandsOf) own.maskBandsOf = handle->GetGDALDataset();
        slots.push_back(std::make_unique<WindowSlot>(handle, bandIndices, shape, own, figures, options.held));
    }
    return slots;
}

// Every row of a window keeps its own sums until the window is merged in row
// order, and the covariance takes bands x bands of them a class: with many
// bands and classes over tall tiles that would outgrow a run's memory, so
// past this bound the covariance is left out (and no separability measured).
constexpr std::size_t kCovarianceBytes = std::size_t{64} << 20;

bool CovarianceFits(std::size_t rows, const LabelCenters& centers) {
    const std::size_t perRow = centers.clusters * centers.bands * centers.bands * sizeof(double);
    return rows * perRow <= kCovarianceBytes;
}

// The windows of the pass in order: strips from the top, windows from the left.
struct WindowPlace {
    int x0, y0, columns, count;
};

// Windows read ahead of the labelling into the ring of slots, each load's
// GDAL errors raised again on the calling thread when its window is taken.
// With worker threads the readers load on threads of their own; with one
// thread a load is deferred until its window is taken and runs on the
// calling thread: the same loop either way, and what a slot holds does not
// depend on when or by whom it was read.
class ReadAhead {
public:
    ReadAhead(std::vector<std::unique_ptr<WindowSlot>> slots, const std::vector<WindowPlace>& places,
              std::launch policy)
        : slots_(std::move(slots)), places_(places), policy_(policy) {}

    // Window i, read; windows are taken in order, each once.
    WindowSlot& Take(std::size_t i) {
        while (launched_ < places_.size() && launched_ < i + slots_.size())
            loading_.push_back(std::async(policy_, [this](std::size_t w) { return Load(w); }, launched_++));
        GdalErrorCapture::Replay(loading_.front().get());
        loading_.pop_front();
        return *slots_[i % slots_.size()];
    }

private:
    std::vector<GdalErrorCapture::Error> Load(std::size_t w) {
        GdalErrorCapture capture;
        const WindowPlace& p = places_[w];
        slots_[w % slots_.size()]->Load(p.x0, p.y0, p.columns, p.count);
        return capture.Take();
    }

    std::vector<std::unique_ptr<WindowSlot>> slots_;
    const std::vector<WindowPlace>& places_;
    std::launch policy_;
    std::deque<std::future<std::vector<GdalErrorCapture::Error>>> loading_;  // windows i, i + 1, ... in order
    std::size_t launched_ = 0;
};

// What labelling the rows of one window needs and leaves: the centres,
// per-row counts and moments, and the bytes to write.
// The counts of one row, added up in row order.
struct RowTally {
    ExclusionCounts excluded;
    LabelTally unclassified;
};

struct WindowLabels {
    const LabelCenters& centers;
    bool figures;  // the caller wants the counts and moments
    std::vector<RowTally>& rowTally;
    std::vector<ClassMoments>& rowMoments;
    std::vector<std::uint8_t>& out;
    std::size_t outStride;

    void Row(const WindowSlot& window, int r, std::vector<const float*>& rows,
             std::vector<std::int32_t>& labels) const {
        for (std::size_t k = 0; k < rows.size(); ++k) rows[k] = window.reader.Row(k, r);
        const std::size_t n = static_cast<std::size_t>(window.columns);
        const std::uint8_t* why = window.reader.Excluded(r);
        RowTally& tally = rowTally[static_cast<std::size_t>(r)];
        if (why) tally.excluded.Add(why, n);
        LabelRow(rows.data(), n, centers, labels.data(), why, figures ? &tally.unclassified : nullptr,
                 window.reader.NonFinite(r));
        if (figures) rowMoments[static_cast<std::size_t>(r)].AddRow(rows.data(), labels.data(), n);
        // Class numbers above 255 keep their low byte.
        std::uint8_t* row = out.data() + static_cast<std::size_t>(r) * outStride + static_cast<std::size_t>(window.x0);
        for (std::size_t x = 0; x < n; ++x) row[x] = static_cast<std::uint8_t>(labels[x]);
    }
};

void Accumulate(RowTally& total, RowTally& row) {
    total.excluded.pixels += row.excluded.pixels;
    total.excluded.byMaskBands += row.excluded.byMaskBands;
    total.excluded.byNonFinite += row.excluded.byNonFinite;
    total.excluded.byMaskRaster += row.excluded.byMaskRaster;
    total.unclassified.background += row.unclassified.background;
    total.unclassified.nonFinite += row.unclassified.nonFinite;
    total.unclassified.beyondReach += row.unclassified.beyondReach;
    total.unclassified.allZero += row.unclassified.allZero;
    row = RowTally();
}

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
                          const std::vector<std::uint32_t>& bandIndices, const LabelCenters& given,
                          ProgressFn progress, void* userData, const ResultPassOptions& options,
                          PassReport* report) {
    LabelCenters centers = given;
    centers.plainRules = options.plainRules;
    const int width = source->GetRasterXSize(), height = source->GetRasterYSize();
    const std::size_t w = static_cast<std::size_t>(width);
    const WindowShape shape = ShapeWindows(source->GetGDALDataset(), bandIndices.size(), width);
    RowTally tally;
    const bool covariance = options.classStatistics && options.classCovariance &&
                            CovarianceFits(static_cast<std::size_t>(shape.rows), centers);
    ClassMoments moments(centers, options.classStatistics, covariance);
    std::vector<RowTally> rowTally(static_cast<std::size_t>(shape.rows));
    std::vector<ClassMoments> rowMoments(static_cast<std::size_t>(shape.rows),
                                         ClassMoments(centers, options.classStatistics, covariance));
    std::vector<std::uint8_t> out(w * static_cast<std::size_t>(shape.rows));
    const WindowLabels labelling{centers, report != nullptr, rowTally, rowMoments, out, w};
    GDALDataset* target = result ? result->GetGDALDataset() : nullptr;
    GDALRasterBand* targetBand = target && target->GetRasterCount() >= 1 ? target->GetRasterBand(1) : nullptr;

    const QString text = Translate(kOutputContext, kGeneratingResultFile);
    StageProgress(progress, userData, text).Report(0.0);
    const double step = 100.0 / height;
    double done = 0.0;
    const std::vector<WindowPlace> places = Windows(shape, width, height);
    // A single reader reads on the calling thread: a hand-off to another
    // thread would only wait for it.
    std::vector<std::unique_ptr<WindowSlot>> slots = Slots(source, bandIndices, shape, options, report != nullptr);
    const bool readAhead = options.pool && options.pool->Threads() > 1 && slots.size() > 1;
    ReadAhead ahead(std::move(slots), places, readAhead ? std::launch::async : std::launch::deferred);
    // The rows' band pointers and labels of every piece, had once for the pass.
    const std::size_t most = PiecesFor(options.pool);
    std::vector<std::vector<const float*>> pieceRows(most, std::vector<const float*>(bandIndices.size()));
    std::vector<std::vector<std::int32_t>> pieceLabels(most, std::vector<std::int32_t>(static_cast<std::size_t>(shape.columns)));
    for (std::size_t i = 0; i < places.size(); ++i) {
        WindowSlot& window = ahead.Take(i);
        const Pieces pieces(static_cast<std::size_t>(window.count), most);
        ForEachPiece(options.pool, pieces.count, [&](std::size_t p) {
            for (std::size_t r = pieces.Begin(p); r < pieces.Begin(p + 1); ++r)
                labelling.Row(window, static_cast<int>(r), pieceRows[p], pieceLabels[p]);
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
        report->excluded = tally.excluded;
        report->unclassified = tally.unclassified;
        report->classes = moments.Finish();
    }
}

} // namespace isodata
