// The names GDAL opens a raster by, and what they mean from another folder.
// A run reads its input from the run folder, where a relative path, the file
// inside a subdataset name or the sources of a VRT would otherwise point
// elsewhere; these helpers find a name's file and anchor it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace isodata_run {

// A subdataset name (NETCDF:"x.nc":sst, HDF4_SDS:UNKNOWN:"x.hdf":0,
// HDF5:"x.h5"://sst, GTIFF_DIR:2:x.tif) split around its file part.
struct SubdatasetName {
    std::string before, file, after;  // before + file + after is the name

    std::string With(const std::string& otherFile) const { return before + otherFile + after; }
};

// The parts of name, or nothing when it is no subdataset name: it must start
// with a driver's prefix (capitals, digits, '_', then ':') and either quote
// its file or hold, between colons, a part that names an existing file.
std::optional<SubdatasetName> SplitSubdatasetName(const std::string& name);

// name as GDAL would read it from any folder: a relative file made absolute
// against base (empty: the current folder), and so the file part of a
// subdataset name and the archive inside a /vsi path. URLs stay as they are.
std::string Anchored(const std::string& name, const std::string& base = std::string());

// Writes to copy the VRT file vrt with every source named absolutely, as
// GDAL reads them where vrt lies and from the current folder; the rest of the
// XML is kept as it is, so the copy reads the same pixels from anywhere.
bool CopyVrtWithAnchoredSources(const std::string& vrt, const std::string& copy, std::string& error);

// Writes a VRT at path that stands for the raster GDAL opens as name with
// openOptions (which the VRT carries to its sources).
bool WrapInVrt(const std::string& name, const std::vector<std::string>& openOptions, const std::string& path,
               std::string& error);

} // namespace isodata_run
