// The shared test helpers of TestSupport.h.
#include "support/TestSupport.h"

#include <gdal_priv.h>
#include <gdal_utils.h>
#include <ogr_spatialref.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace testsupport {

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "isodata-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::remove_all(path_, ec);
}

std::vector<std::string> TempDir::List(const std::string& subfolder) const {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(File(subfolder))) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

void WriteRaster(const std::string& path, const RasterTable& table) {
    RegisterGdal();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    const int bandCount = static_cast<int>(table.bands.size());
    CPLStringList options;
    for (const std::string& o : table.options) options.AddString(o.c_str());
    GDALDataset* ds = driver->Create(path.c_str(), table.width, table.height, bandCount, table.type, options.List());
    ASSERT_NE(ds, nullptr) << path;
    double gt[6] = {500000.0, 30.0, 0.0, 4200000.0, 0.0, -30.0};
    ds->SetGeoTransform(gt);
    OGRSpatialReference utm;
    utm.importFromEPSG(32633);
    ds->SetSpatialRef(&utm);
    for (int b = 0; b < bandCount; ++b) {
        if (!table.nodata.empty()) ds->GetRasterBand(b + 1)->SetNoDataValue(table.nodata.front());
        if (table.alphaBand == b + 1) ds->GetRasterBand(b + 1)->SetColorInterpretation(GCI_AlphaBand);
        std::vector<double> values = table.bands[b];
        ASSERT_EQ(values.size(), static_cast<size_t>(table.width) * table.height);
        ASSERT_EQ(ds->GetRasterBand(b + 1)->RasterIO(GF_Write, 0, 0, table.width, table.height, values.data(),
                                                     table.width, table.height, GDT_Float64, 0, 0, nullptr),
                  CE_None);
    }
    GDALClose(ds);
}

RasterTable RepeatingTable(GDALDataType type, int width, int height, double offset) {
    RasterTable t;
    t.width = width;
    t.height = height;
    t.type = type;
    const bool real = type == GDT_Float32 || type == GDT_Float64;
    for (int b = 0; b < 3; ++b) {
        t.bands.emplace_back();
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const double v = (3 * x + 5 * y + b) % 11 + offset;
                t.bands.back().push_back(real && v == 3 + offset ? std::nan("") : v);
            }
    }
    return t;
}

std::string TranslateRaster(const std::string& from, const std::string& to, std::vector<const char*> args) {
    RegisterGdal();
    args.push_back(nullptr);
    GDALTranslateOptions* options = GDALTranslateOptionsNew(const_cast<char**>(args.data()), nullptr);
    GDALDatasetUniquePtr source(GDALDataset::Open(from.c_str(), GDAL_OF_RASTER));
    GDALDatasetH done = GDALTranslate(to.c_str(), GDALDataset::ToHandle(source.get()), options, nullptr);
    GDALTranslateOptionsFree(options);
    EXPECT_NE(done, nullptr) << to;
    GDALClose(done);
    return to;
}

void BuildOverviews(const std::string& path) {
    GDALDatasetUniquePtr ds(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    int levels[] = {2, 4};
    ASSERT_EQ(ds->BuildOverviews("NEAREST", 2, levels, 0, nullptr, nullptr, nullptr), CE_None);
}

std::vector<double> ReadBand(const std::string& path, int band) {
    RegisterGdal();
    GDALDatasetUniquePtr ds(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER));
    if (!ds) throw std::runtime_error("cannot open " + path);
    const int w = ds->GetRasterXSize(), h = ds->GetRasterYSize();
    std::vector<double> values(static_cast<size_t>(w) * h);
    if (ds->GetRasterBand(band)->RasterIO(GF_Read, 0, 0, w, h, values.data(), w, h, GDT_Float64, 0, 0, nullptr) !=
        CE_None)
        throw std::runtime_error("cannot read " + path);
    return values;
}

std::vector<float> ReadBandsAt(GDALDatasetH ds, int width, int height, bool tolerateErrors) {
    std::vector<float> band(static_cast<size_t>(width) * height), all;
    for (int b = 1; b <= GDALGetRasterCount(ds); ++b) {
        const CPLErr e = GDALRasterIO(GDALGetRasterBand(ds, b), GF_Read, 0, 0, GDALGetRasterXSize(ds),
                                      GDALGetRasterYSize(ds), band.data(), width, height, GDT_Float32, 0, 0);
        if (!tolerateErrors) {
            EXPECT_EQ(e, CE_None) << "band " << b;
        }
        all.insert(all.end(), band.begin(), band.end());
    }
    return all;
}

std::string AtFolder(std::string text, const std::string& folder) {
    for (size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at + folder.size()))
        text.replace(at, 1, folder);
    return text;
}

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool FileExists(const std::string& path) { return fs::exists(path); }

int RecordProgress(double percent, const char* text, void* reports) {
    static_cast<Reports*>(reports)->emplace_back(percent, text ? text : "");
    return 1;
}

std::uint64_t Fnv1a(const std::string& bytes) {
    std::uint64_t hash = 1469598103934665603ull;
    for (unsigned char c : bytes) {
        hash ^= c;
        hash *= 1099511628211ull;
    }
    return hash;
}

} // namespace testsupport
