// The names GDAL opens a raster by, as the run folder must rewrite them:
// subdataset names split around their file, names anchored to a folder, a
// VRT copied elsewhere with its sources anchored, and a wrapper VRT, each
// read back from another folder.
#include "InputNames.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;
using namespace isodata_run;

namespace {

// Works in its folder, where x.tif, x.h5 and a file named "A:b.tif" exist,
// and goes back to the folder it came from.
class InputNamesTest : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::WriteRaster(dir.File("x.tif"), {4, 3, GDT_Byte, {band1, band2}});
        for (const char* name : {"x.h5", "A:b.tif"}) std::ofstream(dir.File(name)) << "x";
        fs::current_path(dir.Path());
        here = fs::current_path().string();
    }
    void TearDown() override { fs::current_path(before); }
    // "@" stands for the folder.
    std::string At(const std::string& text) const { return testsupport::AtFolder(text, here); }

    const std::vector<double> band1 = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    const std::vector<double> band2 = {12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1};
    const fs::path before = fs::current_path();
    testsupport::TempDir dir;
    std::string here;
};

TEST_F(InputNamesTest, SplitsSubdatasetNamesAndAnchorsEveryKindOfName) {
    const struct { const char* name; std::vector<std::string> parts; const char* anchored; } cases[] = {
        {"NETCDF:\"x.nc\":sst", {"NETCDF:\"", "x.nc", "\":sst"}, "NETCDF:\"@/x.nc\":sst"},
        {"HDF5:\"x.h5\"://sst", {"HDF5:\"", "x.h5", "\"://sst"}, "HDF5:\"@/x.h5\"://sst"},
        {"HDF5:x.h5://sst", {"HDF5:", "x.h5", "://sst"}, "HDF5:@/x.h5://sst"},
        {"GTIFF_DIR:2:x.tif", {"GTIFF_DIR:2:", "x.tif", ""}, "GTIFF_DIR:2:@/x.tif"},
        {"GTIFF_DIR:2:@/x.tif", {"GTIFF_DIR:2:", "@/x.tif", ""}, "GTIFF_DIR:2:@/x.tif"},
        {"NETCDF:\"/vsizip/a.zip/x.nc\":sst", {"NETCDF:\"", "/vsizip/a.zip/x.nc", "\":sst"},
         "NETCDF:\"/vsizip/@/a.zip/x.nc\":sst"},
        // No subdataset: the file is missing, the name is a file, or no driver prefix.
        {"GTIFF_DIR:2:y.tif", {}, "@/GTIFF_DIR:2:y.tif"},
        {"A:b.tif", {}, "@/A:b.tif"},
        {"NETCDF:\"x.nc", {}, "@/NETCDF:\"x.nc"},
        {"sub/../x.tif", {}, "@/x.tif"},
        {"/data/x.tif", {}, "/data/x.tif"},
        {"/vsizip/a.zip/in/x.tif", {}, "/vsizip/@/a.zip/in/x.tif"},
        {"/vsizip//data/a.zip/x.tif", {}, "/vsizip//data/a.zip/x.tif"},
        {"/vsicurl/https://host/x.tif", {}, "/vsicurl/https://host/x.tif"},
        {"/vsis3/bucket/x.tif", {}, "/vsis3/bucket/x.tif"},
        {"/vsimem/x.tif", {}, "/vsimem/x.tif"},
        {"/vsigzip/x.tif.gz", {}, "/vsigzip/@/x.tif.gz"},
        {"/vsitar/a.tar/x.tif", {}, "/vsitar/@/a.tar/x.tif"},
        {"WMS:http://host/wms?x=1", {}, "WMS:http://host/wms?x=1"},
        {"https://host/x.tif", {}, "https://host/x.tif"},
    };
    for (const auto& c : cases) {
        const std::string name = At(c.name);
        const auto split = SplitSubdatasetName(name);
        std::vector<std::string> parts;
        if (split) parts = {split->before, split->file, split->after};
        for (std::string& part : parts) part = At(part);
        std::vector<std::string> want;
        for (const std::string& part : c.parts) want.push_back(At(part));
        EXPECT_EQ(parts, want) << name;
        if (split) {
            EXPECT_EQ(split->With("f"), want[0] + "f" + want[2]) << name;
        }
        EXPECT_EQ(Anchored(name), At(c.anchored)) << name;
        // From elsewhere, against this folder as the base.
        fs::current_path("/");
        EXPECT_EQ(Anchored(name, here), At(c.anchored)) << name << " against " << here;
        fs::current_path(here);
    }
}

// A VRT of band 2 of x.tif, its source named relative to the VRT or to the
// folder it is read from.
std::string Vrt(const char* relativeToVrt, const char* source) {
    return std::string("<VRTDataset rasterXSize=\"4\" rasterYSize=\"3\">\n"
                       "  <VRTRasterBand dataType=\"Byte\" band=\"1\">\n    <SimpleSource>\n"
                       "      <SourceFilename relativeToVRT=\"") + relativeToVrt + "\">" + source +
           "</SourceFilename>\n      <SourceBand>2</SourceBand>\n    </SimpleSource>\n  </VRTRasterBand>\n"
           "</VRTDataset>\n";
}

TEST_F(InputNamesTest, CopiedVrtsAndWrappersReadTheSamePixelsFromAnotherFolder) {
    fs::create_directories("vrts/deep");
    fs::create_directories("elsewhere");
    std::ofstream("vrts/toVrt.vrt") << Vrt("1", "../x.tif");
    std::ofstream("vrts/toHere.vrt") << Vrt("0", "x.tif");
    std::string error;
    for (const char* name : {"toVrt", "toHere"}) {
        const std::string copy = "vrts/deep/" + std::string(name) + ".vrt";
        ASSERT_TRUE(CopyVrtWithAnchoredSources("vrts/" + std::string(name) + ".vrt", copy, error)) << error;
        const std::string xml = testsupport::ReadText(copy);
        EXPECT_NE(xml.find("<SourceFilename relativeToVRT=\"0\">" + here + "/x.tif</SourceFilename>"), std::string::npos)
            << xml;
        EXPECT_NE(xml.find("<SourceBand>2</SourceBand>"), std::string::npos) << xml;
        fs::current_path("elsewhere");
        EXPECT_EQ(testsupport::ReadBand(here + "/" + copy), band2) << name;
        fs::current_path(here);
    }
    // The run names the wrapped raster absolutely, as Anchored gives it.
    ASSERT_TRUE(WrapInVrt(Anchored("GTIFF_DIR:1:x.tif"), {"NUM_THREADS=1"}, "vrts/deep/wrapped.vrt", error)) << error;
    fs::current_path("elsewhere");
    EXPECT_EQ(testsupport::ReadBand(here + "/vrts/deep/wrapped.vrt", 1), band1);
    EXPECT_EQ(testsupport::ReadBand(here + "/vrts/deep/wrapped.vrt", 2), band2);
    fs::current_path(here);
    // What cannot be read or written is named.
    EXPECT_FALSE(CopyVrtWithAnchoredSources("vrts/none.vrt", "vrts/deep/none.vrt", error));
    EXPECT_EQ(error.rfind("cannot copy the VRT 'vrts/none.vrt' into the run folder: ", 0), 0u) << error;
    EXPECT_FALSE(WrapInVrt("none.tif", {}, "vrts/deep/none.vrt", error));
    EXPECT_EQ(error.rfind("cannot refer to 'none.tif' from the run folder: ", 0), 0u) << error;
}

} // namespace
