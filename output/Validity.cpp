// The validity rules read from GDAL.
//
//  1. The mask bands of the chosen bands, each distinct one once (a
//     per-dataset mask serves every band); bands whose mask is "all valid"
//     are skipped, since their mask can exclude nothing.
//  2. A window of each is read as bytes with the caller's buffer size, the
//     mask raster's band 1 in its own type, and the bits set where they are 0.
//  3. Non-finite values are found in rows of floats the caller already holds.
#include "Validity.h"

#include <gdal_priv.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace isodata {

GDALDataType ZeroKeepingType(GDALDataType type) {
    switch (type) {
    case GDT_Byte: case GDT_UInt16: case GDT_Int16: case GDT_UInt32: case GDT_Int32: case GDT_Float32:
    case GDT_Float64:
        return type;
    default:
        return GDT_Float64;  // 64-bit and complex types: the real part, as a double
    }
}

namespace {

template <class V>
void MarkZerosOf(const void* values, std::size_t n, std::uint8_t bit, std::uint8_t* why) {
    const V* v = static_cast<const V*>(values);
    for (std::size_t i = 0; i < n; ++i)
        if (v[i] == V(0)) why[i] |= bit;
}

} // namespace

void MarkZeros(GDALDataType type, const void* values, std::size_t n, std::uint8_t bit, std::uint8_t* why) {
    switch (type) {
    case GDT_Byte: return MarkZerosOf<std::uint8_t>(values, n, bit, why);
    case GDT_UInt16: return MarkZerosOf<std::uint16_t>(values, n, bit, why);
    case GDT_Int16: return MarkZerosOf<std::int16_t>(values, n, bit, why);
    case GDT_UInt32: return MarkZerosOf<std::uint32_t>(values, n, bit, why);
    case GDT_Int32: return MarkZerosOf<std::int32_t>(values, n, bit, why);
    case GDT_Float32: return MarkZerosOf<float>(values, n, bit, why);
    default: return MarkZerosOf<double>(values, n, bit, why);
    }
}

// The counts below read the bits by their positions.
static_assert(kExcludedByMaskBand == 1 && kExcludedByNonFinite == 2 && kExcludedByMaskRaster == 4);

void ExclusionCounts::Add(const std::uint8_t* why, std::size_t n) {
    // Without branches, so that a row of mostly valid pixels costs little.
    std::int64_t any = 0, band = 0, nonFinite = 0, raster = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const unsigned w = why[i];
        any += w != 0;
        band += w & kExcludedByMaskBand;
        nonFinite += (w & kExcludedByNonFinite) >> 1;
        raster += (w & kExcludedByMaskRaster) >> 2;
    }
    pixels += any;
    byMaskBands += band;
    byNonFinite += nonFinite;
    byMaskRaster += raster;
}

ValidityReader::ValidityReader(const ValidityRules& rules, const std::vector<std::uint32_t>& bandIndices)
    : rules_(rules) {
    if (!rules_.maskBandsOf) return;
    for (std::uint32_t index : bandIndices) {
        if (index >= static_cast<std::uint32_t>(rules_.maskBandsOf->GetRasterCount())) continue;
        GDALRasterBand* band = rules_.maskBandsOf->GetRasterBand(static_cast<int>(index) + 1);
        if (band->GetMaskFlags() == GMF_ALL_VALID) continue;
        GDALRasterBand* mask = band->GetMaskBand();
        if (mask && std::find(maskBands_.begin(), maskBands_.end(), mask) == maskBands_.end())
            maskBands_.push_back(mask);
    }
}

bool ValidityReader::ReadMasks(int x0, int y0, int xSize, int ySize, int columns, int rows, std::uint8_t* why) {
    const std::size_t n = static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows);
    std::memset(why, 0, n);
    bool ok = true;
    if (!maskBands_.empty()) byteRow_.resize(n);
    for (GDALRasterBand* mask : maskBands_) {
        ok = mask->RasterIO(GF_Read, x0, y0, xSize, ySize, byteRow_.data(), columns, rows, GDT_Byte, 0, 0,
                            nullptr) == CE_None && ok;
        MarkZeros(GDT_Byte, byteRow_.data(), n, kExcludedByMaskBand, why);
    }
    if (rules_.maskRaster && rules_.maskRaster->GetRasterCount() >= 1) {
        GDALRasterBand* band = rules_.maskRaster->GetRasterBand(1);
        const GDALDataType type = ZeroKeepingType(band->GetRasterDataType());
        valueRow_.resize((n * static_cast<std::size_t>(GDALGetDataTypeSizeBytes(type)) + sizeof(double) - 1) /
                         sizeof(double));
        ok = band->RasterIO(GF_Read, x0, y0, xSize, ySize, valueRow_.data(), columns, rows, type, 0, 0, nullptr) ==
                 CE_None && ok;
        MarkZeros(type, valueRow_.data(), n, kExcludedByMaskRaster, why);
    }
    return ok;
}

void MarkNonFinite(const float* const* rows, std::size_t rowCount, std::size_t n, std::uint8_t* why) {
    // A float is NaN or infinite exactly when its exponent bits are all set;
    // tested on the bits, the loop needs no branch and vectorises.
    constexpr std::uint32_t kExponent = 0x7f800000u;
    for (std::size_t k = 0; k < rowCount; ++k) {
        const float* row = rows[k];
        for (std::size_t x = 0; x < n; ++x) {
            std::uint32_t bits;
            std::memcpy(&bits, row + x, sizeof bits);
            why[x] |= static_cast<std::uint8_t>(((bits & kExponent) == kExponent) << 1);
        }
    }
}

} // namespace isodata
