// The command with the real plug-in on the rasters GDAL users have, made
// with GDAL's own tools: subdatasets of NetCDF, HDF4 and GeoTIFF files, a VRT
// with relative sources, open options, an input placed by ground control
// points, netCDF and GeoPackage outputs, outputs that would not hold the
// classes exactly, and a scene too large for its disk. Each case checks the
// exit status and message, that the classes are those of the same pixels
// read from a plain GeoTIFF, and that nothing else of the folder changed.
// Prepare's refusals of inputs (containers, FIFOs, open options) and of lossy
// creation options are PrepareTest's and OutputFormatsTest's.
#include "Subprocess.h"
#include "support/TestSupport.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace {

using Args = std::vector<std::string>;
namespace fs = std::filesystem;

using clitest::Isodata;

struct InputCase {
    const char* name;
    const char* driver;  // a GDAL driver the case needs; "" for none
    const char* make;    // a shell script that makes the input beside scene.tif
    Args args;           // the command line, ending in the output out.img (or out.tif)
    int exitCode;
    std::string says;               // the refusal's message
    const char* sameAs = nullptr;   // the options and input of a plain run giving the same classes
    std::function<void(const testsupport::TempDir&, const clitest::ProcessResult&)> check = {};
};
void PrintTo(const InputCase& c, std::ostream* os) { *os << c.name; }

class InputsAndOutputsEndToEndTest : public ::testing::TestWithParam<InputCase> {};

