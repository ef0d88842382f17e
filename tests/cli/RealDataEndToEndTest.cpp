// The command on rasters as people have them: classes depend on the valid
// pixels alone. Zeros and large values are data, overviews change nothing,
// an alpha band is a mask and not a band, and a zero fill is pointed out;
// -plain gives the plug-in's plain run, which does otherwise, to the byte.
#include "Subprocess.h"
#include "support/TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace {

using Args = std::vector<std::string>;

clitest::ProcessResult Isodata(const std::string& folder, Args args) {
    args.insert(args.begin(), ISODATA_BINARY);
    return clitest::RunProcess(args, {}, folder);
}

// 150 x 120 pixels: reduced by half for the working copy, so overviews
// could stand in for it.
constexpr int kW = 150, kH = 120;

// Blocks of four kinds with a ripple, offset per band; where zero holds, the
// pixel is (0, 0, ...) or whatever zeroPixel gives.
testsupport::RasterTable Scene(GDALDataType type, int bands, double scale = 1.0,
                               const std::vector<double>& zeroPixel = {}) {
    testsupport::RasterTable t{kW, kH, type, testsupport::BandValues(bands, std::vector<double>(kW * kH))};
    for (int b = 0; b < bands; ++b)
        for (int i = 0; i < kW * kH; ++i) {
            const int x = i % kW, y = i / kW;
            const bool zero = !zeroPixel.empty() && x < 30 && y < 40;
            t.bands[b][i] = zero ? zeroPixel[b] : scale * (20 + 60 * ((x / 25 + y / 20 + b) % 4) + (x + 2 * y) % 7);
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
        {"sea level", Scene(GDT_Int16, 1, 1.0, {0}), 30 * 40},
        {"signed, summing to 0", Scene(GDT_Int16, 4, 1.0, {-151, 29, 29, 93}), 30 * 40},
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
// them none: either way the alpha band is no default band and is the mask.
TEST_F(RealDataEndToEndTest, AnAlphaBandIsAMaskNotABand) {
    for (const int colours : {3, 6}) {
        testsupport::RasterTable scene = Scene(GDT_Byte, colours + 1);
        for (int i = 0; i < kW * kH; ++i) scene.bands[colours][i] = i % kW < 50 ? 0 : 255;  // the left third transparent
        scene.alphaBand = colours + 1;
        testsupport::WriteRaster(dir.File("scene.tif"), scene);
        const clitest::ProcessResult r = Isodata(dir.Path(), {"-q", "-json", "-overwrite", "scene.tif", "out.img"});
        ASSERT_EQ(r.exitCode, 0) << r.err;
        const QJsonObject json = QJsonDocument::fromJson(QByteArray::fromStdString(r.out)).object();
        QJsonArray bands;
        for (int b = 1; b <= colours; ++b) bands.append(b);
        EXPECT_EQ(json["parameters"].toObject()["b"].toArray(), bands) << colours;
        EXPECT_EQ(json["excluded"].toObject()["by"].toObject()["alpha band"].toDouble(), 50.0 * kH) << colours;
        for (const QJsonValue& c : json["classes"].toArray()) EXPECT_GT(c.toObject()["pixels"].toDouble(), 0);
    }
    // Named on purpose, the alpha band is classified like any other.
    EXPECT_EQ(Classes({"-b", "1", "-b", "7", "-mask", "none"}).size(), static_cast<std::size_t>(kW * kH));
}

TEST_F(RealDataEndToEndTest, AZeroFillWithoutNodataIsPointedOut) {
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(GDT_Byte, 3, 1.0, {0, 0, 0}));
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
