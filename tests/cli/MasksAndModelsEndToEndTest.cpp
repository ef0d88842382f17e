// The command with the real plug-in on rasters as people have them: classes
// depend on the valid pixels alone. Pixels that are not data (NaN, a nodata
// value, 0-fill, an alpha band, a mask raster) are 0 in the result and
// counted apart, and a scene with nothing valid is refused; zeros and large
// values are data, overviews change nothing, an alpha band is a mask and not
// a band, and a zero fill is pointed out; -plain gives the plug-in's plain
// run, which does otherwise, to the byte. A run's model applied to its scene,
// or to tiles of it run as independent jobs, gives the run's bytes.
#include "Subprocess.h"
#include "support/TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>

namespace {

using Args = std::vector<std::string>;
using clitest::Isodata;

QJsonObject Json(const clitest::ProcessResult& r) { return QJsonDocument::fromJson(QByteArray::fromStdString(r.out)).object(); }

// 150 x 120 pixels: reduced by half for the working copy, so overviews
// could stand in for it.
constexpr int kW = 150, kH = 120;

bool Border(int x, int y) { return y < 15 || x >= 130 || (x > 40 && x < 60 && y > 50 && y < 90); }
bool Corner(int x, int y) { return x < 30 && y < 40; }

// Blocks of four kinds with a ripple, offset per band, times scale; where
// filled holds, the pixel is fill (one value for every band, or one each).
testsupport::RasterTable Scene(GDALDataType type, int bands, double scale = 1.0,
                               std::function<bool(int, int)> filled = {}, std::vector<double> fill = {}) {
    testsupport::RasterTable t{kW, kH, type, testsupport::BandValues(bands, std::vector<double>(kW * kH))};
    for (int b = 0; b < bands; ++b)
        for (int i = 0; i < kW * kH; ++i) {
            const int x = i % kW, y = i / kW;
            t.bands[b][i] = filled && filled(x, y) ? fill[fill.size() == 1 ? 0 : b]
                                                   : scale * (20 + 60 * ((x / 25 + y / 20 + b) % 4) + (x + 2 * y) % 7);
        }
    return t;
}

std::int64_t Zeros(const std::vector<double>& labels) { return std::count(labels.begin(), labels.end(), 0.0); }

class RealDataEndToEndTest : public ::testing::Test {
protected:
    // Runs isodata with args on scene.tif into out.img; its labels.
    std::vector<double> Classes(Args args) {
        args.insert(args.end(), {"-q", "-overwrite", "scene.tif", "out.img"});
        const clitest::ProcessResult r = Isodata(dir.Path(), args);
        EXPECT_EQ(r.exitCode, 0) << r.err;
        return r.exitCode == 0 ? testsupport::ReadBand(dir.File("out.img")) : std::vector<double>();
    }
    testsupport::TempDir dir;
};
using MasksAndModelsEndToEndTest = RealDataEndToEndTest;

testsupport::RasterTable WithNodata(testsupport::RasterTable t, double nodata) {
    t.nodata = {nodata};
    return t;
}

TEST_F(MasksAndModelsEndToEndTest, PixelsThatAreNotDataAreZeroCountedApartAndNeverAClass) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    // The scene, the options, and the rule the summary names; mask.tif is 0 on the border.
    const struct { const char* name; testsupport::RasterTable scene; Args options; const char* by; } cases[] = {
        {"NaN border, declared", WithNodata(Scene(GDT_Float32, 3, 1, Border, {nan}), nan), {}, "nodata"},
        {"-9999 declared", WithNodata(Scene(GDT_Int16, 3, 1, Border, {-9999}), -9999), {}, "nodata"},
        {"0-fill named with -srcnodata", Scene(GDT_Byte, 3, 1, Border, {0}), {"-srcnodata", "0"}, "nodata"},
        {"mask raster", Scene(GDT_UInt16, 3, 1, Border, {4000}), {"-mask", "mask.tif"}, "mask raster"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const testsupport::TempDir d;
        testsupport::WriteRaster(d.File("scene.tif"), c.scene);
        testsupport::WriteRaster(d.File("mask.tif"), Scene(GDT_Byte, 1, 1, Border, {0}));
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
    const testsupport::RasterTable allNan = Scene(GDT_Float32, 3, 1, [](int, int) { return true; }, {nan});
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

// Tiles cut with gdal_translate, classified by -apply as four jobs two at a
// time under xargs, and mosaicked with gdalbuildvrt: the run's bytes.
TEST_F(MasksAndModelsEndToEndTest, AModelAppliedToItsSceneOrToItsTilesGivesTheRunsBytes) {
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(GDT_Int16, 3, 1, Border, {-9999}));
    ASSERT_EQ(Isodata(dir.Path(), {"-q", "-srcnodata", "-9999", "-model-out", "model.json", "scene.tif", "run.img"})
                  .exitCode, 0);
    const clitest::ProcessResult applied = Isodata(dir.Path(), {"-q", "-apply", "model.json", "scene.tif", "app.img"});
    ASSERT_EQ(applied.exitCode, 0) << applied.err;
    EXPECT_EQ(testsupport::ReadText(dir.File("app.img")), testsupport::ReadText(dir.File("run.img")));

    const std::string script =
        "set -e; for t in '0 0 80 70' '80 0 70 70' '0 70 80 50' '80 70 70 50'; do set -- $t; "
        "gdal_translate -q -srcwin $1 $2 $3 $4 scene.tif tile_$1_$2.tif; echo tile_$1_$2; done | "
        "xargs -P 2 -I{} '" + std::string(ISODATA_BINARY) + "' -q -apply model.json -of GTiff {}.tif {}.classes.tif; "
        "gdalbuildvrt -q mosaic.vrt tile_*.classes.tif; gdal_translate -q -of ENVI mosaic.vrt mosaic.img";
    ASSERT_EQ(clitest::RunProcess({"/bin/sh", "-c", script}, {}, dir.Path()).exitCode, 0);
    EXPECT_EQ(testsupport::ReadText(dir.File("mosaic.img")), testsupport::ReadText(dir.File("run.img")));
}

TEST_F(MasksAndModelsEndToEndTest, AModelThatDoesNotFitTheInputIsRefusedInOneLine) {
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(GDT_Byte, 3));
    testsupport::WriteRaster(dir.File("wide.tif"), Scene(GDT_UInt16, 3));
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
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(GDT_Byte, 3));
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
}

