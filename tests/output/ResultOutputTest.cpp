// The result output: the labelling pass that writes class numbers into the
// class raster, and the class names, colours and header entries that go with
// them, checked on real ENVI files where they reach one.
#include "ClassMetadata.h"
#include "ResultRaster.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }

namespace {

using isodata::BuildClassMetadata;
using isodata::LabelCenters;
using isodata::Rgb;

LabelCenters Centers(const std::vector<std::vector<float>>& rows, std::size_t bands) {
    LabelCenters c{rows.size(), bands, {}};
    for (const auto& row : rows) c.values.insert(c.values.end(), row.begin(), row.end());
    return c;
}

TEST(LabelPixelTest, NearestCentreByCityBlockExceptBackgroundAndFarPixels) {
    const struct { const char* name; std::vector<float> pixel; std::vector<std::vector<float>> centres; int label; }
        cases[] = {{"city block, not Euclidean", {10, 10}, {{16, 16}, {10, 21}}, 2},
                   {"absolute differences", {-10, 30}, {{10, 30}, {-12, 30}}, 2},
                   {"all zero is background", {0, 0}, {{50, 50}, {0, 0}}, 0},
                   {"+5/-5 sums to zero: background", {5, -5}, {{5, -5}, {10, 10}}, 0},
                   {"tie goes to the lower class", {10, 10}, {{30, 30}, {12, 10}, {8, 10}}, 2},
                   {"1e7 away stays unclassified", {1e7f, 0}, {{0, 0}}, 0},
                   {"just under 1e7 is labelled", {9999999.0f, 0}, {{0, 0}}, 1},
                   {"no centres", {5, 5}, {}, 0},
                   // The float nearest 1e-8 lies below it (background); the next one up does not.
                   {"sum 0x1.5798eep-27 is background", {0x1.5798eep-27f}, {{0}}, 0},
                   {"sum 0x1.5798f0p-27 is labelled", {0x1.5798f0p-27f}, {{0}}, 1}};
    for (const auto& c : cases) {
        std::vector<const float*> rows;
        for (const float& v : c.pixel) rows.push_back(&v);
        EXPECT_EQ(isodata::LabelPixel(rows.data(), 0, Centers(c.centres, c.pixel.size())), c.label) << c.name;
    }
}

class ResultFileTest : public ::testing::Test {
protected:
    KalUtility::_ptr_t<KalDataSource::RasterDataset> WriteSource(int width, int height,
                                                                 const testsupport::BandValues& bands,
                                                                 std::vector<std::string> options = {}) {
        testsupport::RasterTable raster;
        raster.width = width;
        raster.height = height;
        raster.type = GDT_Float32;
        raster.bands = bands;
        raster.options = std::move(options);
        testsupport::WriteRaster(dir.File("source.tif"), raster);
        return factory.OpenRasterDataset(dir.QFile("source.tif"), KalDataSource::OpenReadOnly);
    }

