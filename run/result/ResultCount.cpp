// The classes of the class raster. The result pass has counted every
// class's pixels as it labelled them; only a plug-in that reports no figures
// has its raster read back and counted, in strips of rows, so that a large
// result needs little memory.
#include "ResultCount.h"

#include <cpl_error.h>
#include <cpl_string.h>
#include <gdal_priv.h>

#include <algorithm>
#include <array>

namespace isodata_run {
namespace {

constexpr int kValues = 256;
constexpr std::int64_t kStripBytes = 8 << 20;

bool CountValues(GDALRasterBand* band, std::array<std::int64_t, kValues>& counts) {
    const int width = band->GetXSize(), height = band->GetYSize();
    const int rowsPerStrip = static_cast<int>(std::clamp<std::int64_t>(kStripBytes / std::max(width, 1), 1, height));
    std::vector<GByte> strip(static_cast<size_t>(width) * rowsPerStrip);
    for (int y = 0; y < height; y += rowsPerStrip) {
        const int rows = std::min(rowsPerStrip, height - y);
        if (band->RasterIO(GF_Read, 0, y, width, rows, strip.data(), width, rows, GDT_Byte, 0, 0, nullptr) !=
            CE_None)
            return false;
        const size_t n = static_cast<size_t>(width) * rows;
        for (size_t i = 0; i < n; ++i) ++counts[strip[i]];
    }
    return true;
}

// The pixels of each value as the result pass counted them: class k + 1 is
// written as its low byte, and whatever no class holds is 0.
void ValuesOfClasses(const stIsodataRunReport& plugin, std::int64_t pixels, std::array<std::int64_t, kValues>& counts) {
    std::int64_t classified = 0;
    for (std::size_t k = 0; k < plugin.classes.size(); ++k) {
        counts[(k + 1) % kValues] += plugin.classes[k].pixels;
        classified += plugin.classes[k].pixels;
    }
    counts[0] += pixels - classified;
}

} // namespace

bool CountClasses(GDALDataset& ds, const stIsodataRunReport& plugin, RunReport& summary, std::string& error) {
    summary.classes.clear();
    if (ds.GetRasterCount() < 1) {
        error = "the class raster has no band";
        return false;
    }
    // GDAL's GeoTIFF driver reads its .aux.xml, where the category names are,
    // only once something asks for the georeferencing.
    double transform[6];
    (void)ds.GetGeoTransform(transform);
    GDALRasterBand* band = ds.GetRasterBand(1);
    std::array<std::int64_t, kValues> counts{};
    if (plugin.resultCode >= 0)
        ValuesOfClasses(plugin, static_cast<std::int64_t>(ds.GetRasterXSize()) * ds.GetRasterYSize(), counts);
    else if (!CountValues(band, counts)) {
        error = std::string("cannot read the pixels of the class raster: ") + CPLGetLastErrorMsg();
        return false;
    }
    summary.width = ds.GetRasterXSize();
    summary.height = ds.GetRasterYSize();
    summary.unclassified = counts[0];

    const CPLStringList names(band->GetCategoryNames(), false);
    const GDALColorTable* colours = band->GetColorTable();
    for (int value = 1; value < kValues; ++value) {
        const bool named = value < names.size();
        if (counts[value] == 0 && !named) continue;
        ClassReport c;
        c.value = value;
        c.pixels = counts[value];
        if (named) c.name = names[value];
        if (colours && value < colours->GetColorEntryCount()) {
            const GDALColorEntry* e = colours->GetColorEntry(value);
            c.hasColour = true;
            c.red = e->c1;
            c.green = e->c2;
            c.blue = e->c3;
        }
        summary.classes.push_back(c);
    }
    return true;
}

} // namespace isodata_run
