// The result pass: reads the full-size input as 32-bit floats, labels every
// pixel by its nearest centre, and writes the labels as bytes.
//
//  1. Rows are read a few at a time per band (the same values as one row at
//     a time, fewer calls into GDAL) and labelled row by row.
//  2. Labelling sums absolute differences in single precision. A pixel whose
//     band values sum to zero is background (0); a pixel 1e7 or farther from
//     every centre stays 0; class numbers above 255 keep their low byte.
//  3. Each row is written to band 1 and progress advances by 100 / H.
#include "ResultRaster.h"

#include <gdal_priv.h>

#include <algorithm>
#include <cmath>

namespace isodata {

namespace {

constexpr double kBackgroundSum = 1e-8;
constexpr float kDistanceCeiling = 1e7f;
// Rows read per GDAL call; bounds the buffers to a few rows per band.
constexpr int kRowsPerRead = 16;

struct RowScratch {
    explicit RowScratch(std::size_t n) : best(n), distance(n), sum(n), label(n) {}
    std::vector<float> best, distance, sum;
    std::vector<std::int32_t> label;
};

// Labels n pixels of one row into s.label: class 1..K of the nearest centre,
// or 0. Pixels are innermost and the buffers plain arrays so the loops
// vectorise; each pixel still sums its bands in band order.
void LabelRow(const float* const* rows, std::size_t n, const LabelCenters& centers, RowScratch& s) {
    float* __restrict best = s.best.data();
    float* __restrict dist = s.distance.data();
    float* __restrict sum = s.sum.data();
    std::int32_t* __restrict label = s.label.data();
    std::fill_n(best, n, kDistanceCeiling);
    std::fill_n(label, n, 0);
    for (std::size_t c = 0; c < centers.clusters; ++c) {
        std::fill_n(dist, n, 0.0f);
        for (std::size_t k = 0; k < centers.bands; ++k) {
            const float centre = centers.values[c * centers.bands + k];
            const float* __restrict value = rows[k];
            for (std::size_t x = 0; x < n; ++x) dist[x] += std::fabs(value[x] - centre);
        }
        const auto cls = static_cast<std::int32_t>(c + 1);
        for (std::size_t x = 0; x < n; ++x) {
            const std::int32_t nearer = -static_cast<std::int32_t>(dist[x] < best[x]);
            best[x] = dist[x] < best[x] ? dist[x] : best[x];
            label[x] = (label[x] & ~nearer) | (cls & nearer);
        }
    }
    // Background: the band values summed in band order.
    std::fill_n(sum, n, 0.0f);
    for (std::size_t k = 0; k < centers.bands; ++k) {
        const float* __restrict value = rows[k];
        for (std::size_t x = 0; x < n; ++x) sum[x] += value[x];
    }
    for (std::size_t x = 0; x < n; ++x) {
        const auto background = -static_cast<std::int32_t>(static_cast<double>(std::fabs(sum[x])) < kBackgroundSum);
        label[x] &= ~background;
    }
}

} // namespace

std::int32_t LabelPixel(const float* const* rowBuffers, std::size_t x, const LabelCenters& centers) {
    std::vector<const float*> column(centers.bands);
    for (std::size_t k = 0; k < centers.bands; ++k) column[k] = rowBuffers[k] + x;
    RowScratch scratch(1);
    LabelRow(column.data(), 1, centers, scratch);
    return scratch.label[0];
}

std::int32_t ReadBandRegion(const KalUtility::_ptr_t<KalDataSource::RasterDataset>& dataset, int bandIndex,
                            int xOff, int yOff, int xSize, int ySize, double scaleX, double scaleY, void* buffer,
                            GDALDataType dataType) {
    if (xOff < 0 || yOff < 0 || !dataset) return 0;
    const int bufX = static_cast<int>(xSize * scaleX + 0.5);
    const int bufY = static_cast<int>(ySize * scaleY + 0.5);
    GDALDataset* gdal = dataset->GetGDALDataset();
    if (!gdal || bandIndex < 0 || bandIndex >= gdal->GetRasterCount()) return 0;
    // Errors of the transfer itself are not checked.
    const CPLErr ignored = gdal->GetRasterBand(bandIndex + 1)->RasterIO(GF_Read, xOff, yOff, xSize, ySize, buffer, bufX, bufY,
                                                       dataType, 0, 0, nullptr);
    (void)ignored;
    return 1;
}

std::uint8_t GenerateResultRaster(const KalUtility::_ptr_t<KalDataSource::RasterDataset>& source,
                                  const KalUtility::_ptr_t<KalDataSource::RasterDataset>& result,
                                  const std::vector<std::uint32_t>& bandIndices, const LabelCenters& centers,
                                  ProgressFn progress, void* userData) {
    const std::size_t bands = bandIndices.size();
    const int width = source->GetRasterXSize(), height = source->GetRasterYSize();
    const std::size_t w = static_cast<std::size_t>(width);
    // A band that cannot be read keeps the previous rows' values; zeros at first.
    std::vector<std::vector<float>> chunks(bands, std::vector<float>(w * kRowsPerRead, 0.0f));
    std::vector<const float*> rows(bands);
    RowScratch scratch(w);
    std::vector<std::uint8_t> out(w);
    GDALDataset* target = result ? result->GetGDALDataset() : nullptr;
    GDALRasterBand* targetBand = target && target->GetRasterCount() >= 1 ? target->GetRasterBand(1) : nullptr;

    StageProgress(progress, userData, Translate(kOutputContext, kGeneratingResultFile)).Report(0.0);
    const double step = 100.0 / height;
    double done = 0.0;
    for (int y0 = 0; y0 < height; y0 += kRowsPerRead) {
        const int count = std::min(kRowsPerRead, height - y0);
        for (std::size_t k = 0; k < bands; ++k)
            ReadBandRegion(source, static_cast<int>(bandIndices[k]), 0, y0, width, count, 1.0, 1.0,
                           chunks[k].data(), GDT_Float32);
        for (int r = 0; r < count; ++r) {
            for (std::size_t k = 0; k < bands; ++k) rows[k] = chunks[k].data() + static_cast<std::size_t>(r) * w;
            LabelRow(rows.data(), w, centers, scratch);
            // Class numbers above 255 keep their low byte.
            for (std::size_t x = 0; x < w; ++x) out[x] = static_cast<std::uint8_t>(scratch.label[x]);
            if (targetBand) {
                const CPLErr ignored = targetBand->RasterIO(GF_Write, 0, y0 + r, width, 1, out.data(), width, 1,
                                                            GDT_Byte, 0, 0, nullptr);
                (void)ignored;
            }
            done += step;
            StageProgress(progress, userData, Translate(kOutputContext, kGeneratingResultFile)).Report(done);
        }
    }
    return 0;
}

} // namespace isodata