// Ground control points and their reference, and an ENVI header naming the output.
void PlacedByGcps(const std::string& raster, const char* header) {
    GDALDatasetUniquePtr ds(GDALDataset::Open(raster.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    ASSERT_TRUE(ds);
    double transform[6];
    EXPECT_NE(ds->GetGeoTransform(transform), CE_None);
    ASSERT_EQ(ds->GetGCPCount(), 3);
    EXPECT_EQ(ds->GetGCPs()[1].dfGCPPixel, 349.0);
    EXPECT_EQ(ds->GetGCPs()[1].dfGCPX, 11.0);
    ASSERT_TRUE(ds->GetGCPSpatialRef());
    EXPECT_STREQ(ds->GetGCPSpatialRef()->GetAuthorityCode(nullptr), "4326");
    if (*header) {
        EXPECT_NE(testsupport::ReadText(raster.substr(0, raster.size() - 3) + "hdr").find("description = {\nout.img}"),
                  std::string::npos);
    }
}

TEST_P(InputsAndOutputsEndToEndTest, ClassifiesWhatGdalReadsOrRefusesAndChangesNothingElse) {
    const InputCase& c = GetParam();
    testsupport::RegisterGdal();
    if (!testsupport::FileExists(ISODATA_SAMPLE_SCENE)) GTEST_SKIP() << "the sample scene is not in data/";
    if (*c.driver && !GetGDALDriverManager()->GetDriverByName(c.driver))
        GTEST_SKIP() << "this GDAL has no " << c.driver << " driver";
    testsupport::TempDir dir;
    fs::copy_file(ISODATA_SAMPLE_SCENE, dir.File("scene.tif"));
    // The scene has overviews; flat.tif is the same pixels without them.
    const std::string make = std::string("set -e; gdal_translate -q scene.tif flat.tif; ") + c.make;
    ASSERT_EQ(clitest::RunProcess({"/bin/sh", "-c", make}, {}, dir.Path()).exitCode, 0);
    const Args before = dir.List();
    const clitest::ProcessResult r = Isodata(dir.Path(), c.args);
    ASSERT_EQ(r.exitCode, c.exitCode) << r.err;
    if (c.check) c.check(dir, r);
    if (c.exitCode != 0) {
        EXPECT_NE(r.err.find("isodata: " + c.says), std::string::npos) << r.err;
        EXPECT_EQ(dir.List(), before);
        return;
    }
    Args after = dir.List(), made;
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(), std::back_inserter(made));
    for (const std::string& name : made) EXPECT_EQ(name.rfind("out.", 0), 0u) << name;
    if (!c.sameAs) return;
    testsupport::TempDir reference;
    Args args = {"-q"};
    std::istringstream words(c.sameAs);
    for (std::string word; words >> word;) args.push_back(word);
    args.push_back(reference.File("ref.img"));
    ASSERT_EQ(Isodata(dir.Path(), args).exitCode, 0);
    EXPECT_EQ(testsupport::ReadBand(dir.File(c.args.back())), testsupport::ReadBand(reference.File("ref.img")));
}

const char* const kTwoVariables = "gdal_translate -q -of netCDF -co FORMAT=NC4 -b 1 -b 2 scene.tif two.nc";
// Band 1 of data/scene.tif named from the current folder, band 2 from the VRT's.
const char* const kRelativeVrt =
    "mkdir v data; cp scene.tif data; gdalbuildvrt -q -separate v/s.vrt data/scene.tif data/scene.tif 2>/dev/null; "
    "sed -i -e '0,/<SourceBand>1/! s/<SourceBand>1</<SourceBand>2</' "
    "-e '0,/data.scene.tif/! s/\"0\">data/\"1\">..\\/data/' v/s.vrt";
const char* const kGcps = "gdal_translate -q -of VRT -a_srs EPSG:4326 -gcp 0 0 10 50 -gcp 349 0 11 50 "
                          "-gcp 0 352 10 49 scene.tif g.vrt; gdal_translate -q g.vrt g.tif; rm g.vrt";
// A billion pixels a side, of nothing: a VRT band without sources.
const char* const kHuge = "echo '<VRTDataset rasterXSize=\"1000000000\" rasterYSize=\"1000000000\">"
                          "<VRTRasterBand dataType=\"Byte\" band=\"1\"/></VRTDataset>' > huge.vrt";

INSTANTIATE_TEST_SUITE_P(
    Cases, InputsAndOutputsEndToEndTest,
    ::testing::Values(
        InputCase{"NetCdfVariable", "netCDF", kTwoVariables, {"-json", "NETCDF:\"two.nc\":Band2", "out.img"}, 0, "", "-b 2 flat.tif",
                  [](const testsupport::TempDir&, const clitest::ProcessResult& r) {
                      const QJsonObject space = QJsonDocument::fromJson(QByteArray::fromStdString(r.out))["space"].toObject();
                      EXPECT_GT(space["needed"].toDouble(), 349 * 352);
                      EXPECT_GT(space["free"].toDouble(), space["needed"].toDouble());
                      EXPECT_EQ(space["folder"].toString(), ".");
                  }},
        InputCase{"Hdf4Dataset", "HDF4Image", "gdal_translate -q -of HDF4Image scene.tif s.hdf",
                  {"HDF4_SDS:UNKNOWN:\"s.hdf\":0", "out.img"}, 0, "", "flat.tif"},
        InputCase{"GeoTiffPage", "", "true", {"GTIFF_DIR:1:scene.tif", "out.img"}, 0, "", "flat.tif"},
        InputCase{"VrtWithRelativeSources", "", kRelativeVrt, {"v/s.vrt", "out.img"}, 0, "", "-b 1 -b 2 scene.tif"},
        InputCase{"OverviewsOpenedWithoutThem", "", "true", {"-oo", "OVERVIEW_LEVEL=NONE", "scene.tif", "out.img"}, 0,
                  "", "flat.tif"},
        InputCase{"GcpsIntoEnvi", "", kGcps, {"g.tif", "out.img"}, 0, "", nullptr,
                  [](const testsupport::TempDir& d, const clitest::ProcessResult&) { PlacedByGcps(d.File("out.img"), "hdr"); }},
        InputCase{"GcpsIntoGeoTiff", "", kGcps, {"-of", "GTiff", "g.tif", "out.tif"}, 0, "", nullptr,
                  [](const testsupport::TempDir& d, const clitest::ProcessResult&) { PlacedByGcps(d.File("out.tif"), ""); }},
        InputCase{"Jpeg", "JPEG", "true", {"-of", "JPEG", "scene.tif", "out.jpg"}, 1,
                  "-of JPEG cannot hold the class raster exactly (JPEG compression changes pixel values); use "
                  "GTiff, COG or ENVI"},
        InputCase{"NetCdfOutput", "netCDF", "true", {"-of", "netCDF", "scene.tif", "out.nc"}, 0, "", "scene.tif"},
        InputCase{"GeoPackageOutput", "GPKG", "true", {"-of", "GPKG", "scene.tif", "out.gpkg"}, 0, "", "scene.tif"},
        InputCase{"Vrt", "", "true", {"-of", "VRT", "scene.tif", "out.vrt"}, 1,
                  "-of VRT cannot hold the class raster exactly (a VRT refers to other files instead of holding "
                  "the classes); use GTiff, COG or ENVI"},
        InputCase{"TooLargeForAnyDisk", "", kHuge, {"--debug", "-mem", "0", "huge.vrt", "out.img"}, 1,
                  "the run needs 1.8 EB in '.', ", nullptr,
                  [](const testsupport::TempDir&, const clitest::ProcessResult& r) {
                      EXPECT_NE(r.err.find("isodata: space: 1812500000002162688 bytes needed in '.' (working copy "
                                           "250000000000000000, mask 62500000000000000, scratch 250000000002097152, "
                                           "band-read scratch 250000000000000000, result 1000000000000065536, "
                                           "conversion 0, preview 0, model 0)"),
                                std::string::npos) << r.err;
                  }}),
    [](const auto& info) { return std::string(info.param.name); });

} // namespace
