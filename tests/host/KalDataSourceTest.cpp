// The data-source layer on real GDAL files: what the run driver depends on
// when it opens, creates and georeferences rasters and copies side files.
#include "KalDataSource.h"
#include "support/TestSupport.h"

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <tuple>

using namespace KalDataSource;
using testsupport::ReadText;

namespace {

void WriteText(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

class DataSourceTest : public ::testing::Test {
protected:
    _ptr_t<RasterDataset> Create(const std::string& name, int width, int height, int bands = 1,
                                 const char* driver = "GTiff", PixelDataType type = PDT_Byte) {
        return factory.CreateRasterDataset(dir.QFile(name), width, height, bands, type, driver);
    }
    _ptr_t<RasterDataset> Reopen(const std::string& name) {
        return factory.OpenRasterDataset(dir.QFile(name), OpenReadOnly);
    }
    DatasetFactory& factory = *DatasetFactory::Instance();
    testsupport::TempDir dir;
};

TEST_F(DataSourceTest, CreatedGTiffAndEnviReopenWithTheirShapeAndType) {
    Create("a.tif", 5, 4, 3, "GTiff", PDT_UInt16).reset();
    Create("b.dat", 6, 2, 1, "ENVI", PDT_Float32).reset();
    _ptr_t<RasterDataset> tif = Reopen("a.tif"), envi = Reopen("b.dat");
    ASSERT_TRUE(tif && envi);
    EXPECT_EQ(std::make_tuple(tif->GetRasterXSize(), tif->GetRasterYSize(), tif->GetBandCount(),
                              tif->GetRasterBand(2)->GetRasterDataType()),
              std::make_tuple(5, 4, 3, PDT_UInt16));
    EXPECT_FALSE(tif->GetRasterBand(3));  // positions are 0-based
    EXPECT_STREQ(envi->GetGDALDataset()->GetDriverName(), "ENVI");
    EXPECT_EQ(std::make_tuple(envi->GetRasterXSize(), envi->GetRasterYSize(),
                              envi->GetRasterBand(0)->GetRasterDataType()),
              std::make_tuple(6, 2, PDT_Float32));
}

TEST_F(DataSourceTest, NonRasterPathsGiveNullWithoutThrowing) {
    WriteText(dir.File("notes.txt"), "not a raster\n");
    // A TIFF signature makes the GTiff driver claim the file and then fail.
    WriteText(dir.File("broken.tif"), std::string("II*\0\x08\0\0\0\xff\xff", 10));
    for (const char* name : {"notes.txt", "broken.tif", "missing.tif"})
        EXPECT_NO_THROW(EXPECT_FALSE(factory.OpenDataset(dir.QFile(name), OpenReadOnly))) << name;
}

// The run driver copies the input's envelope bound by bound onto a target of
// the same size (the class raster) and of half size (the working copy).
TEST_F(DataSourceTest, EnvelopeCopyKeepsSameSizeBitsAndDoublesHalfSizePixels) {
    // extent / size does not give this pixel size back exactly, so a needless
    // re-derivation on the same-size copy would show.
    const std::array<double, 6> gt = {358485.123456789, 0.1, 0.0, 4102345.987654321, 0.0, -0.1};
    ASSERT_NE(((gt[0] + gt[1] * 8) - gt[0]) / 8, gt[1]);
    _ptr_t<RasterDataset> source = Create("in.tif", 8, 4);
    source->SetGeoTransform(gt.data());
    for (const int divisor : {1, 2}) {
        const std::string name = "out" + std::to_string(divisor) + ".tif";
        {
            _ptr_t<RasterDataset> target = Create(name, 8 / divisor, 4 / divisor);
            target->SetGeoTransform(gt.data());
            _ptr_t<KalGeometry::Envelope> from = source->GetEnvelope(), to = target->GetEnvelope();
            to->SetXMin(from->GetXMin());
            to->SetYMin(from->GetYMin());
            to->SetXMax(from->GetXMax());
            to->SetYMax(from->GetYMax());
        }
        const std::array<double, 6> back = Reopen(name)->GeoTransform();
        if (divisor == 1) {
            EXPECT_EQ(std::memcmp(back.data(), gt.data(), sizeof gt), 0);
        }
        for (int i = 0; i < 6; ++i) EXPECT_NEAR(back[i], gt[i] * (i == 1 || i == 5 ? divisor : 1), 1e-6) << i;
    }
}

TEST_F(DataSourceTest, RpcSideFileIsCopiedUnderTheResultsNameTextFileFirst) {
    // A dot in the folder must not be taken for the start of an extension.
    const std::string folder = dir.File("v1.2") + "/";
    ASSERT_TRUE(std::filesystem::create_directory(folder));
    const auto copy = [&](const char* from, const char* to) {
        return DatasetFactory::CopyRPCFile(QString::fromStdString(folder + from),
                                           QString::fromStdString(folder + to));
    };
    EXPECT_FALSE(copy("scene.tif", "result.dat"));
    WriteText(folder + "scene.rpb", "rpb\n");
    EXPECT_TRUE(copy("scene.tif", "result.dat"));
    EXPECT_EQ(ReadText(folder + "result.rpb"), "rpb\n");
    WriteText(folder + "scene_rpc.txt", "txt\n");
    EXPECT_TRUE(copy("scene.tif", "other.dat"));
    EXPECT_EQ(ReadText(folder + "other_rpc.txt"), "txt\n");
}

} // namespace
