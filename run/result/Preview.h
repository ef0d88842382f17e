// A quick-look PNG of a class raster in its class colours.
#pragma once

#include "Run.h"

#include <string>

class GDALDataset;

namespace isodata_run {


struct PreviewSize {
    int width = 0;
    int height = 0;
};

// The raster's own size when its longer side fits in maxSide; otherwise scaled
// so that the longer side is maxSide, keeping the aspect and at least 1 pixel.
PreviewSize PreviewSizeFor(int width, int height, int maxSide = kPreviewMaxSide);

// Writes band 1 of an open class raster, sampled by nearest neighbour (class
// numbers must not be blended), with its colour table as the PNG's palette.
// False with error set on failure; a half-written PNG is removed.
// Messages name the preview as shownPath, the name the person gave.
bool WritePreview(GDALDataset& classes, const std::string& pngPath, const std::string& shownPath,
                  std::string& error, int maxSide = kPreviewMaxSide);

} // namespace isodata_run
