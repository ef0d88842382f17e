// The command with the real plug-in on scenes that carry pixels that are not
// data (NaN, a nodata value, 0-fill, an alpha band, a mask raster): those
// pixels are 0 in the result and counted apart; a scene with nothing valid
// is refused. A run's model applied to its scene, or to tiles of it run as
// independent jobs, gives the run's bytes.
#include "Subprocess.h"
#include "support/TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>

namespace {

using Args = std::vector<std::string>;

clitest::ProcessResult Isodata(const std::string& folder, Args args) {
    args.insert(args.begin(), ISODATA_BINARY);
    return clitest::RunProcess(args, {}, folder);
}

QJsonObject Json(const clitest::ProcessResult& r) { return QJsonDocument::fromJson(QByteArray::fromStdString(r.out)).object(); }

constexpr int kW = 150, kH = 120;

double Land(int b, int x, int y) { return 20 + 60 * ((x / 25 + y / 20 + b) % 4) + (x + 2 * y) % 7; }
bool Border(int x, int y) { return y < 15 || x >= 130 || (x > 40 && x < 60 && y > 50 && y < 90); }

// A three-band scene of type, with fill where Border holds, and the bands
// that make it.
testsupport::RasterTable Scene(GDALDataType type, double fill, int bands = 3) {
    testsupport::RasterTable t{kW, kH, type, testsupport::BandValues(bands, std::vector<double>(kW * kH))};
    for (int b = 0; b < bands; ++b)
        for (int i = 0; i < kW * kH; ++i)
            t.bands[b][i] = Border(i % kW, i / kW) ? fill : Land(b, i % kW, i / kW);
    return t;
}

class MasksAndModelsEndToEndTest : public ::testing::Test {
protected:
    testsupport::TempDir dir;
};

struct MaskedCase {
    const char* name;
    std::function<void(const std::string& folder)> write;  // writes scene.tif (and mask.tif)
    Args options;
    const char* by;  // the rule the summary names
};

TEST_F(MasksAndModelsEndToEndTest, PixelsThatAreNotDataAreZeroCountedApartAndNeverAClass) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const MaskedCase cases[] = {
        {"NaN border, declared", [&](const std::string& d) {
             auto t = Scene(GDT_Float32, nan);
             t.nodata = {nan};
             testsupport::WriteRaster(d + "/scene.tif", t);
         }, {}, "nodata"},
        {"-9999 declared", [](const std::string& d) {
             auto t = Scene(GDT_Int16, -9999);
             t.nodata = {-9999};
             testsupport::WriteRaster(d + "/scene.tif", t);
         }, {}, "nodata"},
        {"0-fill named with -srcnodata", [](const std::string& d) {
             testsupport::WriteRaster(d + "/scene.tif", Scene(GDT_Byte, 0));
         }, {"-srcnodata", "0"}, "nodata"},
        {"transparent alpha", [](const std::string& d) {
             auto t = Scene(GDT_Byte, 99, 4);
             for (int i = 0; i < kW * kH; ++i) t.bands[3][i] = Border(i % kW, i / kW) ? 0 : 255;
             t.alphaBand = 4;
             testsupport::WriteRaster(d + "/scene.tif", t);
         }, {"-b", "1", "-b", "2", "-b", "3"}, "alpha band"},
        {"mask raster", [](const std::string& d) {
             testsupport::WriteRaster(d + "/scene.tif", Scene(GDT_UInt16, 4000));
             testsupport::RasterTable m{kW, kH, GDT_Byte, {std::vector<double>(kW * kH)}};
             for (int i = 0; i < kW * kH; ++i) m.bands[0][i] = Border(i % kW, i / kW) ? 0 : 7;
             testsupport::WriteRaster(d + "/mask.tif", m);
         }, {"-mask", "mask.tif"}, "mask raster"},
    };
    for (const MaskedCase& c : cases) {
        SCOPED_TRACE(c.name);
        const testsupport::TempDir d;
        c.write(d.Path());
        Args args = c.options;
        args.insert(args.end(), {"-json", "-q", "-classes", "4", "-initial", "2", "scene.tif", "classes.img"});
        const clitest::ProcessResult r = Isodata(d.Path(), args);
        ASSERT_EQ(r.exitCode, 0) << r.err;
        const std::vector<double> labels = testsupport::ReadBand(d.File("classes.img"));
        std::int64_t border = 0;
        for (int i = 0; i < kW * kH; ++i) {
            if (!Border(i % kW, i / kW)) continue;
            ++border;
            ASSERT_EQ(labels[i], 0.0) << "pixel " << i % kW << "," << i / kW;
        }
        const QJsonObject json = Json(r);
        EXPECT_EQ(json["excluded"]["pixels"].toDouble(), border);
        EXPECT_EQ(json["excluded"]["by"][c.by].toDouble(), border);
        EXPECT_EQ(json["unclassified"].toDouble(), 0.0);
        double shares = 0;
        for (const QJsonValue& k : json["classes"].toArray()) {
            EXPECT_GT(k["pixels"].toDouble(), 0.0) << "no class sits on excluded pixels only";
            shares += k["share"].toDouble();
        }
        EXPECT_NEAR(shares, 1.0, 1e-9);  // shares are of the valid pixels
    }
}

