// The classes of a written class raster, counted from its pixels rather
// than taken from the plug-in, which reports no figures.
#pragma once

#include "RunReport.h"

#include <string>

class GDALDataset;

namespace isodata_run {

// Counts band 1 of an open class raster into report's size, classes and
// unclassified pixels, with the category names and colours. False with
// error set when it cannot be read.
bool CountClasses(GDALDataset& result, RunReport& report, std::string& error);

} // namespace isodata_run
