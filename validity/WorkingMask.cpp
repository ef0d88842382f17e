// The working copy's validity mask: the flags at the working copy's size.
//
//  1. The mask bands (ChooseMaskBands) and the mask raster are read whole at
//     the working copy's size, as the working copy itself was, each into
//     memory bounded however large (ReducedRead.h), and marked a strip at a
//     time; a nodata mask of the input compares the working copy's values
//     where they are the band's own.
//  2. The working copy is read a strip at a time, and pixels where a chosen
//     band holds NaN or an infinity are marked as the values are read.
//  3. The flags go to a Byte GeoTIFF a strip at a time.
#include "WorkingMask.h"

#include "MaskBands.h"
#include "ReducedRead.h"

#include <KalDataSource.h>

#include <gdal_priv.h>

#include <algorithm>
#include <memory>
#include <string>

namespace isodata {

namespace {

// Bytes of values handled per strip of the working copy's mask.
constexpr std::size_t kStripBytes = std::size_t{8} << 20;

// The working copy's grid and where its scratch files go.
struct ReducedGrid {
    int width, height;
    std::string folder;
    std::size_t heapBytes;
    bool useOverviews;  // reduced reads may take overviews, as GDAL's do
    std::size_t Pixels() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
    // Whether band is read from its full resolution rather than GDAL's way,
    // which could take an overview of its dataset.
    bool FullResolution(GDALRasterBand* band) const { return !useOverviews && HasOverviews(band->GetDataset()); }
    // Rows of a strip of values of up to 8 bytes.
    int StripRows() const {
        const std::size_t line = static_cast<std::size_t>(width) * sizeof(double);
        return static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(height),
                                                      std::max<std::size_t>(1, kStripBytes / line)));
    }
};

// Calls visit(y0, rows) for each strip of the grid.
template <class Visit>
void ForEachStrip(const ReducedGrid& grid, Visit visit) {
    const int strip = grid.StripRows();
    for (int y0 = 0; y0 < grid.height; y0 += strip) visit(y0, std::min(strip, grid.height - y0));
}

// A mask band to read; for a band whose mask GDAL derives from its nodata
// value with a wider read than bytes, that band (see MarkMaskBand).
struct MaskBand {
    GDALRasterBand* mask;
    GDALRasterBand* nodataOf;
    int workingBand = 0;  // the working copy's band whose values the nodata test may take instead; 0: none
};

struct MaskSources {
    std::vector<MaskBand> bands;     // distinct, as ChooseMaskBands picks them
    GDALRasterBand* raster = nullptr; // band 1 of the mask raster
};

// The type GDAL 3.6's nodata mask band reads its band in before comparing
// (GDALNoDataMaskBand::IRasterIO); only integer and real types of this list
// are read here the same way, every other through the mask band itself.
GDALDataType NoDataWorkType(GDALDataType type) {
    switch (type) {
    case GDT_UInt16: case GDT_UInt32: return GDT_UInt32;
    case GDT_Int16: case GDT_Int32: return GDT_Int32;
    case GDT_Float32: return GDT_Float32;
    case GDT_Float64: return GDT_Float64;
    default: return GDT_Unknown;
    }
}

// The mask bands to read, as ChooseMaskBands picks them, and the mask
// raster's band 1.
MaskSources MaskSourcesOf(const ValidityRules& rules, const std::vector<std::uint32_t>& bandIndices,
                          GDALDataset* input) {
    MaskSources sources;
    for (const MaskBandChoice& c : ChooseMaskBands(rules.maskBandsOf, bandIndices, rules.alphaIndex)) {
        const GDALDataType type = c.band->GetRasterDataType();
        const bool nodata = c.flags == GMF_NODATA && dynamic_cast<GDALNoDataMaskBand*>(c.mask);
        const bool derived = nodata && NoDataWorkType(type) != GDT_Unknown;
        // GDAL's nodata mask of the input, read reduced, compares the values
        // its band reads at that size: the working copy's own values, which
        // floats hold exactly for these types.
        const bool fromCopy = nodata && rules.maskBandsOf == input && FloatHoldsExactly(type);
        sources.bands.push_back({c.mask, derived || fromCopy ? c.band : nullptr,
                                 fromCopy ? static_cast<int>(bandIndices[c.entry]) + 1 : 0});
    }
    if (rules.maskRaster && rules.maskRaster->GetRasterCount() >= 1) sources.raster = rules.maskRaster->GetRasterBand(1);
    return sources;
}

