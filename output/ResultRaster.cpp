// The result pass: reads the full-size input as 32-bit floats, labels every
// pixel by its nearest centre, and writes the labels as bytes.
//
//  1. Rows are read a strip at a time, every chosen band in one call (the
//     same values as one row of one band at a time, one pass over the file).
//  2. Each row is labelled (LabelRow) and its labels kept as their low byte;
//     progress advances by 100 / H per row.
//  3. The strip's labels are written to band 1 in one call.
#include "ResultRaster.h"

#include "BandSlots.h"
#include "LabelRow.h"

#include <gdal_priv.h>

#include <algorithm>

namespace isodata {

namespace {

constexpr const char* kGeneratingResultFile = "Generating result file";
// Rows read per GDAL call; bounds the buffers to a few rows per band.
constexpr int kRowsPerRead = 16;

// A strip of rows of the chosen bands as floats. Each band the source has is
// read once however often the list names it; a band it lacks reads as zeros.
class StripReader {
public:
    StripReader(const KalUtility::_ptr_t<KalDataSource::RasterDataset>& source,
                const std::vector<std::uint32_t>& bandIndices, int width)
        : source_(source),
          slots_(source && source->GetGDALDataset() ? source->GetGDALDataset()->GetRasterCount() : 0, bandIndices),
          width_(static_cast<std::size_t>(width)),
          // Zeros at first: a band that fails to read keeps the previous rows.
          values_(slots_.Count() * width_ * kRowsPerRead, 0.0f),
          zeros_(width_, 0.0f) {}

    void Read(int y0, int count) {
        if (slots_.Count() == 0) return;
        const GSpacing line = static_cast<GSpacing>(width_ * sizeof(float));
        const int width = static_cast<int>(width_);
        if (source_->GetGDALDataset()->RasterIO(GF_Read, 0, y0, width, count, values_.data(), width, count,
                                                GDT_Float32, static_cast<int>(slots_.Count()),
                                                slots_.BandMap().data(), sizeof(float), line, line * kRowsPerRead,
                                                nullptr) == CE_None)
            return;
        // Band by band after a failure, so each band keeps what its own read leaves.
        for (std::size_t s = 0; s < slots_.Count(); ++s)
            ReadBandRegion(source_, slots_.BandMap()[s] - 1, 0, y0, width, count, 1.0, 1.0,
                           values_.data() + s * width_ * kRowsPerRead, GDT_Float32);
    }

    // Row r of the strip in the entry-th band of the list.
    const float* Row(std::size_t entry, int r) const {
        const std::size_t slot = slots_.SlotOf(entry);
        if (slot == BandSlots::kMissing) return zeros_.data();
        return values_.data() + (slot * kRowsPerRead + static_cast<std::size_t>(r)) * width_;
    }

private:
    const KalUtility::_ptr_t<KalDataSource::RasterDataset>& source_;
    BandSlots slots_;
    std::size_t width_;
    std::vector<float> values_, zeros_;
};

} // namespace

std::int32_t LabelPixel(const float* const* rowBuffers, std::size_t x, const LabelCenters& centers) {
    std::vector<const float*> column(centers.bands);
    for (std::size_t k = 0; k < centers.bands; ++k) column[k] = rowBuffers[k] + x;
    std::int32_t label = 0;
    LabelRow(column.data(), 1, centers, &label);
    return label;
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
    const int width = source->GetRasterXSize(), height = source->GetRasterYSize();
    const std::size_t w = static_cast<std::size_t>(width);
    StripReader strip(source, bandIndices, width);
    std::vector<const float*> rows(bandIndices.size());
    std::vector<std::int32_t> labels(w);
    std::vector<std::uint8_t> out(w * kRowsPerRead);
    GDALDataset* target = result ? result->GetGDALDataset() : nullptr;
    GDALRasterBand* targetBand = target && target->GetRasterCount() >= 1 ? target->GetRasterBand(1) : nullptr;

    const QString text = Translate(kOutputContext, kGeneratingResultFile);
    StageProgress(progress, userData, text).Report(0.0);
    const double step = 100.0 / height;
    double done = 0.0;
    for (int y0 = 0; y0 < height; y0 += kRowsPerRead) {
        const int count = std::min(kRowsPerRead, height - y0);
        strip.Read(y0, count);
        for (int r = 0; r < count; ++r) {
            for (std::size_t k = 0; k < rows.size(); ++k) rows[k] = strip.Row(k, r);
            LabelRow(rows.data(), w, centers, labels.data());
            // Class numbers above 255 keep their low byte.
            std::uint8_t* row = out.data() + static_cast<std::size_t>(r) * w;
            for (std::size_t x = 0; x < w; ++x) row[x] = static_cast<std::uint8_t>(labels[x]);
            done += step;
            StageProgress(progress, userData, text).Report(done);
        }
        if (targetBand) {
            const CPLErr ignored = targetBand->RasterIO(GF_Write, 0, y0, width, count, out.data(), width, count,
                                                        GDT_Byte, 0, 0, nullptr);
            (void)ignored;
        }
    }
    return 0;
}

} // namespace isodata
