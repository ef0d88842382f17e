// A window of the full-size input as the result pass reads it: the chosen
// bands' values as floats and, with a validity mask, why each pixel is
// excluded, handed out together.
#pragma once

#include "BandSlots.h"
#include "Validity.h"

#include <cstddef>
#include <cstdint>
#include <vector>

class GDALDataset;

namespace isodata {

class WindowReader {
public:
    // Windows of up to rows x columns pixels of source. Each band the source
    // has is read once however often the list names it; a band it lacks
    // reads as zeros. rules may name mask bands of source itself or of
    // another dataset of its size. With flagNonFinite the reader marks
    // non-finite pixels whether or not the rules exclude them.
    WindowReader(GDALDataset* source, const std::vector<std::uint32_t>& bandIndices, int rows, int columns,
                 const ValidityRules& rules, bool flagNonFinite = false);

    // Reads the window (x0, y0, columns, rows) of every chosen band, marks
    // where a value just read is NaN or an infinity, then reads its
    // exclusion bits: the mask bands and the mask raster, and the non-finite
    // mark when that rule is on. A band whose read fails keeps what its
    // buffer held.
    void Read(int x0, int y0, int columns, int rows);

    // Row r of the window in the entry-th band of the list.
    const float* Row(std::size_t entry, int r) const;
    // Row r of the window's ExclusionBit flags (0: valid), or null when no
    // rule is in force.
    const std::uint8_t* Excluded(int r) const;
    // Row r's non-finite marks (kExcludedByNonFinite where a chosen band
    // holds NaN or an infinity, else 0), or null when neither the rules nor
    // the caller asked for them.
    const std::uint8_t* NonFinite(int r) const;

private:
    void ReadValues(int x0, int y0, int columns, int rows);
    void MarkNonFiniteValues(int rows);
    void ReadExclusions(int x0, int y0, int columns, int rows);

    GDALDataset* source_;
    std::size_t entries_;  // bands in the list
    BandSlots slots_;
    std::size_t plane_, columns_ = 0;
    std::vector<float> values_, zeros_;
    ValidityReader validity_;
    std::vector<std::uint8_t> excluded_;   // empty without a rule
    std::vector<std::uint8_t> nonFinite_;  // empty when not asked for
    bool floating_ = false;                // a chosen band can hold NaN or an infinity
};

} // namespace isodata
