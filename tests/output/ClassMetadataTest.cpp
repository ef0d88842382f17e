// Class names, colours and header entries of the class raster, and how they
// reach a real ENVI file through the data source.
#include "ClassMetadata.h"

#include "support/TestSupport.h"

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <ostream>
#include <string>
#include <vector>

void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }

namespace {

using isodata::BuildClassMetadata;
using isodata::ClassMetadata;
using isodata::Rgb;
using testsupport::TempDir;

using Header = std::map<QString, QString>;

// Clusters 1..18 in order, as the class raster shows them.
const std::vector<Rgb> kPaletteByHand = {
    {255, 0, 0},   {0, 255, 255},   {0, 255, 0},   {255, 0, 255},   {0, 0, 255},     {255, 255, 0},
    {255, 128, 0}, {0, 128, 255},   {255, 0, 128}, {0, 255, 127},   {255, 128, 128}, {0, 127, 127},
    {128, 0, 0},   {127, 255, 255}, {0, 128, 0},   {255, 127, 255}, {0, 0, 128},     {255, 255, 127},
};

ClassMetadata Build(std::size_t clusters) { return BuildClassMetadata(clusters, QStringLiteral("out.img")); }

// ---- few clusters ----

TEST(ClassMetadataTest, NoClusterGivesOnlyTheBlackUnclassifiedClass) {
    const ClassMetadata m = Build(0);
    EXPECT_EQ(m.names, QStringList{"Unclassified"});
    EXPECT_EQ(m.colors, (std::vector<Rgb>{{0, 0, 0}}));
    const Header expected = {{"class lookup", "{0,0,0}"}, {"classes", "1"}, {"wavelength units ", "Unknown"}};
    EXPECT_EQ(m.header, expected);
}

TEST(ClassMetadataTest, OneClusterGetsAColourButNoName) {
    const ClassMetadata m = Build(1);
    EXPECT_EQ(m.names, QStringList{"Unclassified"});
    EXPECT_EQ(m.colors, (std::vector<Rgb>{{0, 0, 0}, {255, 0, 0}}));
    const Header expected = {{"class lookup", "{0,0,0,255,0,0}"}, {"classes", "2"}, {"wavelength units ", "Unknown"}};
    EXPECT_EQ(m.header, expected);
}

TEST(ClassMetadataTest, TwoClustersAreNamed) {
    const ClassMetadata m = Build(2);
    EXPECT_EQ(m.names, (QStringList{"Unclassified", "class1", "class2"}));
    EXPECT_EQ(m.header.at("class names"), "{Unclassified,class1,class2}");
}

TEST(ClassMetadataTest, ThreeClustersGiveExactlyTheFourHeaderEntries) {
    const ClassMetadata m = Build(3);
    const Header expected = {{"classes", "4"},
                             {"class names", "{Unclassified,class1,class2,class3}"},
                             {"class lookup", "{0,0,0,255,0,0,0,255,255,0,255,0}"},
                             {"wavelength units ", "Unknown"}};
    EXPECT_EQ(m.header, expected);
    EXPECT_EQ(m.names, (QStringList{"Unclassified", "class1", "class2", "class3"}));
    EXPECT_EQ(m.colors, (std::vector<Rgb>{{0, 0, 0}, {255, 0, 0}, {0, 255, 255}, {0, 255, 0}}));
}

// ---- palette and generated colours ----

TEST(ClassMetadataTest, EighteenClustersTakeThePaletteAndDrawNoRandomNumber) {
    std::srand(1);
    const ClassMetadata m = Build(18);
    const int next = std::rand();
    std::srand(1);
    EXPECT_EQ(next, std::rand());

    ASSERT_EQ(m.colors.size(), 19u);
    EXPECT_EQ(m.colors[0], (Rgb{0, 0, 0}));
    EXPECT_EQ(std::vector<Rgb>(m.colors.begin() + 1, m.colors.end()), kPaletteByHand);
    EXPECT_EQ(m.header.at("class lookup"),
              "{0,0,0,255,0,0,0,255,255,0,255,0,255,0,255,0,0,255,255,255,0,255,128,0,0,128,255,255,0,128,"
              "0,255,127,255,128,128,0,127,127,128,0,0,127,255,255,0,128,0,255,127,255,0,0,128,255,255,127}");
    EXPECT_EQ(m.names.size(), 19);
    EXPECT_EQ(m.names.back(), "class18");
}

TEST(ClassMetadataTest, NineteenthClusterDrawsRedGreenBlueFromTheSharedGenerator) {
    std::srand(7);
    const int red = std::rand() % 255, green = std::rand() % 255, blue = std::rand() % 255;
    const int after = std::rand();
    std::srand(7);
    const ClassMetadata m = Build(19);
    EXPECT_EQ(std::rand(), after);  // exactly three draws

    ASSERT_EQ(m.colors.size(), 20u);
    EXPECT_EQ(m.colors[19], (Rgb{static_cast<std::int16_t>(red), static_cast<std::int16_t>(green),
                                 static_cast<std::int16_t>(blue)}));
    const std::string lookup = m.header.at("class lookup").toStdString();
    const std::string tail =
        "," + std::to_string(red) + "," + std::to_string(green) + "," + std::to_string(blue) + "}";
    EXPECT_EQ(lookup.substr(lookup.size() - tail.size()), tail);
    EXPECT_EQ(m.header.at("classes"), "20");
}

TEST(ClassMetadataTest, GeneratedColoursNeverReach255) {
    std::srand(3);
    const ClassMetadata m = Build(400);
    ASSERT_EQ(m.colors.size(), 401u);
    for (size_t i = 19; i < m.colors.size(); ++i)
        for (int c = 0; c < 3; ++c) {
            EXPECT_GE(m.colors[i][c], 0) << i;
            EXPECT_LT(m.colors[i][c], 255) << i;
        }
    EXPECT_EQ(m.names.back(), "class400");
}

// ---- header path ----

struct HeaderPathCase {
    const char* name;
    const char* resultPath;
    const char* headerPath;
};
void PrintTo(const HeaderPathCase& c, std::ostream* os) { *os << c.name; }

class HeaderPathTest : public ::testing::TestWithParam<HeaderPathCase> {};

TEST_P(HeaderPathTest, CutsAtTheLastDotOfTheWholePath) {
    EXPECT_EQ(BuildClassMetadata(2, QString::fromUtf8(GetParam().resultPath)).headerPath,
              QString::fromUtf8(GetParam().headerPath));
}

INSTANTIATE_TEST_SUITE_P(
    Paths, HeaderPathTest,
    ::testing::Values(HeaderPathCase{"Extension", "out.img", "out.hdr"},
                      HeaderPathCase{"TwoDots", "a/b.c.img", "a/b.c.hdr"},
                      HeaderPathCase{"DotInFolderOnly", "dir.v1/out", "dir.hdr"},
                      HeaderPathCase{"NoDot", "results/out", "results/out.hdr"},
                      HeaderPathCase{"Empty", "", ".hdr"}),
    [](const ::testing::TestParamInfo<HeaderPathCase>& info) { return std::string(info.param.name); });

// ---- attached to a real class raster ----

// Inside the braces of an ENVI header entry, without blanks and line breaks.
std::string HeaderValue(const std::string& header, const std::string& key) {
    const size_t at = header.find("\n" + key);
    if (at == std::string::npos) return "";
    const size_t open = header.find('{', at), close = header.find('}', at);
    if (open == std::string::npos || close == std::string::npos) return "";
    std::string value;
    for (char c : header.substr(open, close - open + 1))
        if (c != ' ' && c != '\n' && c != '\r') value += c;
    return value;
}

class AttachClassMetadataTest : public ::testing::Test {
protected:
    KalUtility::_ptr_t<KalDataSource::RasterDataset> Create() {
        return KalDataSource::DatasetFactory::Instance()->CreateRasterDataset(
            dir.QFile("classes.img"), 4, 3, 1, KalDataSource::PDT_Byte, QStringLiteral("ENVI"));
    }

