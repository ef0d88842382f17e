// Which GDAL formats hold the class raster exactly. A format that rounds
// values (JPEG, lossy WEBP, JPEG 2000, JPEG XL, or JPEG or WEBP tiles in a
// GeoPackage), expands the colours into bands, or only refers to other data
// (VRT) would publish something else than the classes found.
#pragma once

#include "OutputFormats.h"

#include <gdal_priv.h>

#include <string>
#include <vector>

namespace isodata_run {

// Formats that always do, named to a person whose choice is refused.
std::string ExactFormatNames();

// Why format, a GDAL driver that writes rasters, cannot hold the class
// raster exactly with creationOptions (the person's, before the defaults
// CreationOptionsFor adds); empty when it can. Known lossy settings and
// reference formats are named; any other format is tried on a small class
// raster of every value, in GDAL's memory or, for a format that writes only
// real files, in a temporary folder. The reason names no path.
std::string WhyNotExact(const std::string& format, const std::vector<std::string>& creationOptions);

// Whether copy holds what original holds: the size, every pixel, and the
// colours and class names original has, where copy carries colours or names
// at all. Otherwise difference says where they part, as "pixel 3, 4 is 2,
// not 5".
bool SameClassRaster(GDALDataset& original, GDALDataset& copy, std::string& difference);

} // namespace isodata_run
