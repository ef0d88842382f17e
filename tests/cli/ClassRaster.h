// Writes small class rasters like the plug-in's result: one Byte band with a
// colour table and category names.
#pragma once

#include <cpl_string.h>
#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace clitest {

struct ClassRasterContent {
    int width = 0;
    int height = 0;
    std::vector<GByte> pixels;                 // row by row
    std::vector<GDALColorEntry> colours;       // entry i is class i's colour
    std::vector<std::string> names;            // entry i is class i's name
};

inline void WriteClassRaster(const std::string& path, const ClassRasterContent& content, const char* driverName = "ENVI") {
    GDALAllRegister();
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName(driverName);
    ASSERT_NE(driver, nullptr);
    GDALDatasetUniquePtr ds(driver->Create(path.c_str(), content.width, content.height, 1, GDT_Byte, nullptr));
    ASSERT_NE(ds, nullptr) << path;
    GDALRasterBand* band = ds->GetRasterBand(1);
    std::vector<GByte> pixels = content.pixels;
    ASSERT_EQ(pixels.size(), static_cast<size_t>(content.width) * content.height);
    ASSERT_EQ(band->RasterIO(GF_Write, 0, 0, content.width, content.height, pixels.data(), content.width, content.height,
                             GDT_Byte, 0, 0, nullptr),
              CE_None);
    if (!content.colours.empty()) {
        GDALColorTable table;
        for (size_t i = 0; i < content.colours.size(); ++i) table.SetColorEntry(static_cast<int>(i), &content.colours[i]);
        band->SetColorTable(&table);
    }
    if (!content.names.empty()) {
        CPLStringList names;
        for (const std::string& n : content.names) names.AddString(n.c_str());
        band->SetCategoryNames(names.List());
    }
}

} // namespace clitest