    KalDataSource::DatasetFactory& factory = *KalDataSource::DatasetFactory::Instance();
    testsupport::TempDir dir;
};

TEST_F(ResultFileTest, RegionReaderRefusesNegativeOffsetsAndMissingBands) {
    const auto source = WriteSource(2, 2, {{1, 2, 3, 4}});
    float value = -1.0f;
    const std::array<int, 3> refused[] = {{0, -1, 0}, {0, 0, -1}, {1, 0, 0}, {-1, 0, 0}};  // band, x, y
    for (const auto& [band, x, y] : refused)
        EXPECT_EQ(isodata::ReadBandRegion(source, band, x, y, 1, 1, 1.0, 1.0, &value, GDT_Float32), 0) << band;
    EXPECT_EQ(value, -1.0f);
    EXPECT_EQ(isodata::ReadBandRegion(source, 0, 1, 1, 1, 1, 1.0, 1.0, &value, GDT_Float32), 1);  // 0-based band
    EXPECT_EQ(value, 4.0f);
}

using Reports = std::vector<std::pair<double, std::string>>;

int Record(double percent, const char* text, void* userData) {
    static_cast<Reports*>(userData)->emplace_back(percent, text);
    return 0;
}

TEST_F(ResultFileTest, WholePassKeepsTheLowByteOfClassNumbersAndReportsEveryRow) {
    // 17 rows span more than one read. Band 1 is noise the band list skips; in
    // band 2 the columns sit on centres 256, 300, row + 1, none (background)
    // and 255, with centre c at 10 c.
    constexpr int kHeight = 17;
    testsupport::BandValues bands{std::vector<double>(5 * kHeight, 1234.0), {}};
    for (int y = 0; y < kHeight; ++y) bands[1].insert(bands[1].end(), {2560, 3000, 10.0 * (y + 1), 0, 2550});
    std::vector<std::vector<float>> centres;
    for (int c = 1; c <= 300; ++c) centres.push_back({10.0f * c});
    Reports reports;
    {
        const auto source = WriteSource(5, kHeight, bands);
        const auto result = factory.CreateRasterDataset(dir.QFile("classes.img"), 5, kHeight, 1,
                                                        KalDataSource::PDT_Byte, "ENVI");
        ASSERT_TRUE(source && result);
        isodata::GenerateResultRaster(source, result, {1}, Centers(centres, 1), Record, &reports);
    }
    const std::vector<double> labels = testsupport::ReadBand(dir.File("classes.img"));
    for (int y = 0; y < kHeight; ++y)
        EXPECT_EQ(std::vector<double>(labels.begin() + 5 * y, labels.begin() + 5 * y + 5),
                  (std::vector<double>{0, 44, y + 1.0, 0, 255})) << "row " << y;
    // 0 before the first row, then one step of 100 / H after each.
    ASSERT_EQ(reports.size(), kHeight + 1u);
    for (size_t i = 0; i < reports.size(); ++i) {
        EXPECT_NEAR(reports[i].first, i * 100.0 / kHeight, 1e-9) << i;
        EXPECT_EQ(reports[i].second, "Generating result file") << i;
    }
}

TEST_F(ResultFileTest, TiledSourceIsLabelledWindowByWindow) {
    // Six bands in 256-pixel tiles: a strip one tile high is read five tiles
    // (1280 columns) at a time, so the 1500 columns take two windows. Band 1
    // holds 10, 20, .. 50 by column, the centre of class 1 .. 5.
    constexpr int kWidth = 1500, kHeight = 20;
    testsupport::BandValues bands(6, std::vector<double>(kWidth * kHeight, 0.0));
    for (int i = 0; i < kWidth * kHeight; ++i) bands[0][i] = 10.0 * (1 + i % kWidth % 5);
    Reports reports;
    {
        const auto source = WriteSource(kWidth, kHeight, bands, {"TILED=YES"});
        const auto result = factory.CreateRasterDataset(dir.QFile("classes.img"), kWidth, kHeight, 1,
                                                        KalDataSource::PDT_Byte, "ENVI");
        ASSERT_TRUE(source && result);
        isodata::GenerateResultRaster(source, result, {0, 1, 2, 3, 4, 5},
                                      Centers({{10, 0, 0, 0, 0, 0}, {20, 0, 0, 0, 0, 0}, {30, 0, 0, 0, 0, 0},
                                               {40, 0, 0, 0, 0, 0}, {50, 0, 0, 0, 0, 0}}, 6),
                                      Record, &reports);
    }
    const std::vector<double> labels = testsupport::ReadBand(dir.File("classes.img"));
    for (int i = 0; i < kWidth * kHeight; ++i) ASSERT_EQ(labels[i], 1 + i % kWidth % 5) << "pixel " << i;
    EXPECT_EQ(reports.size(), kHeight + 1u);
}

TEST(ClassMetadataTest, FewClustersGiveExactlyTheseNamesColoursAndHeaderEntries) {
    const QString units = QStringLiteral("wavelength units ");
    const struct { int clusters; QStringList names; std::vector<Rgb> colors; std::map<QString, QString> header; }
        cases[] = {
            {0, {"Unclassified"}, {{0, 0, 0}}, {{"class lookup", "{0,0,0}"}, {"classes", "1"}, {units, "Unknown"}}},
            // A single cluster gets a colour but no name: the established output.
            {1, {"Unclassified"}, {{0, 0, 0}, {255, 0, 0}},
             {{"class lookup", "{0,0,0,255,0,0}"}, {"classes", "2"}, {units, "Unknown"}}},
            {3, {"Unclassified", "class1", "class2", "class3"}, {{0, 0, 0}, {255, 0, 0}, {0, 255, 255}, {0, 255, 0}},
             {{"class names", "{Unclassified,class1,class2,class3}"},
              {"class lookup", "{0,0,0,255,0,0,0,255,255,0,255,0}"}, {"classes", "4"}, {units, "Unknown"}}}};
    for (const auto& c : cases) {
        const isodata::ClassMetadata m = BuildClassMetadata(c.clusters, QStringLiteral("out.img"));
        EXPECT_EQ(m.names, c.names) << c.clusters << " clusters";
        EXPECT_EQ(m.colors, c.colors) << c.clusters << " clusters";
        EXPECT_EQ(m.header, c.header) << c.clusters << " clusters";
    }
}

TEST(ClassMetadataTest, ClustersAfterTheEighteenthDrawThreeNumbersBelow255Each) {
    std::srand(7);
    const int red = std::rand() % 255, green = std::rand() % 255, blue = std::rand() % 255;
    const int after = std::rand();
    std::srand(7);
    const isodata::ClassMetadata m = BuildClassMetadata(19, QStringLiteral("out.img"));
    EXPECT_EQ(std::rand(), after);  // three draws, none for the palette
    EXPECT_EQ(m.colors.at(19), (Rgb{static_cast<std::int16_t>(red), static_cast<std::int16_t>(green),
                                 static_cast<std::int16_t>(blue)}));
    const std::vector<Rgb> many = BuildClassMetadata(400, QStringLiteral("out.img")).colors;
    for (auto color = many.begin() + 19; color != many.end(); ++color)
        for (const std::int16_t c : *color) EXPECT_TRUE(c >= 0 && c < 255) << c;
}

TEST_F(ResultFileTest, AttachedClassNamesAndColoursReachTheEnviHeader) {
    {
        const auto result = factory.CreateRasterDataset(dir.QFile("classes.img"), 4, 3, 1, KalDataSource::PDT_Byte,
                                                        QStringLiteral("ENVI"));
        ASSERT_TRUE(result);
        isodata::AttachClassMetadata(result, BuildClassMetadata(3, dir.QFile("classes.img")));
    }  // releasing the last handle writes the header
    std::string header;  // without blanks and line breaks, which GDAL places as it likes
    for (char c : testsupport::ReadText(dir.File("classes.hdr")))
        if (c != ' ' && c != '\n') header += c;
    EXPECT_NE(header.find("classnames={Unclassified,class1,class2,class3}"), std::string::npos) << header;
    EXPECT_NE(header.find("classlookup={0,0,0,255,0,0,0,255,255,0,255,0}"), std::string::npos) << header;
}

} // namespace
