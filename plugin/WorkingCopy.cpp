// The working copy in one pass over the input: the source pixels a
// whole-band nearest-neighbour read would pick are worked out first, then
// only the source blocks holding them are read, all bands in one call.
//
//  1. Plan: follow GDAL's choice of an overview for the reduced read, then
//     its source row and column for every row and column of the reduced grid
//     (the arithmetic of GDALRasterBand::IRasterIO, step for step).
//  2. For each source block row holding picked rows, read column windows of
//     whole blocks, all bands at once, and gather the picked pixels.
//  3. Write the gathered rows of all bands in one call per batch.
// The groups are cut into runs that fill a batch each, and a round of runs
// goes to the lanes, one run a lane, each reading through a handle of its
// own on the input; the calling thread writes their batches in row order,
// so the same pixels land in the same rows. The lanes' batches and windows
// share one byte bound (kCopyBufferBytes): more threads get smaller
// buffers, down to a floor, and past that fewer lanes than threads read
// side by side, so neither buffers nor handles grow with the thread count.
// One thread is a round of one run, read on the calling thread.
// An input held in memory is picked from there instead, without a read.
// Inputs whose driver may pick other pixels, and any failed read, take
// GDAL's whole-band read of every band instead, into a buffer whose resident
// pages go back to the kernel as it fills (ReducedRead.h), so memory stays
// bounded at any size.
#include "WorkingCopy.h"

#include "ReducedRead.h"

#include <GdalSession.h>

#include <cpl_string.h>
#include <gdal_priv.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

namespace isodata {

namespace {

// Bytes of floats read per window and gathered per write at most, and the
// strips of the whole-band copy.
constexpr std::size_t kWindowBytes = std::size_t{8} << 20;
// The bound is cut in at most this many shares, one a lane (1 MB each of
// kCopyBufferBytes): smaller reads would cost more calls than the memory
// they save, so past that count fewer lanes than threads read side by side.
constexpr std::size_t kMostShares = 16;

struct Plan {
    GDALDataset* source = nullptr;  // the input, or the overview dataset GDAL would read
    std::vector<int> bandMap;       // band numbers in source, one per input band
    std::vector<int> rows;          // source row of each reduced row
    std::vector<int> columns;       // source column of each reduced column
    int blockWidth = 0, blockHeight = 0;
};

// The band and integer window a whole-band read into width x height ends up
// on: a reduced read goes on to the overview GDALBandGetBestOverviewLevel2
// picks, and from there again while that band has overviews of its own.
struct SourceWindow {
    GDALRasterBand* band = nullptr;
    int xOff = 0, yOff = 0, xSize = 0, ySize = 0;
};

std::optional<SourceWindow> FollowOverviews(GDALRasterBand* band, int width, int height) {
    // Overviews of overviews go a level or two deep; a longer chain is a
    // malformed file, left to the whole-band read.
    constexpr int kDeepest = 8;
    SourceWindow w{band, 0, 0, band->GetXSize(), band->GetYSize()};
    for (int depth = 0; (width < w.xSize || height < w.ySize) && w.band->GetOverviewCount() > 0; ++depth) {
        if (depth == kDeepest) return std::nullopt;
        GDALRasterIOExtraArg extra;
        INIT_RASTERIO_EXTRA_ARG(extra);
        const int level = GDALBandGetBestOverviewLevel2(w.band, w.xOff, w.yOff, w.xSize, w.ySize, width, height, &extra);
        if (level < 0) break;
        w.band = w.band->GetOverview(level);
        if (!w.band) return std::nullopt;  // GDAL's own read fails here
    }
    return w;
}

// The plan, or nothing when GDAL's driver may read the input another way:
// other drivers, JPEG-compressed GeoTIFFs (their implicit overviews show only
// inside the driver's reads), and bands that resolve to different sources.
std::optional<Plan> MakePlan(GDALDataset* input, GDALDataset* working, int width, int height, bool useOverviews) {
    GDALDriver* driver = input->GetDriver();
    if (!driver || !EQUAL(driver->GetDescription(), "GTiff")) return std::nullopt;
    const char* compression = input->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE");
    if (compression && CPLString(compression).ifind("JPEG") != std::string::npos) return std::nullopt;
    const int bands = input->GetRasterCount();
    if (bands < 1 || working->GetRasterCount() != bands || width < 1 || height < 1) return std::nullopt;

    Plan plan;
    std::optional<SourceWindow> first;
    for (int b = 1; b <= bands; ++b) {
        GDALRasterBand* band = input->GetRasterBand(b);
        const auto w = useOverviews ? FollowOverviews(band, width, height)
                                    : SourceWindow{band, 0, 0, band->GetXSize(), band->GetYSize()};
        if (!w) return std::nullopt;
        GDALDataset* owner = w->band->GetDataset();
        if (!owner || owner->GetRasterBand(w->band->GetBand()) != w->band) return std::nullopt;
        if (!first) {
            first = w;
            plan.source = owner;
        } else if (owner != plan.source || w->xOff != first->xOff || w->yOff != first->yOff ||
                   w->xSize != first->xSize || w->ySize != first->ySize) {
            return std::nullopt;
        }
        plan.bandMap.push_back(w->band->GetBand());
    }
    plan.rows = NearestRows(first->yOff, first->ySize, first->band->GetYSize(), height);
    plan.columns = NearestColumns(first->xOff, first->xSize, first->band->GetXSize(), width);
    first->band->GetBlockSize(&plan.blockWidth, &plan.blockHeight);
    if (plan.blockWidth < 1 || plan.blockHeight < 1) return std::nullopt;
    return plan;
}

// Reduced rows [begin, end) whose source rows lie in one block row.
struct RowGroup {
    int begin, end;
};

std::vector<RowGroup> GroupRows(const Plan& plan) {
    std::vector<RowGroup> groups;
    const int count = static_cast<int>(plan.rows.size());
    for (int i = 0; i < count;) {
        const int blockRow = plan.rows[static_cast<std::size_t>(i)] / plan.blockHeight;
        int end = i + 1;
        while (end < count && plan.rows[static_cast<std::size_t>(end)] / plan.blockHeight == blockRow) ++end;
        groups.push_back({i, end});
        i = end;
    }
    return groups;
}

// Rows gathered for the working copy, band after band, written in batches.
class Batch {
public:
    Batch(GDALDataset* working, std::size_t bands, int width, int capacity)
        : working_(working), bands_(bands), width_(width), capacity_(capacity),
          values_(bands * static_cast<std::size_t>(capacity) * static_cast<std::size_t>(width)) {}