    void Attach(std::size_t clusters) {
        auto result = Create();
        ASSERT_TRUE(result);
        isodata::AttachClassMetadata(result, BuildClassMetadata(clusters, dir.QFile("classes.img")));
    }  // releasing the last handle writes the header

    TempDir dir;
};

TEST_F(AttachClassMetadataTest, HeaderGetsClassNamesAndLookup) {
    Attach(3);
    const std::string header = testsupport::ReadText(dir.File("classes.hdr"));
    EXPECT_EQ(HeaderValue(header, "class names"), "{Unclassified,class1,class2,class3}");
    EXPECT_EQ(HeaderValue(header, "class lookup"), "{0,0,0,255,0,0,0,255,255,0,255,0}");
}

TEST_F(AttachClassMetadataTest, ReopenedBandHasCategoryNamesAndColours) {
    Attach(3);
    testsupport::RegisterGdal();
    GDALDataset* ds = static_cast<GDALDataset*>(GDALOpen(dir.File("classes.img").c_str(), GA_ReadOnly));
    ASSERT_NE(ds, nullptr);
    GDALRasterBand* band = ds->GetRasterBand(1);
    char** names = band->GetCategoryNames();
    std::vector<std::string> got;
    for (int i = 0; names && names[i]; ++i) got.emplace_back(names[i]);
    EXPECT_EQ(got, (std::vector<std::string>{"Unclassified", "class1", "class2", "class3"}));
    const GDALColorTable* table = band->GetColorTable();
    ASSERT_NE(table, nullptr);
    ASSERT_EQ(table->GetColorEntryCount(), 4);
    const short expected[4][3] = {{0, 0, 0}, {255, 0, 0}, {0, 255, 255}, {0, 255, 0}};
    for (int i = 0; i < 4; ++i) {
        const GDALColorEntry* e = table->GetColorEntry(i);
        EXPECT_EQ(e->c1, expected[i][0]) << i;
        EXPECT_EQ(e->c2, expected[i][1]) << i;
        EXPECT_EQ(e->c3, expected[i][2]) << i;
    }
    GDALClose(ds);
}

TEST_F(AttachClassMetadataTest, SingleClusterBandGetsTwoColoursButOneName) {
    // Checked on the open band: what the file format keeps of a colour table
    // longer than the name list is the data source's business.
    auto result = Create();
    ASSERT_TRUE(result);
    isodata::AttachClassMetadata(result, BuildClassMetadata(1, dir.QFile("classes.img")));
    auto band = result->GetRasterBand(0);
    ASSERT_TRUE(band);
    EXPECT_EQ(band->GetCategoryNames(), QStringList{"Unclassified"});
    const auto table = band->GetColorTable();
    ASSERT_EQ(table->GetCount(), 2);
    EXPECT_EQ(table->GetColorEntry(0)->c1, 0);
    EXPECT_EQ(table->GetColorEntry(1)->c1, 255);
    EXPECT_EQ(table->GetColorEntry(1)->c2, 0);
    EXPECT_EQ(table->GetColorEntry(1)->c3, 0);
}

TEST_F(AttachClassMetadataTest, NineteenClustersGiveTwentyColoursOnTheBand) {
    auto result = Create();
    ASSERT_TRUE(result);
    std::srand(11);
    const ClassMetadata m = BuildClassMetadata(19, dir.QFile("classes.img"));
    isodata::AttachClassMetadata(result, m);
    const auto table = result->GetRasterBand(0)->GetColorTable();
    ASSERT_EQ(table->GetCount(), 20);
    EXPECT_EQ(table->GetColorEntry(18)->c1, 255);  // cluster 18, last of the palette
    EXPECT_EQ(table->GetColorEntry(18)->c3, 127);
    EXPECT_EQ(table->GetColorEntry(19)->c1, m.colors[19][0]);
    EXPECT_EQ(table->GetColorEntry(19)->c2, m.colors[19][1]);
    EXPECT_EQ(table->GetColorEntry(19)->c3, m.colors[19][2]);
    EXPECT_EQ(result->GetRasterBand(0)->GetCategoryNames().size(), 20);
}

} // namespace
