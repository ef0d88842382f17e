// The names of the files a run creates or copies besides the class raster the
// host named. The plug-in creates its working copy and scratch files under
// these names; the command line needs the same names to keep a run's files
// apart and to move a finished result into place, so neither side re-derives
// them.
//
// Two rules of "the extension" meet here on purpose. The plug-in's own names
// cut the input path at the last '.' of the whole path, folders included
// (a/b.c/scene gives a/b + k + ".km"). Names that GDAL or the host derive from
// a raster path cut at the last '.' of the file name only, as GDAL's
// CPLResetExtension does.
#pragma once

#include <QString>

#include <cstdint>
#include <string>

namespace isodata {

// The path up to, not including, its last '.'; the whole path without one.
QString CutAtLastDot(const QString& path);

// The reduced Float32 working copy: "<input>tem.tif".
QString WorkingCopyPath(const QString& inputPath);
std::string WorkingCopyPath(const std::string& inputPath);

// The working copy's validity mask, a Byte GeoTIFF: "<input>temmask.tif".
QString WorkingMaskPath(const QString& inputPath);

// Scratch file k of a run on inputPath: the input cut at its last dot, then
// k in decimal, then ".km".
QString ScratchFilePath(const QString& inputPath, std::uint64_t k);
std::string ScratchFilePath(const std::string& inputPath, std::uint64_t k);

// The path without its file name's extension (CPLResetExtension's rule: the
// last '.' after the last '/', '\\' or ':', never the first character).
// Written out because GDAL's own path functions give an empty string for
// paths of 2048 bytes or more, which a moved result may well have.
std::string WithoutExtension(const std::string& path);

// GDAL's name of the format the plug-in writes its class raster in.
inline constexpr const char* kResultFormat = "ENVI";

// The header GDAL's ENVI driver writes beside rasterPath: extension -> "hdr".
std::string EnviHeaderPath(const std::string& rasterPath);

// The RPC side files the host copies from the input to the result:
// "<base>_rpc.txt" and "<base>.rpb", base being rasterPath without extension.
struct RpcSideFiles {
    std::string text;
    std::string rpb;
};
RpcSideFiles RpcSideFilePaths(const std::string& rasterPath);

// GDAL's auxiliary metadata file of rasterPath: "<rasterPath>.aux.xml".
std::string AuxXmlPath(const std::string& rasterPath);

} // namespace isodata
