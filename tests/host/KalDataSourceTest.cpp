// The data-source layer on real GDAL files: opening, creating, geotransform,
// bound envelope, coordinate system, RPC side files, and the category names
// and colour table of a class raster.
#include "KalDataSource.h"
#include "support/TestSupport.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>

using namespace KalDataSource;
using testsupport::FileExists;
using testsupport::ReadText;
using testsupport::RasterTable;
using testsupport::TempDir;

namespace {

void WriteText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

bool SameBits(const std::array<double, 6>& a, const std::array<double, 6>& b) {
    return std::memcmp(a.data(), b.data(), sizeof(double) * 6) == 0;
}

class DataSourceTest : public ::testing::Test {
protected:
    DatasetFactory& factory = *DatasetFactory::Instance();
    TempDir dir;

    // A small GeoTIFF written straight through GDAL.
    std::string WriteTiff(const std::string& name, int width, int height, int bands, GDALDataType type) {
        RasterTable raster;
        raster.width = width;
        raster.height = height;
        raster.type = type;
        raster.bands.assign(bands, std::vector<double>(static_cast<size_t>(width) * height, 1.0));
        const std::string path = dir.File(name);
        testsupport::WriteRaster(path, raster);
        return path;
    }

    _ptr_t<RasterDataset> Create(const std::string& name, int width, int height, int bands = 1,
                                 const char* driver = "GTiff", PixelDataType type = PDT_Byte) {
        return factory.CreateRasterDataset(dir.QFile(name), width, height, bands, type, driver);
    }
};

// ---- opening ----

class OpenTest : public DataSourceTest {};

TEST_F(OpenTest, GTiffOpensAsRasterDatasetWithItsShape) {
    const std::string path = WriteTiff("in.tif", 3, 2, 2, GDT_Int16);
    _ptr_t<Dataset> ds = factory.OpenDataset(QString::fromStdString(path), OpenReadOnly);
    ASSERT_TRUE(ds);
    _ptr_t<RasterDataset> raster = KalUtility::dynamic_ptr_cast<RasterDataset>(ds);
    ASSERT_TRUE(raster);
    EXPECT_EQ(raster->GetRasterXSize(), 3);
    EXPECT_EQ(raster->GetRasterYSize(), 2);
    EXPECT_EQ(raster->GetBandCount(), 2);
    EXPECT_EQ(raster->GetRasterBand(1)->GetRasterDataType(), PDT_Int16);
    EXPECT_EQ(raster->GetName(), QString::fromStdString(path));
}

TEST_F(OpenTest, BandPositionsOutsideTheDatasetGiveNull) {
    const QString path = QString::fromStdString(WriteTiff("in.tif", 2, 2, 2, GDT_Byte));
    _ptr_t<RasterDataset> ds = factory.OpenRasterDataset(path, OpenReadOnly);
    ASSERT_TRUE(ds);
    EXPECT_TRUE(ds->GetRasterBand(0));
    EXPECT_FALSE(ds->GetRasterBand(2));
    EXPECT_FALSE(ds->GetRasterBand(-1));
}

TEST_F(OpenTest, ModeSelectsReadOnlyOrUpdateAccess) {
    const QString path = QString::fromStdString(WriteTiff("in.tif", 2, 2, 1, GDT_Byte));
    EXPECT_EQ(factory.OpenRasterDataset(path, OpenReadOnly)->GetGDALDataset()->GetAccess(), GA_ReadOnly);
    EXPECT_EQ(factory.OpenRasterDataset(path, OpenUpdate)->GetGDALDataset()->GetAccess(), GA_Update);
    EXPECT_FALSE(factory.OpenRasterDataset(path, 2));
}

TEST_F(OpenTest, ChangesMadeInUpdateModeReachTheFile) {
    const QString path = QString::fromStdString(WriteTiff("in.tif", 2, 2, 1, GDT_Byte));
    const double gt[6] = {10.0, 2.0, 0.0, 20.0, 0.0, -2.0};
    {
        _ptr_t<RasterDataset> ds = factory.OpenRasterDataset(path, OpenUpdate);
        ASSERT_TRUE(ds->SetGeoTransform(gt));
    }
    EXPECT_EQ(factory.OpenRasterDataset(path, OpenReadOnly)->GeoTransform(),
              (std::array<double, 6>{10.0, 2.0, 0.0, 20.0, 0.0, -2.0}));
    EXPECT_FALSE(FileExists(path.toStdString() + ".aux.xml"));
}

TEST_F(OpenTest, NonRasterPathsGiveNullSilently) {
    WriteText(dir.File("notes.txt"), "not a raster\n");
    // A TIFF signature makes the GTiff driver claim the file and then fail.
    WriteText(dir.File("broken.tif"), std::string("II*\0\x08\0\0\0\xff\xff", 10));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(factory.OpenDataset(dir.QFile("broken.tif"), OpenReadOnly));
    EXPECT_FALSE(factory.OpenDataset(dir.QFile("notes.txt"), OpenReadOnly));
    EXPECT_FALSE(factory.OpenDataset(dir.QFile("missing.tif"), OpenReadOnly));
    EXPECT_FALSE(factory.OpenRasterDataset(dir.QFile("missing.tif"), OpenUpdate));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// Each discovered test runs in its own process, so here nothing has
// registered GDAL's drivers before the factory is used.
TEST(UnregisteredFactoryTest, CreateAndOpenWorkWithoutRegisterPlugin) {
    TempDir dir;
    DatasetFactory& factory = *DatasetFactory::Instance();
    EXPECT_TRUE(factory.CreateRasterDataset(dir.QFile("a.tif"), 2, 2, 1, PDT_Byte, "GTiff"));
    EXPECT_TRUE(factory.OpenDataset(dir.QFile("a.tif"), OpenReadOnly));
}

// ---- creating ----

class CreateTest : public DataSourceTest {};

TEST_F(CreateTest, GTiffAndEnviFilesHaveTheRequestedShape) {
    Create("a.tif", 5, 4, 3, "GTiff", PDT_UInt16).reset();
    Create("b.dat", 6, 2, 1, "ENVI", PDT_Float32).reset();
    EXPECT_TRUE(FileExists(dir.File("b.hdr")));

    _ptr_t<RasterDataset> tif = factory.OpenRasterDataset(dir.QFile("a.tif"), OpenReadOnly);
    ASSERT_TRUE(tif);
    EXPECT_EQ(tif->GetRasterXSize(), 5);
    EXPECT_EQ(tif->GetRasterYSize(), 4);
    EXPECT_EQ(tif->GetBandCount(), 3);
    EXPECT_EQ(tif->GetRasterBand(2)->GetRasterDataType(), PDT_UInt16);

    _ptr_t<RasterDataset> envi = factory.OpenRasterDataset(dir.QFile("b.dat"), OpenReadOnly);
    ASSERT_TRUE(envi);
    EXPECT_STREQ(envi->GetGDALDataset()->GetDriverName(), "ENVI");
    EXPECT_EQ(envi->GetRasterXSize(), 6);
    EXPECT_EQ(envi->GetRasterYSize(), 2);
    EXPECT_EQ(envi->GetRasterBand(0)->GetRasterDataType(), PDT_Float32);
}

TEST_F(CreateTest, CreationOptionsReachTheDriver) {
    factory.CreateRasterDataset(dir.QFile("a.tif"), 4, 4, 1, PDT_Byte, "GTiff", {"COMPRESS=LZW"}).reset();
    _ptr_t<RasterDataset> ds = factory.OpenRasterDataset(dir.QFile("a.tif"), OpenReadOnly);
    ASSERT_TRUE(ds);
    EXPECT_STREQ(ds->GetGDALDataset()->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE"), "LZW");
}

TEST_F(CreateTest, UnknownDriverOrUnwritablePathGivesNull) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Create("a.tif", 2, 2, 1, "NoSuchDriver"));
    EXPECT_FALSE(Create("missing-folder/a.tif", 2, 2));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(dir.List().empty());
}

TEST_F(CreateTest, ReleasingTheLastReferenceFlushesThePixels) {
    _ptr_t<RasterDataset> ds = Create("a.dat", 2, 1, 1, "ENVI");
    ASSERT_TRUE(ds);
    GByte values[2] = {7, 9};
    ASSERT_EQ(ds->GetGDALDataset()->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, 2, 1, values, 2, 1, GDT_Byte, 0, 0,
                                                              nullptr),
              CE_None);
    ds.reset();
    EXPECT_EQ(testsupport::ReadBand(dir.File("a.dat")), (std::vector<double>{7.0, 9.0}));
}

