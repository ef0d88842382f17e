// Which pixels of an input take part in a run. Three rules exclude a pixel:
// the mask band (GDALRasterBand::GetMaskBand) of a chosen band is 0 there, a
// chosen band holds NaN or an infinity as a 32-bit float, or band 1 of a mask
// raster of the input's size is 0 there. The working copy's mask and the
// result pass read the same rules, at reduced and at full size.
#pragma once

#include <gdal.h>

#include <cstddef>
#include <cstdint>
#include <vector>

class GDALDataset;
class GDALRasterBand;

namespace isodata {

// The rules in force; a null dataset or false switches its rule off.
struct ValidityRules {
    GDALDataset* maskBandsOf = nullptr;  // the mask bands of the chosen bands of this dataset
    GDALDataset* maskRaster = nullptr;   // band 1; only 0 excludes, its nodata is ignored
    int alphaIndex = -1;                 // an alpha band of maskBandsOf read as a mask too (UnmaskedAlphaBand)
    bool nonFinite = false;
    bool Any() const { return maskBandsOf || maskRaster || nonFinite; }
};

// Why a pixel is excluded, one bit a rule; 0 means valid.
enum ExclusionBit : std::uint8_t {
    kExcludedByMaskBand = 1,
    kExcludedByNonFinite = 2,
    kExcludedByMaskRaster = 4,
};

struct ExclusionCounts {
    std::int64_t pixels = 0;  // excluded by any rule
    std::int64_t byMaskBands = 0, byNonFinite = 0, byMaskRaster = 0;
    void Add(const std::uint8_t* why, std::size_t n);
};

class ValidityReader {
public:
    ValidityReader(const ValidityRules& rules, const std::vector<std::uint32_t>& bandIndices);

    bool Any() const { return rules_.Any(); }
    bool NonFinite() const { return rules_.nonFinite; }

    // Sets the mask-band and mask-raster bits of why for the window
    // (x0, y0, xSize, ySize) of the input read into columns x rows, as GDAL's
    // nearest-neighbour RasterIO picks pixels (reduced when the buffer is
    // smaller). why is columns * rows bytes and is cleared first. False when
    // a read failed; GDAL has raised the error.
    //
    // values, when given at full size (columns = xSize, rows = ySize), holds
    // the window of every chosen band as the caller read it (entry i of the
    // band list at values[i], rows of columns floats): a nodata mask of a
    // band whose values floats hold exactly (8- and 16-bit integers, 32-bit
    // floats) is then GDAL's mask of an in-memory band over those values,
    // instead of a second read of the band.
    bool ReadMasks(int x0, int y0, int xSize, int ySize, int columns, int rows, std::uint8_t* why,
                   const std::vector<const float*>* values = nullptr);

private:
    struct MaskBand {
        GDALRasterBand* mask;
        GDALRasterBand* nodataOf;  // the band a nodata mask compares, when its values suffice; else null
        std::size_t entry;         // its entry in the band list
    };

    bool MarkFromValues(const MaskBand& m, const float* values, int columns, int rows, std::uint8_t* why);

    ValidityRules rules_;
    std::vector<MaskBand> maskBands_;  // distinct mask bands that can exclude something
    std::vector<std::uint8_t> byteRow_;
    std::vector<double> valueRow_;
};

// Whether a float holds every value of type exactly (8- and 16-bit integers,
// 32-bit floats), so that values read as floats give back the band's own.
bool FloatHoldsExactly(GDALDataType type);

// n values read as floats back in type (one FloatHoldsExactly accepts), in
// buffer; returns where they are (values themselves for 32-bit floats).
void* AsBandValues(GDALDataType type, const float* values, std::size_t n, std::vector<double>& buffer);

// GDAL's nodata mask (0 or 255) of width x rows values of type, as the mask
// band of a band with band's nodata value gives it: the mask band of an
// in-memory band over the values, so that GDAL's own comparison decides.
bool NoDataMaskOf(GDALRasterBand* band, void* values, GDALDataType type, int width, int rows, std::uint8_t* flags);

// The buffer type a mask raster's band is read in: one that keeps its zero
// apart from every other value (its own type; a double for the others).
GDALDataType ZeroKeepingType(GDALDataType type);

// Sets bit in why[i] for i < n where values (n values of type) are 0.
void MarkZeros(GDALDataType type, const void* values, std::size_t n, std::uint8_t bit, std::uint8_t* why);

// Sets the non-finite bit of why[x] for x < n when one of the rows holds NaN
// or an infinity there.
void MarkNonFinite(const float* const* rows, std::size_t rowCount, std::size_t n, std::uint8_t* why);

} // namespace isodata
