// isodata with the real plug-in, found beside the binary as in an install:
// a scene of three well-separated value groups must come out as three
// classes, and everything the CLI prints about the result must match the
// raster it wrote.
#include "Subprocess.h"
#include "support/TestSupport.h"

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>

namespace {

using clitest::ProcessResult;
using clitest::RunProcess;

constexpr int kBlock = 64;
constexpr int kGroups = 3;
constexpr int kWidth = kBlock * kGroups;
constexpr int kHeight = kBlock;

// Band values of the three groups; each fills one 64-pixel-wide block, since
// the plug-in seeds its centres from one sample per 64 x 64 block.
constexpr double kGroupValues[kGroups][3] = {{30, 60, 90}, {120, 150, 100}, {210, 40, 200}};

testsupport::RasterTable ThreeGroups() {
    testsupport::RasterTable scene;
    scene.width = kWidth;
    scene.height = kHeight;
    scene.bands.assign(3, std::vector<double>(static_cast<size_t>(kWidth) * kHeight));
    for (int b = 0; b < 3; ++b)
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                // A ripple of -1..1 keeps every group's spread small but not zero.
                scene.bands[b][static_cast<size_t>(y) * kWidth + x] = kGroupValues[x / kBlock][b] + (x + y) % 3 - 1;
    return scene;
}

struct ClassRaster {
    int width = 0, height = 0;
    std::vector<GByte> pixels;
    std::vector<GDALColorEntry> colours;
    double geoTransform[6] = {};
    OGRSpatialReference srs;
};

ClassRaster ReadClassRaster(const std::string& path) {
    ClassRaster r;
    GDALDatasetUniquePtr ds(GDALDataset::Open(path.c_str(), GDAL_OF_RASTER));
    if (!ds) {
        ADD_FAILURE() << "cannot open " << path;
        return r;
    }
    r.width = ds->GetRasterXSize();
    r.height = ds->GetRasterYSize();
    GDALRasterBand* band = ds->GetRasterBand(1);
    r.pixels.resize(static_cast<size_t>(r.width) * r.height);
    EXPECT_EQ(band->RasterIO(GF_Read, 0, 0, r.width, r.height, r.pixels.data(), r.width, r.height, GDT_Byte, 0, 0,
                             nullptr),
              CE_None);
    if (const GDALColorTable* table = band->GetColorTable())
        for (int i = 0; i < table->GetColorEntryCount(); ++i) r.colours.push_back(*table->GetColorEntry(i));
    ds->GetGeoTransform(r.geoTransform);
    if (const OGRSpatialReference* srs = ds->GetSpatialRef()) r.srs = *srs;
    return r;
}

// The class table of the summary: class value -> pixel count, read from the
// rows that start with two whole numbers and a percentage.
std::map<int, long long> SummaryCounts(const std::string& out) {
    std::map<int, long long> counts;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream row(line);
        int value = 0;
        long long pixels = 0;
        std::string share;
        if (row >> value >> pixels >> share && !share.empty() && share.back() == '%') counts[value] = pixels;
    }
    return counts;
}

// Which input bands a run classifies; every choice separates the groups.
struct BandChoice {
    const char* name;
    std::vector<std::string> args;
};

void PrintTo(const BandChoice& c, std::ostream* os) { *os << c.name; }

class EndToEndTest : public ::testing::TestWithParam<BandChoice> {
protected:
    void SetUp() override {
        testsupport::RegisterGdal();
        testsupport::WriteRaster(dir.File("scene.tif"), ThreeGroups());
    }

    ProcessResult Classify() {
        std::vector<std::string> args = {ISODATA_BINARY, "-classes", "3", "-initial", "3", "-min-size", "20",
                                         "-iter", "4", "-std", "10", "-merge-dist", "20", "-preview", "p.png"};
        for (const std::string& a : GetParam().args) args.push_back(a);
        args.push_back("scene.tif");
        args.push_back("out");
        return RunProcess(args, {}, dir.Path());
    }

    testsupport::TempDir dir;
};