// Sets the mask-band bit where GDAL's nodata test fails the working copy's
// values of the band, a strip at a time.
void MarkFromWorkingCopy(const MaskBand& source, const ReducedGrid& grid, ReducedBuffer& why, GDALDataset* working) {
    const std::size_t w = static_cast<std::size_t>(grid.width);
    const GDALDataType type = source.nodataOf->GetRasterDataType();
    std::vector<float> values;
    std::vector<double> native;
    std::vector<std::uint8_t> flags;
    ForEachStrip(grid, [&](int y0, int rows) {
        const std::size_t first = static_cast<std::size_t>(y0) * w, n = static_cast<std::size_t>(rows) * w;
        values.resize(n);
        flags.assign(n, 255);
        const CPLErr readError = working->GetRasterBand(source.workingBand)->RasterIO(
            GF_Read, 0, y0, grid.width, rows, values.data(), grid.width, rows, GDT_Float32, 0, 0, nullptr);
        (void)readError;
        (void)NoDataMaskOf(source.nodataOf, AsBandValues(type, values.data(), n, native), type, grid.width, rows,
                           flags.data());
        MarkZeros(GDT_Byte, flags.data(), n, kExcludedByMaskBand, why.Data() + first);
        why.Release(first, n);
    });
}

// Sets the mask-band bit where the mask band read whole at the working
// copy's size is 0. A nodata mask of a wider band is what GDAL's read gives
// without its whole-size buffer of the band's values: the band read whole in
// the same type into bounded memory, then compared a strip at a time.
void MarkMaskBand(const MaskBand& source, const ReducedGrid& grid, ReducedBuffer& flags, ReducedBuffer& why,
                  GDALDataset* working) {
    const std::size_t w = static_cast<std::size_t>(grid.width);
    if (source.workingBand > 0 && source.workingBand <= working->GetRasterCount())
        return MarkFromWorkingCopy(source, grid, why, working);
    std::unique_ptr<ReducedBuffer> values;
    GDALDataType type = GDT_Unknown;
    if (!source.nodataOf) {
        (void)flags.ReadWholeBand(source.mask, grid.width, grid.height, GDT_Byte, grid.FullResolution(source.mask));
    } else {
        type = NoDataWorkType(source.nodataOf->GetRasterDataType());
        values = std::make_unique<ReducedBuffer>(grid.Pixels() * GDALGetDataTypeSizeBytes(type), grid.folder,
                                                 grid.heapBytes);
        if (values->ReadWholeBand(source.nodataOf, grid.width, grid.height, type,
                                  grid.FullResolution(source.nodataOf)) != CE_None)
            values.reset();
    }
    const std::size_t size = values ? static_cast<std::size_t>(GDALGetDataTypeSizeBytes(type)) : 0;
    ForEachStrip(grid, [&](int y0, int rows) {
        const std::size_t first = static_cast<std::size_t>(y0) * w, n = static_cast<std::size_t>(rows) * w;
        if (values) {
            (void)NoDataMaskOf(source.nodataOf, values->Data() + first * size, type, grid.width, rows,
                              flags.Data() + first);
            values->Release(first * size, n * size);
        }
        MarkZeros(GDT_Byte, flags.Data() + first, n, kExcludedByMaskBand, why.Data() + first);
        flags.Release(first, n);
        why.Release(first, n);
    });
}

// Sets the mask-raster bit where band 1 of the mask raster, read whole at the
// working copy's size, is 0.
void MarkMaskRaster(GDALRasterBand* band, const ReducedGrid& grid, ReducedBuffer& why) {
    const GDALDataType type = ZeroKeepingType(band->GetRasterDataType());
    const std::size_t size = static_cast<std::size_t>(GDALGetDataTypeSizeBytes(type));
    const std::size_t w = static_cast<std::size_t>(grid.width);
    ReducedBuffer values(grid.Pixels() * size, grid.folder, grid.heapBytes);
    (void)values.ReadWholeBand(band, grid.width, grid.height, type, grid.FullResolution(band));
    ForEachStrip(grid, [&](int y0, int rows) {
        const std::size_t first = static_cast<std::size_t>(y0) * w, n = static_cast<std::size_t>(rows) * w;
        MarkZeros(type, values.Data() + first * size, n, kExcludedByMaskRaster, why.Data() + first);
        values.Release(first * size, n * size);
        why.Release(first, n);
    });
}