    float* Row(std::size_t band, int row) {
        return values_.data() + (band * static_cast<std::size_t>(capacity_) + static_cast<std::size_t>(held_ + row)) *
                                    static_cast<std::size_t>(width_);
    }
    void Commit(int rows) { held_ += rows; }
    // Empties the batch, its next rows to go to working's row first.
    void StartAt(int first) {
        first_ = first;
        held_ = 0;
    }

    // Write errors are not checked, as in the whole-band copy.
    void Write() {
        if (held_ == 0) return;
        const GSpacing line = static_cast<GSpacing>(width_) * sizeof(float);
        const CPLErr ignored = working_->RasterIO(GF_Write, 0, first_, width_, held_, values_.data(), width_, held_,
                                                  GDT_Float32, static_cast<int>(bands_), nullptr, sizeof(float), line,
                                                  line * capacity_, nullptr);
        (void)ignored;
        first_ += held_;
        held_ = 0;
    }

private:
    GDALDataset* working_;
    std::size_t bands_;
    int width_, capacity_;
    std::vector<float> values_;
    int first_ = 0, held_ = 0;
};

// Reads the source rows of one group in column windows of whole blocks and
// gathers the picked pixels into the batch. False when a read fails.
// windowBytes bounds the window, which is at least one block wide.
bool GatherGroup(const Plan& plan, const RowGroup& group, std::size_t windowBytes, std::vector<float>& window,
                 Batch& batch) {
    std::vector<int> bandMap = plan.bandMap;
    const std::size_t bands = bandMap.size();
    const int width = static_cast<int>(plan.columns.size());
    const int y0 = plan.rows[static_cast<std::size_t>(group.begin)];
    const int rows = plan.rows[static_cast<std::size_t>(group.end - 1)] + 1 - y0;
    const std::size_t blockBytes = static_cast<std::size_t>(rows) * bands * sizeof(float) * plan.blockWidth;
    const int span = static_cast<int>(std::max<std::size_t>(1, windowBytes / blockBytes)) * plan.blockWidth;
    for (int j0 = 0; j0 < width;) {
        const int x0 = plan.columns[static_cast<std::size_t>(j0)];
        const int end = x0 / plan.blockWidth * plan.blockWidth + span;
        int j1 = j0 + 1;
        while (j1 < width && plan.columns[static_cast<std::size_t>(j1)] < end) ++j1;
        const int columns = plan.columns[static_cast<std::size_t>(j1 - 1)] + 1 - x0;
        const std::size_t plane = static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows);
        window.resize(plane * bands);
        if (plan.source->RasterIO(GF_Read, x0, y0, columns, rows, window.data(), columns, rows, GDT_Float32,
                                  static_cast<int>(bands), bandMap.data(), 0, 0, 0, nullptr) != CE_None)
            return false;
        for (std::size_t b = 0; b < bands; ++b) {
            for (int i = group.begin; i < group.end; ++i) {
                const std::size_t sourceRow = static_cast<std::size_t>(plan.rows[static_cast<std::size_t>(i)] - y0);
                const float* from = window.data() + b * plane + sourceRow * static_cast<std::size_t>(columns) - x0;
                float* to = batch.Row(b, i - group.begin);
                for (int j = j0; j < j1; ++j) to[j] = from[plan.columns[static_cast<std::size_t>(j)]];
            }
        }
        j0 = j1;
    }
    return true;
}

// How the one pass's buffers are laid out: rows a batch holds, bytes a
// window may take, and how many lanes read side by side.
struct LaneShape {
    int capacity = 1;
    std::size_t windowBytes = 0;    // the bound GatherGroup cuts windows to
    std::size_t windowFloats = 0;   // the most a window holds: at least one block column
    std::size_t lanes = 1;
};

// wanted lanes share budget bytes: each gets an equal part, at most a
// window's worth for its batch and as much for its window, and at least one
// of kMostShares. A batch holds at least the largest group and at most the
// whole copy, a window at least one block column of a group; lanes are as
// many as the budget holds at that size, at least one, at most wanted.
// The window's most is reserved up front, so no read grows it on a worker.
LaneShape ShapeLanes(const Plan& plan, const std::vector<RowGroup>& groups, int width, std::size_t wanted,
                     std::size_t budget) {
    const std::size_t bands = plan.bandMap.size();
    const std::size_t share = std::clamp(budget / std::max<std::size_t>(wanted, 1),
                                         budget / kMostShares, 2 * kWindowBytes);
    LaneShape shape;
    shape.windowBytes = share / 2;
    const std::size_t rowBytes = bands * static_cast<std::size_t>(width) * sizeof(float);
    const std::size_t rows = std::max<std::size_t>(1, shape.windowBytes / rowBytes);
    shape.capacity = static_cast<int>(std::min(rows, plan.rows.size()));
    std::size_t blockColumnBytes = 0;
    for (const RowGroup& g : groups) {
        shape.capacity = std::max(shape.capacity, g.end - g.begin);
        const std::size_t sourceRows = static_cast<std::size_t>(plan.rows[static_cast<std::size_t>(g.end - 1)] + 1 -
                                                                plan.rows[static_cast<std::size_t>(g.begin)]);
        blockColumnBytes = std::max(blockColumnBytes,
                                    sourceRows * static_cast<std::size_t>(plan.blockWidth) * bands * sizeof(float));
    }
    shape.windowFloats = std::max(shape.windowBytes, blockColumnBytes) / sizeof(float);
    const std::size_t laneBytes = static_cast<std::size_t>(shape.capacity) * rowBytes +
                                  shape.windowFloats * sizeof(float);
    shape.lanes = std::clamp<std::size_t>(budget / laneBytes, 1, std::max<std::size_t>(wanted, 1));
    return shape;
}

// Runs of whole groups that fill one batch each: [first, end) of groups.
std::vector<std::pair<std::size_t, std::size_t>> Runs(const std::vector<RowGroup>& groups, int capacity) {
    std::vector<std::pair<std::size_t, std::size_t>> runs;
    for (std::size_t g = 0; g < groups.size();) {
        std::size_t end = g;
        for (int rows = 0; end < groups.size() && rows + groups[end].end - groups[end].begin <= capacity; ++end)
            rows += groups[end].end - groups[end].begin;
        runs.emplace_back(g, end);
        g = end;
    }
    return runs;
}

// The one pass: runs of whole groups, each filling one batch, are read a
// round of lanes at a time, run t of a round by lane t through a handle of
// its own (a dataset serves one thread at a time; one whose handles share a
// file has one lane) into a batch of its own;
// the batches are then written here in row order, and GDAL's errors raised
// while reading are raised again here. With one lane (one thread, or an
// overview as the source, which has no handle of its own to be had) each
// round is one run read on this thread through the plan's source.
bool CopyInOnePass(const Plan& plan, GDALDataset* input, GDALDataset* working, int width, WorkerPool* pool,
                   std::size_t budget) {
    const std::vector<RowGroup> groups = GroupRows(plan);
    const std::size_t threads = pool && plan.source == input && !HandlesShareFiles(input)
                                    ? static_cast<std::size_t>(pool->Threads())
                                    : 1;
    const LaneShape shape = ShapeLanes(plan, groups, width, threads, budget);
    const auto runs = Runs(groups, shape.capacity);
    const std::size_t lanes = std::min(shape.lanes, runs.size());
    std::vector<GDALDatasetUniquePtr> handles(lanes);
    std::vector<Plan> plans(lanes, plan);
    std::vector<Batch> batches(lanes, Batch(working, plan.bandMap.size(), width, shape.capacity));
    // Every buffer is had here, on this thread: one a worker allocated would
    // come from its thread's own malloc arena and might stay resident there
    // after the copy, once for every arena.
    std::vector<std::vector<float>> windows(lanes);
    for (std::vector<float>& window : windows) window.reserve(shape.windowFloats);
    for (std::size_t t = 1; t < lanes; ++t) {
        handles[t].reset(GDALDataset::Open(plan.source->GetDescription(), GDAL_OF_RASTER | GDAL_OF_READONLY));
        if (!handles[t]) return false;
        plans[t].source = handles[t].get();
    }
    std::vector<std::vector<GdalErrorCapture::Error>> errors(lanes);
    std::vector<char> ok(lanes);
    for (std::size_t first = 0; first < runs.size(); first += lanes) {
        const std::size_t count = std::min(lanes, runs.size() - first);
        ForEachPiece(pool, count, [&](std::size_t t) {
            GdalErrorCapture capture;
            const auto [begin, end] = runs[first + t];
            batches[t].StartAt(groups[begin].begin);
            ok[t] = true;
            for (std::size_t g = begin; g < end && ok[t]; ++g) {
                ok[t] = GatherGroup(plans[t], groups[g], shape.windowBytes, windows[t], batches[t]);
                batches[t].Commit(groups[g].end - groups[g].begin);
            }
            errors[t] = capture.Take();
        });
        for (std::size_t t = 0; t < count; ++t) {
            GdalErrorCapture::Replay(errors[t]);
            if (!ok[t]) return false;
            batches[t].Write();
        }
    }
    return true;
}

// Band after band: the whole input band read at the reduced buffer size
// (GDAL picks the pixels, or an overview) into one reused buffer, bounded in
// resident memory however large, then written a strip at a time. A band that
// fails to read leaves the previous band's values in the buffer.
void CopyBandByBand(GDALDataset* input, GDALDataset* working, int width, int height, std::size_t heapBytes,
                    bool useOverviews) {
    const bool fullResolution = !useOverviews && HasOverviews(input);
    const std::size_t line = static_cast<std::size_t>(width) * sizeof(float);
    ReducedBuffer buffer(line * static_cast<std::size_t>(height), FolderOf(working->GetDescription()), heapBytes);
    const int strip = static_cast<int>(std::max<std::size_t>(1, kWindowBytes / line));
    for (int b = 1; b <= input->GetRasterCount(); ++b) {
        CPLErr ignored = buffer.ReadWholeBand(input->GetRasterBand(b), width, height, GDT_Float32, fullResolution);
        for (int y0 = 0; y0 < height && b <= working->GetRasterCount(); y0 += strip) {
            const int rows = std::min(strip, height - y0);
            const std::size_t offset = static_cast<std::size_t>(y0) * line;
            ignored = working->GetRasterBand(b)->RasterIO(GF_Write, 0, y0, width, rows, buffer.Data() + offset, width,
                                                          rows, GDT_Float32, 0, 0, nullptr);
            buffer.Release(offset, static_cast<std::size_t>(rows) * line);
        }
        (void)ignored;
    }
}

// Picks count values of size bytes, from[columns[i]] into to[i].
template <class Word>
void PickWords(const unsigned char* from, const std::vector<int>& columns, unsigned char* to) {
    const Word* in = reinterpret_cast<const Word*>(from);
    Word* out = reinterpret_cast<Word*>(to);
    for (std::size_t i = 0; i < columns.size(); ++i) out[i] = in[columns[i]];
}

void Pick(const unsigned char* from, const std::vector<int>& columns, std::size_t size, unsigned char* to) {
    switch (size) {
    case 1: return PickWords<std::uint8_t>(from, columns, to);
    case 2: return PickWords<std::uint16_t>(from, columns, to);
    case 4: return PickWords<std::uint32_t>(from, columns, to);
    case 8: return PickWords<std::uint64_t>(from, columns, to);
    default:
        for (std::size_t i = 0; i < columns.size(); ++i)
            std::memcpy(to + i * size, from + static_cast<std::size_t>(columns[i]) * size, size);
    }
}

} // namespace

