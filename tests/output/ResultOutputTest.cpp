// The result output: the labelling rule, the pass that writes class numbers
// into the class raster, and the class names and colours that go with them,
// checked in the ENVI files GDAL writes.
#include "ClassMetadata.h"
#include "ResultRaster.h"

#include "support/TestSupport.h"

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

namespace {

using isodata::BuildClassMetadata;
using isodata::Rgb;

isodata::LabelCenters Centers(const std::vector<std::vector<float>>& rows, std::size_t bands) {
    isodata::LabelCenters c{rows.size(), bands, {}};
    for (const auto& row : rows) c.values.insert(c.values.end(), row.begin(), row.end());
    return c;
}

// The result pass from dir's source.tif into the ENVI class raster
// classes.img, read back with its reports and figures; class names and
// colours for classNames classes go into the header when it is positive.
struct Labelled {
    std::vector<double> labels;
    testsupport::Reports reports;
    isodata::PassReport figures;
};

Labelled Label(const testsupport::TempDir& dir, const std::vector<std::uint32_t>& bands,
               const isodata::LabelCenters& centers, const isodata::ResultPassOptions& options = {},
               int classNames = 0) {
    Labelled out;
    auto& factory = *KalDataSource::DatasetFactory::Instance();
    {
        const auto source = factory.OpenRasterDataset(dir.QFile("source.tif"), KalDataSource::OpenReadOnly);
        EXPECT_TRUE(source);
        if (!source) return out;
        const auto result = factory.CreateRasterDataset(dir.QFile("classes.img"), source->GetGDALDataset()->GetRasterXSize(),
                                                        source->GetGDALDataset()->GetRasterYSize(), 1,
                                                        KalDataSource::PDT_Byte, "ENVI");
        isodata::GenerateResultRaster(source, result, bands, centers, testsupport::RecordProgress, &out.reports, options,
                                      &out.figures);
        if (classNames > 0) isodata::AttachClassMetadata(result, BuildClassMetadata(classNames));
    }  // releasing the last handle writes the header
    out.labels = testsupport::ReadBand(dir.File("classes.img"));
    return out;
}

// Pixels that sum to zero are background: LabelRowTest.UnclassifiedPixelsAreCountedByWhy.
TEST(LabelPixelTest, NearestCentreByCityBlockExceptFarPixels) {
    const struct { const char* name; std::vector<float> pixel; std::vector<std::vector<float>> centres; int label; }
        cases[] = {{"city block, not Euclidean", {10, 10}, {{16, 16}, {10, 21}}, 2},
                   {"absolute differences", {-10, 30}, {{10, 30}, {-12, 30}}, 2},
                   {"tie goes to the lower class", {10, 10}, {{30, 30}, {12, 10}, {8, 10}}, 2},
                   {"1e7 away stays unclassified", {1e7f, 0}, {{0, 0}}, 0},
                   {"just under 1e7 is labelled", {9999999.0f, 0}, {{0, 0}}, 1},
                   {"no centres", {5, 5}, {}, 0}};
    for (const auto& c : cases) {
        std::vector<const float*> rows;
        for (const float& v : c.pixel) rows.push_back(&v);
        EXPECT_EQ(isodata::LabelPixel(rows.data(), 0, Centers(c.centres, c.pixel.size())), c.label) << c.name;
    }
}

TEST(ResultFileTest, ClassNumbersKeepTheirLowByteEveryRowReportsAndNamesAndColoursReachTheHeader) {
    // 17 rows span more than one read. Band 1 is noise the band list skips; in
    // band 2 the columns sit on centres 256, 300, row + 1, none (background)
    // and 255, with centre c at 10 c.
    constexpr int kHeight = 17;
    testsupport::TempDir dir;
    testsupport::BandValues bands{std::vector<double>(5 * kHeight, 1234.0), {}};
    for (int y = 0; y < kHeight; ++y) bands[1].insert(bands[1].end(), {2560, 3000, 10.0 * (y + 1), 0, 2550});
    testsupport::WriteRaster(dir.File("source.tif"), {5, kHeight, GDT_Float32, bands});
    std::vector<std::vector<float>> centres;
    for (int c = 1; c <= 300; ++c) centres.push_back({10.0f * c});
    const auto [labels, reports, figures] = Label(dir, {1}, Centers(centres, 1), {}, 3);
    for (int y = 0; y < kHeight; ++y)
        EXPECT_EQ(std::vector<double>(labels.begin() + 5 * y, labels.begin() + 5 * y + 5),
                  (std::vector<double>{0, 44, y + 1.0, 0, 255})) << "row " << y;
    // 0 before the first row, then one step of 100 / H after each.
    ASSERT_EQ(reports.size(), kHeight + 1u);
    for (size_t i = 0; i < reports.size(); ++i) {
        EXPECT_NEAR(reports[i].first, i * 100.0 / kHeight, 1e-9) << i;
        EXPECT_EQ(reports[i].second, "Generating result file") << i;
    }
    std::string header;  // without blanks and line breaks, which GDAL places as it likes
    for (char c : testsupport::ReadText(dir.File("classes.hdr")))
        if (c != ' ' && c != '\n') header += c;
    EXPECT_NE(header.find("classnames={Unclassified,class1,class2,class3}"), std::string::npos) << header;
    EXPECT_NE(header.find("classlookup={0,0,0,255,0,0,0,255,255,0,255,0}"), std::string::npos) << header;
}

TEST(ResultFileTest, TiledSourceIsLabelledWindowByWindow) {
    // Six bands in 256-pixel tiles: a strip one tile high is read five tiles
    // (1280 columns) at a time, so the 1500 columns take two windows. Band 1
    // holds 10, 20, .. 50 by column, the centre of class 1 .. 5.
    constexpr int kWidth = 1500, kHeight = 20;
    testsupport::TempDir dir;
    testsupport::BandValues bands(6, std::vector<double>(kWidth * kHeight, 0.0));
    for (int i = 0; i < kWidth * kHeight; ++i) bands[0][i] = 10.0 * (1 + i % kWidth % 5);
    testsupport::RasterTable table{kWidth, kHeight, GDT_Float32, bands};
    table.options = {"TILED=YES"};
    testsupport::WriteRaster(dir.File("source.tif"), table);
    const auto [labels, reports, figures] =
        Label(dir, {0, 1, 2, 3, 4, 5},
              Centers({{10, 0, 0, 0, 0, 0}, {20, 0, 0, 0, 0, 0}, {30, 0, 0, 0, 0, 0}, {40, 0, 0, 0, 0, 0},
                       {50, 0, 0, 0, 0, 0}}, 6));
    for (int i = 0; i < kWidth * kHeight; ++i) ASSERT_EQ(labels[i], 1 + i % kWidth % 5) << "pixel " << i;
    EXPECT_EQ(reports.size(), kHeight + 1u);
}

// NaN and infinite values the rules leave in are counted apart from the
// pixels beyond reach and the background; the non-finite rule excludes them
// instead.
TEST(ResultFileTest, NonFinitePixelsAreCountedApartOrExcludedByTheirRule) {
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    testsupport::TempDir dir;
    testsupport::WriteRaster(dir.File("source.tif"),
                             {6, 1, GDT_Float32, {{nan, inf, 10, 0, 5e7, 1}, {1, 1, 10, 0, 0, nan}}});
    for (const bool rule : {false, true}) {
        SCOPED_TRACE(rule ? "excluded" : "left in");
        isodata::ResultPassOptions options;
        options.validity.nonFinite = rule;
        const auto [labels, reports, figures] = Label(dir, {0, 1}, Centers({{10, 10}}, 2), options);
        EXPECT_EQ(labels, (std::vector<double>{0, 0, 1, 0, 0, 0}));
        EXPECT_EQ(figures.excluded.byNonFinite, rule ? 3 : 0);
        EXPECT_EQ(figures.excluded.pixels, rule ? 3 : 0);
        EXPECT_EQ(figures.unclassified.nonFinite, rule ? 0 : 3);
        EXPECT_EQ(figures.unclassified.beyondReach, 1);
        EXPECT_EQ(figures.unclassified.background, 1);
    }
}

TEST(ClassMetadataTest, BlackForUnclassifiedThePaletteThenThreeDrawsOfTheSharedGeneratorModulo255) {
    // glibc's generator from its start-up seed 1 draws 1804289383, 846930886,
    // 1681692777, 1714636915, 1957747793, 424238335: modulo 255 these are
    // 163, 151, 162, 85, 83, 190. The palette draws none.
    std::srand(1);
    const std::vector<Rgb> colors = BuildClassMetadata(20).colors;
    ASSERT_EQ(colors.size(), 21u);
    EXPECT_EQ(colors[0], (Rgb{0, 0, 0}));
    EXPECT_EQ(colors[18], (Rgb{255, 255, 127}));  // the last of the palette
    EXPECT_EQ(colors[19], (Rgb{163, 151, 162}));
    EXPECT_EQ(colors[20], (Rgb{85, 83, 190}));
    // A single cluster gets a colour but no name: the established output.
    const isodata::ClassMetadata one = BuildClassMetadata(1);
    EXPECT_EQ(one.names, QStringList{"Unclassified"});
    EXPECT_EQ(one.colors, (std::vector<Rgb>{{0, 0, 0}, {255, 0, 0}}));
}

} // namespace