TEST_P(EndToEndTest, ClassifiesSeparatedGroupsAndReportsTheResultFaithfully) {
    const ProcessResult run = Classify();
    ASSERT_EQ(run.exitCode, 0) << run.err << run.out;

    // Only the result, its header and the preview are new; no working file is left.
    for (const std::string& name : dir.List()) {
        EXPECT_FALSE(name.size() > 7 && name.compare(name.size() - 7, 7, "tem.tif") == 0) << name;
        EXPECT_FALSE(name.size() > 3 && name.compare(name.size() - 3, 3, ".km") == 0) << name;
    }
    ASSERT_TRUE(testsupport::FileExists(dir.File("out.hdr")));

    const ClassRaster result = ReadClassRaster(dir.File("out"));
    ASSERT_EQ(result.width, kWidth);
    ASSERT_EQ(result.height, kHeight);

    // Each group is one class of its own, and no pixel is left unclassified.
    std::set<GByte> groupClasses;
    for (int g = 0; g < kGroups; ++g) {
        const GByte first = result.pixels[static_cast<size_t>(g) * kBlock];
        EXPECT_GE(first, 1);
        for (int y = 0; y < kHeight; ++y)
            for (int x = g * kBlock; x < (g + 1) * kBlock; ++x)
                ASSERT_EQ(result.pixels[static_cast<size_t>(y) * kWidth + x], first) << "group " << g << " at " << x
                                                                                      << "," << y;
        groupClasses.insert(first);
    }
    EXPECT_EQ(groupClasses.size(), 3u);

    // Georeferenced like the input.
    GDALDatasetUniquePtr input(GDALDataset::Open(dir.File("scene.tif").c_str(), GDAL_OF_RASTER));
    double inputTransform[6];
    ASSERT_EQ(input->GetGeoTransform(inputTransform), CE_None);
    for (int i = 0; i < 6; ++i) EXPECT_DOUBLE_EQ(result.geoTransform[i], inputTransform[i]) << i;
    EXPECT_TRUE(result.srs.IsSame(input->GetSpatialRef()));

    // The summary's figures are the raster's.
    std::map<int, long long> counted;
    for (GByte v : result.pixels)
        if (v) ++counted[v];
    EXPECT_EQ(SummaryCounts(run.out), counted) << run.out;
    EXPECT_NE(run.out.find(std::to_string(counted.size()) + " classes found (3 requested)"), std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("Unclassified: 0 pixels"), std::string::npos) << run.out;
    // Output is piped here, so progress comes as plain lines.
    EXPECT_EQ(run.out.find("0...10"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("iteration 1\n"), std::string::npos) << run.out;

    // The preview is the class raster in its own colours.
    GDALDatasetUniquePtr png(GDALDataset::Open(dir.File("p.png").c_str(), GDAL_OF_RASTER));
    ASSERT_NE(png, nullptr);
    EXPECT_EQ(png->GetRasterXSize(), kWidth);
    EXPECT_EQ(png->GetRasterYSize(), kHeight);
    const GDALColorTable* palette = png->GetRasterBand(1)->GetColorTable();
    ASSERT_NE(palette, nullptr);
    ASSERT_FALSE(result.colours.empty());
    ASSERT_EQ(palette->GetColorEntryCount(), static_cast<int>(result.colours.size()));
    for (int i = 0; i < palette->GetColorEntryCount(); ++i) {
        EXPECT_EQ(palette->GetColorEntry(i)->c1, result.colours[i].c1) << i;
        EXPECT_EQ(palette->GetColorEntry(i)->c2, result.colours[i].c2) << i;
        EXPECT_EQ(palette->GetColorEntry(i)->c3, result.colours[i].c3) << i;
    }
    std::vector<GByte> previewPixels(result.pixels.size());
    ASSERT_EQ(png->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, kWidth, kHeight, previewPixels.data(), kWidth, kHeight,
                                              GDT_Byte, 0, 0, nullptr),
              CE_None);
    EXPECT_EQ(previewPixels, result.pixels);
}

const BandChoice kBandChoices[] = {
    {"AllBands", {}},
    {"FirstBand", {"-b", "1"}},
    {"ThirdAndFirstBands", {"-b", "3", "-b", "1"}},
};

std::string ChoiceName(const ::testing::TestParamInfo<BandChoice>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(CliEndToEnd, EndToEndTest, ::testing::ValuesIn(kBandChoices), ChoiceName);

} // namespace
