// Helpers shared by the tests: a temporary folder, a scoped quiet GDAL error
// handler, and small rasters written from a table.
#pragma once

#include <gdal.h>

#include <QString>

#include <cstdint>
#include <string>
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
    // Names of the entries in the folder, sorted.
    std::vector<std::string> List() const;

private:
    std::string path_;
};

// Silences GDAL errors that a test provokes on purpose.
class QuietGdalErrors {
public:
    QuietGdalErrors();
    ~QuietGdalErrors();
};

// Registers GDAL's drivers once.
void RegisterGdal();

// Band-sequential pixel values: bands[b][y * width + x].
using BandValues = std::vector<std::vector<double>>;

struct RasterTable {
    int width = 0;
    int height = 0;
    GDALDataType type = GDT_Byte;
    BandValues bands;
    std::vector<double> geoTransform = {500000.0, 30.0, 0.0, 4200000.0, 0.0, -30.0};
    std::string wkt;  // empty: EPSG:32633 is used; "-": none
    std::vector<std::string> options;  // creation options, such as "TILED=YES"
};

// Writes a GeoTIFF (or another driver's file) with the given values.
void WriteRaster(const std::string& path, const RasterTable& table, const char* driver = "GTiff");

// Reads one band back as doubles.
std::vector<double> ReadBand(const std::string& path, int band = 1);

// Reads a whole text file.
std::string ReadText(const std::string& path);
bool FileExists(const std::string& path);

} // namespace testsupport
