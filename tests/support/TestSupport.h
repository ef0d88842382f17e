// Helpers shared by the tests: a temporary folder, small GeoTIFFs written from
// a table, files read back, and a progress callback that records its reports.
#pragma once

#include <cstdint>

#include "GdalSession.h"

#include <gdal.h>

#include <QString>

#include <string>
#include <utility>
#include <vector>

namespace testsupport {

// A fresh folder, removed with everything in it at destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }
    QString QFile(const std::string& name) const { return QString::fromStdString(File(name)); }
    // Names of the entries in the folder (or its subfolder), sorted.
    std::vector<std::string> List(const std::string& subfolder = ".") const;

private:
    std::string path_;
};

inline void RegisterGdal() { isodata::RegisterGdalDrivers(); }

// Band-sequential pixel values: bands[b][y * width + x].
using BandValues = std::vector<std::vector<double>>;

struct RasterTable {
    int width = 0;
    int height = 0;
    GDALDataType type = GDT_Byte;
    BandValues bands;
    std::vector<std::string> options = {};  // creation options, such as "TILED=YES"
    std::vector<double> nodata = {};        // declared nodata: one value for every band, or none
    int alphaBand = 0;                      // 1-based band marked as alpha; 0: none
};

// Writes a GeoTIFF with the given values, 30 m pixels in UTM zone 33N.
void WriteRaster(const std::string& path, const RasterTable& table);
inline std::string WriteRasterIn(const TempDir& dir, const std::string& name, const RasterTable& table) {
    WriteRaster(dir.File(name), table);
    return dir.File(name);
}

// Every band of ds read whole at width x height as Float32, one band after
// the other: what a reduced copy of ds must hold. Read errors fail the test
// unless tolerated (a damaged input's).
std::vector<float> ReadBandsAt(GDALDatasetH ds, int width, int height, bool tolerateErrors = false);

// width x height, three bands holding (3x + 5y + b) % 11 + offset: small
// values that repeat, so that nodata values and zeros occur; the value
// 3 + offset becomes NaN for the real types.
RasterTable RepeatingTable(GDALDataType type, int width = 37, int height = 23, double offset = 0);

// gdal_translate of from to to with the given arguments; to.
std::string TranslateRaster(const std::string& from, const std::string& to, std::vector<const char*> args);

// Nearest-neighbour overviews at 2 and 4 for every band of the file.
void BuildOverviews(const std::string& path);

// Reads one band back as doubles.
std::vector<double> ReadBand(const std::string& path, int band = 1);

std::string ReadText(const std::string& path);

// text with every "@" in it replaced by folder: expected texts that name a
// test's folder.
std::string AtFolder(std::string text, const std::string& folder);

// FNV-1a of bytes, and what the plug-in's plain run on the sample scene with
// the command's default parameters and every band gives for its class raster.
std::uint64_t Fnv1a(const std::string& bytes);
constexpr std::uint64_t kSampleClassesFnv1a = 0x7fdbaa235a36fdb1ull;
bool FileExists(const std::string& path);

// (percent, text) of every report, in order; RecordProgress appends to the
// Reports its user pointer names.
using Reports = std::vector<std::pair<double, std::string>>;
int RecordProgress(double percent, const char* text, void* reports);

} // namespace testsupport
