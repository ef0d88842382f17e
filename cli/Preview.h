// A quick-look PNG of a class raster in its class colours.
#pragma once

#include <string>

namespace isodata_cli {

constexpr int kPreviewMaxSide = 1024;

struct PreviewSize {
    int width = 0;
    int height = 0;
};

// The raster's own size when its longer side fits in maxSide; otherwise scaled
// so that the longer side is maxSide, keeping the aspect and at least 1 pixel.
PreviewSize PreviewSizeFor(int width, int height, int maxSide = kPreviewMaxSide);

// Writes band 1 of classRaster, sampled by nearest neighbour (class numbers
// must not be blended), with its colour table as the PNG's palette. False
// with error set on failure; a half-written PNG is removed.
bool WritePreview(const std::string& classRaster, const std::string& pngPath, std::string& error,
                  int maxSide = kPreviewMaxSide);

} // namespace isodata_cli
