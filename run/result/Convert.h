// Output formats other than the plug-in's own ENVI: the class raster is
// copied into the asked-for format by GDAL, with its colour table, category
// names, georeferencing and the RPC side file.
#pragma once

#include <string>
#include <vector>

namespace isodata_run {

// Whether the plug-in's ENVI file can be published as it is.
bool NeedsConversion(const std::string& format, const std::vector<std::string>& creationOptions);

// The creation options a format gets by default, with the person's own on
// top: lossless compression for the GeoTIFF family, nearest-neighbour
// overviews for COG, since class numbers must never be averaged, and PNG
// tiles for GeoPackage, whose automatic choice may take JPEG.
std::vector<std::string> CreationOptionsFor(const std::string& format, const std::vector<std::string>& given);

// Copies the ENVI raster envi to target in format, and its RPC side file
// the way the host copies it from the input.
bool ConvertResult(const std::string& envi, const std::string& target, const std::string& format,
                   const std::vector<std::string>& creationOptions, std::string& error);

} // namespace isodata_run
