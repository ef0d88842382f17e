// The output formats a host may offer: those that hold the class raster
// exactly, a one-band Byte raster whose pixel values are class numbers,
// with a colour table and class names, written as a dataset of its own.
#pragma once

#include "RunApi.h"

#include <string>
#include <vector>

namespace isodata_run {

struct ExactFormat {
    std::string name;                     // GDAL's short name
    std::vector<std::string> extensions;  // its file extensions, the usual first
};

// The formats that hold the class raster with their default options and
// have a file extension, in GDAL's driver order.
ISODATA_RUN_API std::vector<ExactFormat> ExactFormats();

// GDAL's name of the format a run writes when a host asks for no other.
ISODATA_RUN_API std::string DefaultFormat();

} // namespace isodata_run
