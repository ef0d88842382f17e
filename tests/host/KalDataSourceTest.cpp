// The data-source layer on real files: a path GDAL cannot open as a raster,
// a damaged TIFF included, gives a null handle and no exception, which the
// run driver turns into its "input not opened" code.
#include "KalDataSource.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

TEST(DataSourceTest, NonRasterPathsGiveNullWithoutThrowing) {
    testsupport::TempDir dir;
    std::ofstream(dir.File("notes.txt")) << "not a raster\n";
    // A TIFF signature makes the GTiff driver claim the file and then fail.
    std::ofstream(dir.File("broken.tif"), std::ios::binary) << std::string("II*\0\x08\0\0\0\xff\xff", 10);
    auto& factory = *KalDataSource::DatasetFactory::Instance();
    for (const char* name : {"notes.txt", "broken.tif", "missing.tif"})
        EXPECT_NO_THROW(EXPECT_FALSE(factory.OpenDataset(dir.QFile(name), KalDataSource::OpenReadOnly))) << name;
}

} // namespace
