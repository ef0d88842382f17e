// The classes of a written class raster: their names and colours from the
// raster, their pixel counts from the result pass that labelled it, or from
// the raster's pixels when the plug-in reports no figures.
#pragma once

#include "RunReport.h"

#include <IsodataRun.h>

#include <string>

class GDALDataset;

namespace isodata_run {

// Fills report's size, classes and unclassified pixels for an open class
// raster, with the category names and colours of its band 1. The counts are
// the plug-in's per-class pixels when it reported them (resultCode >= 0):
// class k + 1 is written as its low byte, so that is the value it counts
// under. Otherwise band 1 is read and counted. False with error set when it
// cannot be read.
bool CountClasses(GDALDataset& result, const stIsodataRunReport& plugin, RunReport& report, std::string& error);

} // namespace isodata_run
