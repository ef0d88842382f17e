#include "support/TestSupport.h"

#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace testsupport {

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "isodata-test-XXXXXX").string();
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed");
    path_ = buf.data();
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
}

std::vector<std::string> TempDir::List() const {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(path_)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

QuietGdalErrors::QuietGdalErrors() { CPLPushErrorHandler(CPLQuietErrorHandler); }
QuietGdalErrors::~QuietGdalErrors() { CPLPopErrorHandler(); }

void RegisterGdal() { GDALAllRegister(); }

void WriteRaster(const std::string& path, const RasterTable& table, const char* driverName) {
    RegisterGdal();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(driverName);
    ASSERT_NE(driver, nullptr) << driverName;
    const int bandCount = static_cast<int>(table.bands.size());
    CPLStringList options;
    for (const std::string& o : table.options) options.AddString(o.c_str());
    GDALDataset* ds = driver->Create(path.c_str(), table.width, table.height, bandCount, table.type, options.List());
    ASSERT_NE(ds, nullptr) << path;
    if (!table.geoTransform.empty()) {
        double gt[6];
        std::copy(table.geoTransform.begin(), table.geoTransform.end(), gt);
        ds->SetGeoTransform(gt);
    }
    if (table.wkt != "-") {
        std::string wkt = table.wkt;
        if (wkt.empty()) {
            OGRSpatialReference srs;
            srs.importFromEPSG(32633);
            char* text = nullptr;
            srs.exportToWkt(&text);
            wkt = text;
            CPLFree(text);
        }
        ds->SetProjection(wkt.c_str());
    }
    for (int b = 0; b < bandCount; ++b) {
        std::vector<double> values = table.bands[b];
        ASSERT_EQ(values.size(), static_cast<size_t>(table.width) * table.height);
        CPLErr err = ds->GetRasterBand(b + 1)->RasterIO(GF_Write, 0, 0, table.width, table.height, values.data(),
                                                        table.width, table.height, GDT_Float64, 0, 0, nullptr);
        ASSERT_EQ(err, CE_None);
    }
    GDALClose(ds);
}

std::vector<double> ReadBand(const std::string& path, int band) {
    RegisterGdal();
    GDALDataset* ds = static_cast<GDALDataset*>(GDALOpen(path.c_str(), GA_ReadOnly));
    if (!ds) throw std::runtime_error("cannot open " + path);
    const int w = ds->GetRasterXSize(), h = ds->GetRasterYSize();
    std::vector<double> values(static_cast<size_t>(w) * h);
    if (ds->GetRasterBand(band)->RasterIO(GF_Read, 0, 0, w, h, values.data(), w, h, GDT_Float64, 0, 0, nullptr) !=
        CE_None) {
        GDALClose(ds);
        throw std::runtime_error("cannot read " + path);
    }
    GDALClose(ds);
    return values;
}

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool FileExists(const std::string& path) { return fs::exists(path); }

} // namespace testsupport