// Sets the non-finite bit where a chosen band of the working copy holds NaN
// or an infinity, reading the copy a strip at a time.
void MarkNonFiniteOf(GDALDataset* working, const std::vector<std::uint32_t>& bandIndices, const ReducedGrid& grid,
                     ReducedBuffer& why) {
    std::vector<int> bands;
    for (std::uint32_t index : bandIndices)
        if (index < static_cast<std::uint32_t>(working->GetRasterCount())) bands.push_back(static_cast<int>(index) + 1);
    if (bands.empty()) return;
    const std::size_t w = static_cast<std::size_t>(grid.width);
    std::vector<float> strip;
    std::vector<const float*> rows(bands.size());
    ForEachStrip(grid, [&](int y0, int count) {
        const std::size_t plane = w * static_cast<std::size_t>(count);
        strip.resize(bands.size() * plane);
        const CPLErr readError = working->RasterIO(GF_Read, 0, y0, grid.width, count, strip.data(), grid.width,
                                                   count, GDT_Float32, static_cast<int>(bands.size()), bands.data(),
                                                   0, 0, 0, nullptr);
        (void)readError;
        for (int r = 0; r < count; ++r) {
            for (std::size_t k = 0; k < bands.size(); ++k) rows[k] = strip.data() + k * plane + r * w;
            MarkNonFinite(rows.data(), rows.size(), w, why.Data() + (static_cast<std::size_t>(y0) + r) * w);
        }
        why.Release(static_cast<std::size_t>(y0) * w, plane);
    });
}

// Writes 1 where why is 0 and 0 elsewhere to a Byte GeoTIFF, a strip at a
// time; the valid pixels, or -1 when the file cannot be written.
std::int64_t WriteFlags(ReducedBuffer& why, const ReducedGrid& grid, const QString& path) {
    auto mask = KalDataSource::DatasetFactory::Instance()->CreateRasterDataset(path, grid.width, grid.height, 1,
                                                                               KalDataSource::PDT_Byte, "GTiff");
    if (!mask) return -1;
    GDALRasterBand* band = mask->GetGDALDataset()->GetRasterBand(1);
    const std::size_t w = static_cast<std::size_t>(grid.width);
    std::int64_t valid = 0;
    bool written = true;
    ForEachStrip(grid, [&](int y0, int rows) {
        const std::size_t first = static_cast<std::size_t>(y0) * w, n = static_cast<std::size_t>(rows) * w;
        std::uint8_t* flags = why.Data() + first;
        for (std::size_t i = 0; i < n; ++i) {
            flags[i] = flags[i] == 0 ? 1 : 0;
            valid += flags[i];
        }
        written = written && band->RasterIO(GF_Write, 0, y0, grid.width, rows, flags, grid.width, rows, GDT_Byte, 0,
                                            0, nullptr) == CE_None;
        why.Release(first, n);
    });
    return written ? valid : -1;
}

} // namespace

std::int64_t WriteWorkingMask(const ValidityRules& rules, GDALDataset* input, GDALDataset* working,
                              const std::vector<std::uint32_t>& bandIndices, const QString& path,
                              std::size_t heapBytes, bool useOverviews) {
    const ReducedGrid grid{working->GetRasterXSize(), working->GetRasterYSize(),
                           FolderOf(working->GetDescription()), heapBytes, useOverviews};
    ReducedBuffer why(grid.Pixels(), grid.folder, heapBytes);
    // A failed read has raised its GDAL error, which is the host's to judge,
    // as with every read of the run.
    const MaskSources sources = MaskSourcesOf(rules, bandIndices, input);
    if (!sources.bands.empty()) {
        ReducedBuffer flags(grid.Pixels(), grid.folder, heapBytes);  // reused, as GDAL's read leaves it on failure
        for (const MaskBand& band : sources.bands) MarkMaskBand(band, grid, flags, why, working);
    }
    if (sources.raster) MarkMaskRaster(sources.raster, grid, why);
    if (rules.nonFinite) MarkNonFiniteOf(working, bandIndices, grid, why);
    return WriteFlags(why, grid, path);
}

} // namespace isodata