TEST_F(MasksAndModelsEndToEndTest, NothingValidIsRefusedAndNaNLeftInFailsWithItsCause) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    testsupport::RasterTable allNan = Scene(GDT_Float32, nan);
    for (auto& band : allNan.bands) std::fill(band.begin(), band.end(), nan);
    testsupport::WriteRaster(dir.File("nan.tif"), allNan);
    const auto before = dir.List();
    const clitest::ProcessResult refused = Isodata(dir.Path(), {"nan.tif", "classes.img"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("every pixel of 'nan.tif' is left out"), std::string::npos) << refused.err;
    const clitest::ProcessResult kept = Isodata(dir.Path(), {"-srcnodata", "None", "-mask", "none", "nan.tif", "c.img"});
    EXPECT_EQ(kept.exitCode, 2);
    EXPECT_NE(kept.err.find("NaN or infinite values"), std::string::npos) << kept.err;
    EXPECT_EQ(dir.List(), before);
}

std::vector<char> Bytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), {});
}

// Tiles cut with gdal_translate, classified by -apply as four jobs two at a
// time under xargs, and mosaicked with gdalbuildvrt: the run's bytes.
TEST_F(MasksAndModelsEndToEndTest, AModelAppliedToItsSceneOrToItsTilesGivesTheRunsBytes) {
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(GDT_Int16, -9999));
    ASSERT_EQ(Isodata(dir.Path(), {"-q", "-srcnodata", "-9999", "-model-out", "model.json", "scene.tif", "run.img"})
                  .exitCode, 0);
    const clitest::ProcessResult applied = Isodata(dir.Path(), {"-q", "-apply", "model.json", "scene.tif", "app.img"});
    ASSERT_EQ(applied.exitCode, 0) << applied.err;
    EXPECT_EQ(Bytes(dir.File("app.img")), Bytes(dir.File("run.img")));

    const std::string script =
        "set -e; for t in '0 0 80 70' '80 0 70 70' '0 70 80 50' '80 70 70 50'; do set -- $t; "
        "gdal_translate -q -srcwin $1 $2 $3 $4 scene.tif tile_$1_$2.tif; echo tile_$1_$2; done | "
        "xargs -P 2 -I{} '" + std::string(ISODATA_BINARY) + "' -q -apply model.json -of GTiff {}.tif {}.classes.tif; "
        "gdalbuildvrt -q mosaic.vrt tile_*.classes.tif; gdal_translate -q -of ENVI mosaic.vrt mosaic.img";
    ASSERT_EQ(clitest::RunProcess({"/bin/sh", "-c", script}, {}, dir.Path()).exitCode, 0);
    EXPECT_EQ(Bytes(dir.File("mosaic.img")), Bytes(dir.File("run.img")));
}

TEST_F(MasksAndModelsEndToEndTest, AModelThatDoesNotFitTheInputIsRefusedInOneLine) {
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(GDT_Byte, 0));
    testsupport::WriteRaster(dir.File("wide.tif"), Scene(GDT_UInt16, 0));
    ASSERT_EQ(Isodata(dir.Path(), {"-q", "-model-out", "model.json", "scene.tif", "run.img"}).exitCode, 0);
    const clitest::ProcessResult r = Isodata(dir.Path(), {"-apply", "model.json", "wide.tif", "a.img"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("band 1 of the input is UInt16, the model's classes were made on Byte"), std::string::npos)
        << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_FALSE(testsupport::FileExists(dir.File("a.img")));
}

// A model whose class names and colours were edited gives them to the
// rasters it labels, in ENVI and through a conversion alike.
TEST_F(MasksAndModelsEndToEndTest, AppliedClassesTakeTheModelsNamesAndColours) {
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(GDT_Byte, 0));
    ASSERT_EQ(Isodata(dir.Path(), {"-q", "-model-out", "model.json", "scene.tif", "run.img"}).exitCode, 0);
    QJsonObject model = QJsonDocument::fromJson(QByteArray::fromStdString(testsupport::ReadText(dir.File("model.json")))).object();
    QJsonArray classes = model["classes"].toArray();
    QJsonObject first = classes[0].toObject();
    first["name"] = "water";
    first["colour"] = QJsonArray{1, 2, 3};
    classes[0] = first;
    model["classes"] = classes;
    std::ofstream(dir.File("edited.json")) << QJsonDocument(model).toJson().toStdString();
    for (const char* format : {"ENVI", "GTiff"}) {
        const std::string out = std::string("app.") + format;
        ASSERT_EQ(Isodata(dir.Path(), {"-q", "-of", format, "-apply", "edited.json", "scene.tif", out}).exitCode, 0);
        const GDALDatasetUniquePtr ds(GDALDataset::Open(dir.File(out).c_str(), GDAL_OF_RASTER));
        double transform[6];
        (void)ds->GetGeoTransform(transform);  // GeoTIFF's driver reads the .aux.xml's names only then
        GDALRasterBand* band = ds->GetRasterBand(1);
        ASSERT_TRUE(band->GetCategoryNames()) << format;
        ASSERT_TRUE(band->GetColorTable()) << format;
        EXPECT_STREQ(band->GetCategoryNames()[1], "water");
        const GDALColorEntry* e = band->GetColorTable()->GetColorEntry(1);
        EXPECT_EQ((std::vector<short>{e->c1, e->c2, e->c3}), (std::vector<short>{1, 2, 3}));
    }
    // The pixels are the run's, whatever the names.
    ASSERT_EQ(Isodata(dir.Path(), {"-q", "-apply", "edited.json", "scene.tif", "plain.img"}).exitCode, 0);
    EXPECT_EQ(Bytes(dir.File("plain.img")), Bytes(dir.File("run.img")));
}

} // namespace
