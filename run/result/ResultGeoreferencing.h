// What the class raster carries of its input (or of the model it was
// labelled with) beyond what the plug-in writes itself, and what it must not
// carry of the run folder. The plug-in copies
// a geotransform only, so an input placed by ground control points would
// give a result placed nowhere; and GDAL's ENVI header names the raster by
// the path it was written under, a path inside the run folder.
#pragma once

#include "RunRequest.h"

#include <string>
#include <vector>

namespace isodata_run {

// When input (a name GDAL opens) has no geotransform but ground control
// points, gives them and their spatial reference to the raster at result,
// in its .aux.xml, where GDAL reads them with the raster and copies them on
// to any other format. Nothing to do otherwise.
bool CarryGcps(const std::string& input, const std::string& result, std::string& error);

// Gives class k + 1 of raster the name and colour of looks[k] where the
// look has them and they differ from what the raster holds; a raster that
// already shows every class so is left as it was.
bool CarryClassLooks(const std::string& raster, const std::vector<ClassLook>& looks, std::string& error);

// Makes the description of the ENVI header of raster read name.
bool NameEnviHeader(const std::string& raster, const std::string& name, std::string& error);

} // namespace isodata_run