TEST_F(RealDataEndToEndTest, PlainIsThePlugInsPlainRunToTheByte) {
    if (!testsupport::FileExists(ISODATA_SAMPLE_SCENE)) GTEST_SKIP() << "sample scene not fetched";
    const clitest::ProcessResult r = Isodata(dir.Path(), {"-q", "-plain", ISODATA_SAMPLE_SCENE, "plain.img"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(testsupport::Fnv1a(testsupport::ReadText(dir.File("plain.img"))), testsupport::kSampleClassesFnv1a);
}

// Fills every overview of path's bands with 255 (in the file or in its
// .ovr), so that a read of them would show.
void SpoilOverviews(const std::string& path) {
    GDALDatasetUniquePtr ds(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    for (int b = 1; b <= ds->GetRasterCount(); ++b)
        for (int o = 0; o < ds->GetRasterBand(b)->GetOverviewCount(); ++o)
            ASSERT_EQ(ds->GetRasterBand(b)->GetOverview(o)->Fill(255), CE_None);
}

// Overviews next to the file (.ovr) or inside it, whatever they hold, give
// the classes of the scene without them; only -plain reads them, as GDAL's
// reduced read would.
TEST_F(RealDataEndToEndTest, OverviewsChangeNoClass) {
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(GDT_Byte, 3));
    const std::vector<double> bare = Classes({});
    // Without overviews and without zeros the plain run is the same run.
    EXPECT_EQ(Classes({"-plain"}), bare);
    testsupport::BuildOverviews(dir.File("scene.tif"));  // read-only: scene.tif.ovr
    ASSERT_TRUE(testsupport::FileExists(dir.File("scene.tif.ovr")));
    SpoilOverviews(dir.File("scene.tif"));
    EXPECT_EQ(Classes({}), bare) << "external overviews";
    EXPECT_EQ(Classes({"-threads", "1", "-mem", "0"}), bare) << "external overviews, on disk";
    EXPECT_NE(Classes({"-plain"}), bare) << "the plain run reads the overviews";
    std::filesystem::remove(dir.File("scene.tif.ovr"));
    {
        GDALDatasetUniquePtr ds(GDALDataset::Open(dir.File("scene.tif").c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
        int levels[] = {2, 4};
        ASSERT_EQ(ds->BuildOverviews("NEAREST", 2, levels, 0, nullptr, nullptr, nullptr), CE_None);
    }
    SpoilOverviews(dir.File("scene.tif"));
    EXPECT_EQ(Classes({}), bare) << "internal overviews";
    EXPECT_EQ(Classes({"-srcnodata", "7"}), bare) << "internal overviews, with a validity mask";
    EXPECT_NE(Classes({"-plain"}), bare) << "the plain run reads the overviews";
}

// Pixels 0 in every band (a DEM at sea level), or whose signed values sum to
// 0, and values far beyond 1e7 are classified; the plain run leaves them 0.
TEST_F(RealDataEndToEndTest, ZerosAndLargeValuesAreData) {
    const struct {
        const char* name;
        testsupport::RasterTable scene;
        std::int64_t plainZeros;  // pixels the plain run leaves unclassified, at least
    } cases[] = {
        {"sea level", Scene(GDT_Int16, 1, 1.0, Corner, {0}), 30 * 40},
        {"signed, summing to 0", Scene(GDT_Int16, 4, 1.0, Corner, {-151, 29, 29, 93}), 30 * 40},
        // A pixel's ripple puts most of them 1e7 or more from their centre.
        {"scaled by 1e7", Scene(GDT_Float32, 3, 1e7), kW * kH / 2},
    };
    for (const auto& c : cases) {
        testsupport::WriteRaster(dir.File("scene.tif"), c.scene);
        EXPECT_EQ(Zeros(Classes({})), 0) << c.name;
        EXPECT_GE(Zeros(Classes({"-plain"})), c.plainZeros) << c.name;
    }
}

// RGBA, where GDAL gives the colours the alpha band as their mask, and six
// bands and an alpha band (as warping with -dstalpha makes), where it gives
// them none: either way the alpha band is no default band and is the mask,
// its transparent pixels 0 in the result.
TEST_F(RealDataEndToEndTest, AnAlphaBandIsAMaskNotABand) {
    for (const int colours : {3, 6}) {
        testsupport::RasterTable scene = Scene(GDT_Byte, colours + 1);
        for (int i = 0; i < kW * kH; ++i) scene.bands[colours][i] = i % kW < 50 ? 0 : 255;  // the left third transparent
        scene.alphaBand = colours + 1;
        testsupport::WriteRaster(dir.File("scene.tif"), scene);
        const clitest::ProcessResult r = Isodata(dir.Path(), {"-q", "-json", "-overwrite", "scene.tif", "out.img"});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        const QJsonObject json = Json(r);
        QJsonArray bands;
        for (int b = 1; b <= colours; ++b) bands.append(b);
        EXPECT_EQ(json["parameters"].toObject()["b"].toArray(), bands) << colours;
        EXPECT_EQ(json["excluded"].toObject()["by"].toObject()["alpha band"].toDouble(), 50.0 * kH) << colours;
        for (const QJsonValue& c : json["classes"].toArray()) EXPECT_GT(c.toObject()["pixels"].toDouble(), 0);
        const std::vector<double> labels = testsupport::ReadBand(dir.File("out.img"));
        for (int i = 0; i < kW * kH; ++i) {
            if (i % kW < 50) {
                ASSERT_EQ(labels[i], 0.0) << colours << " colours, pixel " << i;
            }
        }
    }
    // Named on purpose, the alpha band is classified like any other.
    EXPECT_EQ(Classes({"-b", "1", "-b", "7", "-mask", "none"}).size(), static_cast<std::size_t>(kW * kH));
}

TEST_F(RealDataEndToEndTest, AZeroFillWithoutNodataIsPointedOut) {
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(GDT_Byte, 3, 1.0, Corner, {0}));
    const std::string hint =
        "isodata: warning: 1200 pixels are 0 in every band and were classified; if 0 is no data here (use -srcnodata "
        "0)\n";
    clitest::ProcessResult r = Isodata(dir.Path(), {"-q", "scene.tif", "out.img"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, hint);
    r = Isodata(dir.Path(), {"-q", "-srcnodata", "0", "scene.tif", "named.img"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(Zeros(testsupport::ReadBand(dir.File("named.img"))), 30 * 40);
}

} // namespace
