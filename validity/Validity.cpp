// The validity rules read from GDAL.
//
//  1. The mask bands of the chosen bands, as ChooseMaskBands picks them.
//  2. A window of each is read as bytes with the caller's buffer size, the
//     mask raster's band 1 in its own type, and the bits set where they are 0.
//  3. Non-finite values are found in rows of floats the caller already holds.
#include "Validity.h"

#include "MaskBands.h"

#include <cpl_string.h>
#include <gdal_priv.h>

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

bool NoDataMaskOf(GDALRasterBand* band, void* values, GDALDataType type, int width, int rows, std::uint8_t* flags) {
    GDALDriver* mem = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDatasetUniquePtr strip(mem ? mem->Create("", width, rows, 0, type, nullptr) : nullptr);
    if (!strip) return false;
    CPLStringList options;
    char pointer[64] = {};
    CPLPrintPointer(pointer, values, sizeof(pointer) - 1);
    options.SetNameValue("DATAPOINTER", pointer);
    if (strip->AddBand(type, options.List()) != CE_None) return false;
    GDALRasterBand* copy = strip->GetRasterBand(1);
    if (copy->SetNoDataValue(band->GetNoDataValue()) != CE_None) return false;
    return copy->GetMaskBand()->RasterIO(GF_Read, 0, 0, width, rows, flags, width, rows, GDT_Byte, 0, 0, nullptr) ==
           CE_None;
}

bool FloatHoldsExactly(GDALDataType type) {
    return type == GDT_Byte || type == GDT_UInt16 || type == GDT_Int16 || type == GDT_Float32;
}

namespace {

template <class V>
void* Narrow(const float* from, std::size_t n, std::vector<double>& buffer) {
    buffer.resize((n * sizeof(V) + sizeof(double) - 1) / sizeof(double));
    V* to = reinterpret_cast<V*>(buffer.data());
    for (std::size_t i = 0; i < n; ++i) to[i] = static_cast<V>(from[i]);
    return to;
}

} // namespace

void* AsBandValues(GDALDataType type, const float* values, std::size_t n, std::vector<double>& buffer) {
    switch (type) {
    case GDT_Byte: return Narrow<std::uint8_t>(values, n, buffer);
    case GDT_UInt16: return Narrow<std::uint16_t>(values, n, buffer);
    case GDT_Int16: return Narrow<std::int16_t>(values, n, buffer);
    default: return const_cast<float*>(values);
    }
}

ValidityReader::ValidityReader(const ValidityRules& rules, const std::vector<std::uint32_t>& bandIndices)
    : rules_(rules) {
    for (const MaskBandChoice& c : ChooseMaskBands(rules_.maskBandsOf, bandIndices, rules_.alphaIndex)) {
        const bool fromValues = c.flags == GMF_NODATA && FloatHoldsExactly(c.band->GetRasterDataType());
        maskBands_.push_back({c.mask, fromValues ? c.band : nullptr, c.entry});
    }
}

bool ValidityReader::MarkFromValues(const MaskBand& m, const float* values, int columns, int rows, std::uint8_t* why) {
    const std::size_t n = static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows);
    const GDALDataType type = m.nodataOf->GetRasterDataType();
    void* native = AsBandValues(type, values, n, valueRow_);
    if (!NoDataMaskOf(m.nodataOf, native, type, columns, rows, byteRow_.data())) return false;
    MarkZeros(GDT_Byte, byteRow_.data(), n, kExcludedByMaskBand, why);
    return true;
}

bool ValidityReader::ReadMasks(int x0, int y0, int xSize, int ySize, int columns, int rows, std::uint8_t* why,
                               const std::vector<const float*>* values) {
    const std::size_t n = static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows);
    std::memset(why, 0, n);
    bool ok = true;
    if (!maskBands_.empty()) byteRow_.resize(n);
    const bool fullSize = values && columns == xSize && rows == ySize;
    for (const MaskBand& m : maskBands_) {
        if (fullSize && m.nodataOf && (*values)[m.entry] &&
            MarkFromValues(m, (*values)[m.entry], columns, rows, why))
            continue;
        ok = m.mask->RasterIO(GF_Read, x0, y0, xSize, ySize, byteRow_.data(), columns, rows, GDT_Byte, 0, 0,
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
