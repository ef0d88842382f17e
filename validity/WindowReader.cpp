// The full-size reader of values and valid flags.
//
//  1. The window of every chosen band is read as floats in one call; after a
//     failure, band by band, so each band keeps what its own read leaves.
//  2. Pixels where a value just read is NaN or an infinity are marked, row
//     by row, when the rule or the caller asks for it. Bands of integer
//     types give finite floats whatever they hold (and a band that fails to
//     read keeps finite values), so without a floating-point band the marks
//     stay the zeros they start as.
//  3. With a rule in force, the window's mask bands and mask raster are read
//     at full size (ValidityReader), nodata masks of bands whose values
//     floats hold exactly compared on the values just read; the non-finite
//     marks join them when that rule is on.
#include "WindowReader.h"

#include <gdal_priv.h>

#include <algorithm>

namespace isodata {

WindowReader::WindowReader(GDALDataset* source, const std::vector<std::uint32_t>& bandIndices, int rows,
                           int columns, const ValidityRules& rules, bool flagNonFinite)
    : source_(source),
      entries_(bandIndices.size()),
      slots_(source ? source->GetRasterCount() : 0, bandIndices),
      plane_(static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns)),
      // Zeros at first: a band that fails to read keeps the previous rows.
      values_(slots_.Count() * plane_, 0.0f),
      zeros_(static_cast<std::size_t>(columns), 0.0f),
      validity_(rules, bandIndices),
      excluded_(rules.Any() ? plane_ : 0),
      nonFinite_(rules.nonFinite || flagNonFinite ? plane_ : 0) {
    for (std::size_t s = 0; s < slots_.Count(); ++s)
        if (GDALDataTypeIsFloating(source->GetRasterBand(slots_.BandMap()[s])->GetRasterDataType()))
            floating_ = true;
}

void WindowReader::Read(int x0, int y0, int columns, int rows) {
    columns_ = static_cast<std::size_t>(columns);
    ReadValues(x0, y0, columns, rows);
    if (!nonFinite_.empty() && floating_) MarkNonFiniteValues(rows);
    if (!excluded_.empty()) ReadExclusions(x0, y0, columns, rows);
}

void WindowReader::ReadValues(int x0, int y0, int columns, int rows) {
    if (slots_.Count() == 0) return;
    const GSpacing line = static_cast<GSpacing>(columns_ * sizeof(float));
    if (source_->RasterIO(GF_Read, x0, y0, columns, rows, values_.data(), columns, rows, GDT_Float32,
                          static_cast<int>(slots_.Count()), slots_.BandMap().data(), sizeof(float), line,
                          static_cast<GSpacing>(plane_ * sizeof(float)), nullptr) == CE_None)
        return;
    // Transfer errors of the band reads are not checked.
    for (std::size_t s = 0; s < slots_.Count(); ++s) {
        const CPLErr ignored = source_->GetRasterBand(slots_.BandMap()[s])->RasterIO(
            GF_Read, x0, y0, columns, rows, values_.data() + s * plane_, columns, rows, GDT_Float32, 0, 0, nullptr);
        (void)ignored;
    }
}

void WindowReader::MarkNonFiniteValues(int rows) {
    std::vector<const float*> planes(entries_);
    const std::size_t n = static_cast<std::size_t>(rows) * columns_;
    std::fill_n(nonFinite_.begin(), n, std::uint8_t(0));
    for (int r = 0; r < rows; ++r) {
        for (std::size_t k = 0; k < entries_; ++k) planes[k] = Row(k, r);
        MarkNonFinite(planes.data(), entries_, columns_, nonFinite_.data() + static_cast<std::size_t>(r) * columns_);
    }
}

void WindowReader::ReadExclusions(int x0, int y0, int columns, int rows) {
    std::vector<const float*> planes(entries_);
    for (std::size_t k = 0; k < entries_; ++k) planes[k] = Row(k, 0);
    // A failed read has raised its GDAL error, which is the host's to judge.
    (void)validity_.ReadMasks(x0, y0, columns, rows, columns, rows, excluded_.data(), &planes);
    if (!validity_.NonFinite() || !floating_) return;
    const std::size_t n = static_cast<std::size_t>(rows) * columns_;
    for (std::size_t i = 0; i < n; ++i) excluded_[i] |= nonFinite_[i];
}

const float* WindowReader::Row(std::size_t entry, int r) const {
    const std::size_t slot = slots_.SlotOf(entry);
    if (slot == BandSlots::kMissing) return zeros_.data();
    return values_.data() + slot * plane_ + static_cast<std::size_t>(r) * columns_;
}

const std::uint8_t* WindowReader::Excluded(int r) const {
    return excluded_.empty() ? nullptr : excluded_.data() + static_cast<std::size_t>(r) * columns_;
}

const std::uint8_t* WindowReader::NonFinite(int r) const {
    return nonFinite_.empty() ? nullptr : nonFinite_.data() + static_cast<std::size_t>(r) * columns_;
}

} // namespace isodata