void WriteWorkingCopy(const HeldInput& held, GDALDataset* working, int width, int height, WorkerPool* pool) {
    const int x = held.Width(), y = held.Height();
    const std::vector<int> rows = NearestRows(0, y, y, height), columns = NearestColumns(0, x, x, width);
    const std::size_t size = static_cast<std::size_t>(GDALGetDataTypeSizeBytes(held.Type()));
    const std::size_t w = static_cast<std::size_t>(width);
    std::vector<float> band(w * static_cast<std::size_t>(height));
    const Pieces pieces(static_cast<std::size_t>(height), PiecesFor(pool));
    std::vector<std::vector<unsigned char>> picked(pieces.count, std::vector<unsigned char>(w * size));
    for (int b = 0; b < held.Bands() && b < working->GetRasterCount(); ++b) {
        ForEachPiece(pool, pieces.count, [&](std::size_t p) {
            for (std::size_t r = pieces.Begin(p); r < pieces.Begin(p + 1); ++r) {
                const unsigned char* row = held.Band(b) + static_cast<std::size_t>(rows[r]) * static_cast<std::size_t>(x) * size;
                Pick(row, columns, size, picked[p].data());
                GDALCopyWords64(picked[p].data(), held.Type(), static_cast<int>(size), band.data() + r * w,
                                GDT_Float32, sizeof(float), static_cast<GPtrDiff_t>(w));
            }
        });
        // Write errors are not checked, as in the copies read from the input.
        const CPLErr ignored = working->GetRasterBand(b + 1)->RasterIO(GF_Write, 0, 0, width, height, band.data(),
                                                                       width, height, GDT_Float32, 0, 0, nullptr);
        (void)ignored;
    }
}

WorkingCopyRead WriteWorkingCopy(GDALDataset* input, GDALDataset* working, int width, int height,
                                 std::size_t heapBytes, WorkerPool* pool, bool useOverviews,
                                 std::size_t bufferBytes) {
    if (const auto plan = MakePlan(input, working, width, height, useOverviews)) {
        if (CopyInOnePass(*plan, input, working, width, pool, bufferBytes)) return WorkingCopyRead::OnePass;
    }
    // A failed read may have left part of the copy written; the whole-band
    // read writes all of it again.
    CopyBandByBand(input, working, width, height, heapBytes, useOverviews);
    return WorkingCopyRead::PerBand;
}

} // namespace isodata