TEST_F(CreateTest, BandKeepsItsDatasetOpen) {
    _ptr_t<RasterBand> band = Create("a.tif", 2, 2, 1, "GTiff", PDT_Int32)->GetRasterBand(0);
    ASSERT_TRUE(band);
    EXPECT_EQ(band->GetRasterDataType(), PDT_Int32);
    EXPECT_TRUE(band->SetCategoryNames({"x"}));
}

// ---- geotransform and envelope ----

class GeoTransformTest : public DataSourceTest {};

TEST_F(GeoTransformTest, UnsetGivesFalseAndTheIdentity) {
    _ptr_t<RasterDataset> ds = Create("a.tif", 2, 2);
    double gt[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_FALSE(ds->GetGeoTransform(gt));
    EXPECT_EQ(ds->GeoTransform(), (std::array<double, 6>{0.0, 1.0, 0.0, 0.0, 0.0, 1.0}));
}

TEST_F(GeoTransformTest, SetValuesSurviveClosingAndReopening) {
    const double gt[6] = {358485.123, 0.5, 0.0, 4102345.25, 0.0, -0.5};
    {
        _ptr_t<RasterDataset> ds = Create("a.dat", 3, 3, 1, "ENVI");
        ASSERT_TRUE(ds->SetGeoTransform(gt));
    }
    double back[6];
    ASSERT_TRUE(factory.OpenRasterDataset(dir.QFile("a.dat"), OpenReadOnly)->GetGeoTransform(back));
    for (int i = 0; i < 6; ++i) EXPECT_DOUBLE_EQ(back[i], gt[i]) << i;
}

class EnvelopeTest : public DataSourceTest {
protected:
    _ptr_t<RasterDataset> WithGeoTransform(const std::string& name, int w, int h, std::array<double, 6> gt) {
        _ptr_t<RasterDataset> ds = Create(name, w, h);
        ds->SetGeoTransform(gt.data());
        return ds;
    }

    static void CopyBounds(KalGeometry::Envelope& to, const KalGeometry::Envelope& from) {
        to.SetXMin(from.GetXMin());
        to.SetYMin(from.GetYMin());
        to.SetXMax(from.GetXMax());
        to.SetYMax(from.GetYMax());
    }
};

TEST_F(EnvelopeTest, NorthUpExtentSpansFromTheOrigin) {
    _ptr_t<KalGeometry::Envelope> env =
        WithGeoTransform("a.tif", 4, 3, {500000.0, 30.0, 0.0, 4200000.0, 0.0, -30.0})->GetEnvelope();
    EXPECT_EQ(env->GetXMin(), 500000.0);
    EXPECT_EQ(env->GetXMax(), 500120.0);
    EXPECT_EQ(env->GetYMin(), 4199910.0);
    EXPECT_EQ(env->GetYMax(), 4200000.0);
}

TEST_F(EnvelopeTest, SouthUpExtentKeepsItsOrientationWhenSet) {
    _ptr_t<RasterDataset> ds = WithGeoTransform("a.tif", 4, 2, {100.0, 1.0, 0.0, 50.0, 0.0, 2.0});
    _ptr_t<KalGeometry::Envelope> env = ds->GetEnvelope();
    EXPECT_EQ(env->GetYMin(), 50.0);
    EXPECT_EQ(env->GetYMax(), 54.0);
    env->SetYMax(58.0);
    EXPECT_EQ(ds->GeoTransform(), (std::array<double, 6>{100.0, 1.0, 0.0, 50.0, 0.0, 4.0}));
}

TEST_F(EnvelopeTest, SameSizeCopyKeepsTheGeoTransformBitForBit) {
    // Pixel size and origin chosen so that extent / size does not give the
    // pixel size back exactly; re-deriving would be visible.
    const std::array<double, 6> gt = {358485.123456789, 0.1, 0.0, 4102345.987654321, 0.0, -0.1};
    ASSERT_NE(((gt[0] + gt[1] * 7) - gt[0]) / 7, gt[1]);
    _ptr_t<RasterDataset> source = WithGeoTransform("in.tif", 7, 3, gt);
    _ptr_t<RasterDataset> target = WithGeoTransform("out.tif", 7, 3, gt);

    CopyBounds(*target->GetEnvelope(), *source->GetEnvelope());
    EXPECT_TRUE(SameBits(target->GeoTransform(), gt));
}

TEST_F(EnvelopeTest, HalfSizeTargetGetsDoublePixelSizeOnDisk) {
    const std::array<double, 6> gt = {500000.0, 30.0, 0.0, 4200000.0, 0.0, -30.0};
    _ptr_t<RasterDataset> source = WithGeoTransform("in.tif", 4, 4, gt);
    _ptr_t<RasterDataset> target = WithGeoTransform("out.tif", 2, 2, gt);
    _ptr_t<KalGeometry::Envelope> env = target->GetEnvelope();
    CopyBounds(*env, *source->GetEnvelope());
    EXPECT_EQ(env->GetXMax(), 500120.0);
    target.reset();
    env.reset();  // the envelope holds the dataset open too

    EXPECT_EQ(factory.OpenRasterDataset(dir.QFile("out.tif"), OpenReadOnly)->GeoTransform(),
              (std::array<double, 6>{500000.0, 60.0, 0.0, 4200000.0, 0.0, -60.0}));
}

TEST_F(EnvelopeTest, UngeoreferencedTargetBecomesNorthUp) {
    _ptr_t<RasterDataset> source = WithGeoTransform("in.tif", 4, 4, {0.0, 10.0, 0.0, 100.0, 0.0, -10.0});
    _ptr_t<RasterDataset> target = Create("out.tif", 4, 4);
    CopyBounds(*target->GetEnvelope(), *source->GetEnvelope());
    EXPECT_EQ(target->GeoTransform(), (std::array<double, 6>{0.0, 10.0, 0.0, 100.0, 0.0, -10.0}));
}

// ---- coordinate system ----

class SpatialReferenceTest : public DataSourceTest {};

TEST_F(SpatialReferenceTest, NoneGivesNull) {
    EXPECT_FALSE(Create("a.tif", 2, 2)->GetSpatialReference());
}

TEST_F(SpatialReferenceTest, WktSurvivesClosingAndReopening) {
    OGRSpatialReference utm;
    utm.importFromEPSG(32633);
    char* wkt = nullptr;
    utm.exportToWkt(&wkt);
    const QString text = QString::fromUtf8(wkt);
    CPLFree(wkt);

    ASSERT_TRUE(Create("a.tif", 2, 2)->SetSpatialReference(_ptr_t<SpatialReference>(new SpatialReference(text))));
    _ptr_t<SpatialReference> back =
        factory.OpenRasterDataset(dir.QFile("a.tif"), OpenReadOnly)->GetSpatialReference();
    ASSERT_TRUE(back);
    OGRSpatialReference read;
    ASSERT_EQ(read.importFromWkt(back->GetWkt().toUtf8().constData()), OGRERR_NONE);
    EXPECT_TRUE(read.IsSame(&utm));
}

// ---- RPC side files ----

class RpcCopyTest : public DataSourceTest {};

TEST_F(RpcCopyTest, TextSideFileIsCopiedUnderTheTargetNameInPreferenceToRpb) {
    WriteText(dir.File("scene_rpc.txt"), "LINE_OFF: 1\n");
    WriteText(dir.File("scene.rpb"), "rpb\n");
    EXPECT_TRUE(DatasetFactory::CopyRPCFile(dir.QFile("scene.tif"), dir.QFile("result.dat")));
    EXPECT_EQ(ReadText(dir.File("result_rpc.txt")), "LINE_OFF: 1\n");
    EXPECT_FALSE(FileExists(dir.File("result.rpb")));
}

TEST_F(RpcCopyTest, RpbIsCopiedWhenThereIsNoTextFile) {
    WriteText(dir.File("scene.rpb"), "satId = \"X\";\n");
    EXPECT_TRUE(DatasetFactory::CopyRPCFile(dir.QFile("scene.tif"), dir.QFile("result.dat")));
    EXPECT_EQ(ReadText(dir.File("result.rpb")), "satId = \"X\";\n");
    EXPECT_FALSE(FileExists(dir.File("result_rpc.txt")));
}

TEST_F(RpcCopyTest, NoSideFileGivesFalseAndWritesNothing) {
    EXPECT_FALSE(DatasetFactory::CopyRPCFile(dir.QFile("scene.tif"), dir.QFile("result.dat")));
    EXPECT_TRUE(dir.List().empty());
}

TEST_F(RpcCopyTest, ExistingTargetSideFileIsReplaced) {
    WriteText(dir.File("scene_rpc.txt"), "new\n");
    WriteText(dir.File("result_rpc.txt"), "old and longer\n");
    EXPECT_TRUE(DatasetFactory::CopyRPCFile(dir.QFile("scene.tif"), dir.QFile("result.dat")));
    EXPECT_EQ(ReadText(dir.File("result_rpc.txt")), "new\n");
}

TEST_F(RpcCopyTest, BaseNameIgnoresDotsInFolderNames) {
    const std::string folder = dir.File("v1.2");
    ASSERT_TRUE(std::filesystem::create_directory(folder));
    WriteText(folder + "/scene_rpc.txt", "rpc\n");
    EXPECT_TRUE(DatasetFactory::CopyRPCFile(QString::fromStdString(folder + "/scene"),
                                            QString::fromStdString(folder + "/result")));
    EXPECT_EQ(ReadText(folder + "/result_rpc.txt"), "rpc\n");
}

TEST_F(RpcCopyTest, CopyOntoItselfKeepsTheSideFile) {
    WriteText(dir.File("scene_rpc.txt"), "rpc\n");
    DatasetFactory::CopyRPCFile(dir.QFile("scene.tif"), dir.QFile("scene.dat"));
    EXPECT_EQ(ReadText(dir.File("scene_rpc.txt")), "rpc\n");
}

TEST_F(RpcCopyTest, DatasetOverloadUsesTheDatasetPaths) {
    const std::string in = WriteTiff("scene.tif", 2, 2, 1, GDT_Byte);
    WriteText(dir.File("scene.rpb"), "rpb\n");
    _ptr_t<RasterDataset> from = factory.OpenRasterDataset(QString::fromStdString(in), OpenReadOnly);
    _ptr_t<RasterDataset> to = Create("result.dat", 2, 2, 1, "ENVI");
    EXPECT_TRUE(DatasetFactory::CopyRPCFile(from, to));
    EXPECT_EQ(ReadText(dir.File("result.rpb")), "rpb\n");
    EXPECT_FALSE(DatasetFactory::CopyRPCFile(from, nullptr));
}

// ---- category names and colour table of a class raster ----

class ClassRasterTest : public DataSourceTest {
protected:
    // Writes an ENVI Byte class raster with two named, coloured classes.
    void WriteClassRaster() {
        _ptr_t<RasterDataset> ds = Create("classes.dat", 2, 2, 1, "ENVI");
        ASSERT_TRUE(ds);
        _ptr_t<RasterBand> band = ds->GetRasterBand(0);
        ASSERT_TRUE(band->SetCategoryNames({"Unclassified", "class1"}));
        _ptr_t<ColorTable> table(new ColorTable);
        table->AddColorEntry(_ptr_t<ColorEntry>(new ColorEntry(0, 0, 0)));
        table->AddColorEntry(_ptr_t<ColorEntry>(new ColorEntry(255, 128, 7)));
        ASSERT_TRUE(band->SetColorTable(table));
    }
};

TEST_F(ClassRasterTest, HeaderCarriesClassNamesAndLookup) {
    WriteClassRaster();
    const std::string header = ReadText(dir.File("classes.hdr"));
    EXPECT_NE(header.find("file type = ENVI Classification\n"), std::string::npos) << header;
    EXPECT_NE(header.find("\nclasses = 2\n"), std::string::npos) << header;
    // GDAL opens each list on its own line and writes red, green, blue only.
    EXPECT_NE(header.find("\nclass lookup = {\n0, 0, 0, 255, 128, 7}\n"), std::string::npos) << header;
    EXPECT_NE(header.find("\nclass names = {\nUnclassified, class1}\n"), std::string::npos) << header;
}

TEST_F(ClassRasterTest, ReopenedBandGivesNamesAndColoursBack) {
    WriteClassRaster();
    _ptr_t<RasterBand> band = factory.OpenRasterDataset(dir.QFile("classes.dat"), OpenReadOnly)->GetRasterBand(0);
    EXPECT_EQ(band->GetCategoryNames(), (QStringList{"Unclassified", "class1"}));
    _ptr_t<ColorTable> table = band->GetColorTable();
    ASSERT_EQ(table->GetCount(), 2);
    _ptr_t<ColorEntry> second = table->GetColorEntry(1);
    EXPECT_EQ(second->c1, 255);
    EXPECT_EQ(second->c2, 128);
    EXPECT_EQ(second->c3, 7);
    EXPECT_EQ(second->c4, 255);
}

TEST_F(ClassRasterTest, BandWithoutClassesGivesEmptyNamesAndTable) {
    _ptr_t<RasterBand> band = Create("plain.tif", 2, 2)->GetRasterBand(0);
    EXPECT_TRUE(band->GetCategoryNames().isEmpty());
    ASSERT_TRUE(band->GetColorTable());
    EXPECT_EQ(band->GetColorTable()->GetCount(), 0);
}

} // namespace
