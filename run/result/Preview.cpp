// Builds the preview in a MEM dataset (the sampled classes plus the palette)
// and lets GDAL's PNG driver copy it out. No georeferencing is attached: the
// PNG format cannot hold it, and GDAL would put it in a side .aux.xml file
// that nobody asked for.
#include "Preview.h"

#include <cpl_error.h>
#include <gdal_priv.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <vector>

namespace isodata_run {
namespace {

std::string LastGdalError() {
    const std::string msg = CPLGetLastErrorMsg();
    return msg.empty() ? std::string() : ": " + msg;
}

} // namespace

PreviewSize PreviewSizeFor(int width, int height, int maxSide) {
    const int longer = std::max(width, height);
    if (longer <= maxSide) return {width, height};
    const double scale = static_cast<double>(maxSide) / longer;
    auto scaled = [scale, maxSide](int side) {
        return std::clamp(static_cast<int>(std::lround(side * scale)), 1, maxSide);
    };
    return {scaled(width), scaled(height)};
}

bool WritePreview(GDALDataset& source, const std::string& pngPath, const std::string& shownPath, std::string& error,
                  int maxSide) {
    if (source.GetRasterCount() < 1) {
        error = "the class raster has no band";
        return false;
    }
    GDALRasterBand* band = source.GetRasterBand(1);
    const PreviewSize size = PreviewSizeFor(source.GetRasterXSize(), source.GetRasterYSize(), maxSide);

    std::vector<GByte> pixels(static_cast<size_t>(size.width) * size.height);
    GDALRasterIOExtraArg extra;
    INIT_RASTERIO_EXTRA_ARG(extra);
    extra.eResampleAlg = GRIORA_NearestNeighbour;
    if (band->RasterIO(GF_Read, 0, 0, source.GetRasterXSize(), source.GetRasterYSize(), pixels.data(), size.width,
                       size.height, GDT_Byte, 0, 0, &extra) != CE_None) {
        error = "cannot read the class raster" + LastGdalError();
        return false;
    }

    GDALDriver* memDriver = GetGDALDriverManager()->GetDriverByName("MEM");
    GDALDriver* pngDriver = GetGDALDriverManager()->GetDriverByName("PNG");
    if (!memDriver || !pngDriver) {
        error = "this GDAL has no MEM or PNG driver";
        return false;
    }
    GDALDatasetUniquePtr picture(memDriver->Create("", size.width, size.height, 1, GDT_Byte, nullptr));
    GDALRasterBand* out = picture ? picture->GetRasterBand(1) : nullptr;
    if (!out || out->RasterIO(GF_Write, 0, 0, size.width, size.height, pixels.data(), size.width, size.height,
                              GDT_Byte, 0, 0, nullptr) != CE_None) {
        error = "cannot build the preview image" + LastGdalError();
        return false;
    }
    if (GDALColorTable* colours = band->GetColorTable()) out->SetColorTable(colours);

    CPLErrorReset();
    GDALDatasetUniquePtr png(pngDriver->CreateCopy(pngPath.c_str(), picture.get(), FALSE, nullptr, nullptr, nullptr));
    const bool created = png != nullptr;
    png.reset();  // closing flushes the file; a failure there is only seen as an error record
    if (!created || CPLGetLastErrorType() == CE_Failure) {
        error = "cannot write the preview '" + shownPath + "'" + LastGdalError();
        std::error_code ec;
        std::filesystem::remove(pngPath, ec);
        return false;
    }
    return true;
}

} // namespace isodata_run
