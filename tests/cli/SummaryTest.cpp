#include "Summary.h"

#include "ClassRaster.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

using namespace isodata_cli;

namespace {

// 5 x 2 pixels: class 1 three times, class 3 four times (class 2 is named
// but empty, as after a merge), and three unclassified pixels.
clitest::ClassRasterContent FiveByTwo() {
    clitest::ClassRasterContent content;
    content.width = 5;
    content.height = 2;
    content.pixels = {1, 3, 3, 0, 1,
                   0, 3, 3, 1, 0};
    content.colours = {{0, 0, 0, 255}, {250, 10, 10, 255}, {0, 120, 0, 255}, {20, 20, 240, 255}};
    content.names = {"Unclassified", "Class 1", "Class 2", "Class 3"};
    return content;
}

class SummaryTest : public ::testing::Test {
protected:
    void SetUp() override { clitest::WriteClassRaster(dir.File("classes"), FiveByTwo()); }

    testsupport::TempDir dir;
};

TEST_F(SummaryTest, CountsEveryClassFromTheRaster) {
    ResultSummary s;
    std::string error;
    ASSERT_TRUE(SummariseResult(dir.File("classes"), s, error)) << error;
    EXPECT_EQ(s.width, 5);
    EXPECT_EQ(s.height, 2);
    EXPECT_EQ(s.unclassified, 3);
    ASSERT_EQ(s.classes.size(), 3u);
    EXPECT_EQ(s.classes[0].value, 1);
    EXPECT_EQ(s.classes[0].pixels, 3);
    EXPECT_EQ(s.classes[0].name, "Class 1");
    EXPECT_EQ(s.classes[1].value, 2);
    EXPECT_EQ(s.classes[1].pixels, 0);
    EXPECT_EQ(s.classes[2].value, 3);
    EXPECT_EQ(s.classes[2].pixels, 4);
    EXPECT_EQ(s.ClassesFound(), 2);
}

TEST_F(SummaryTest, TakesEachClassColourFromTheColourTable) {
    ResultSummary s;
    std::string error;
    ASSERT_TRUE(SummariseResult(dir.File("classes"), s, error)) << error;
    ASSERT_EQ(s.classes.size(), 3u);
    EXPECT_TRUE(s.classes[2].hasColour);
    EXPECT_EQ(s.classes[2].red, 20);
    EXPECT_EQ(s.classes[2].green, 20);
    EXPECT_EQ(s.classes[2].blue, 240);
}

TEST_F(SummaryTest, ListsUnnamedValuesThatHavePixels) {
    clitest::ClassRasterContent content;
    content.width = 3;
    content.height = 1;
    content.pixels = {7, 7, 200};
    clitest::WriteClassRaster(dir.File("bare"), content);
    ResultSummary s;
    std::string error;
    ASSERT_TRUE(SummariseResult(dir.File("bare"), s, error)) << error;
    ASSERT_EQ(s.classes.size(), 2u);
    EXPECT_EQ(s.classes[0].value, 7);
    EXPECT_EQ(s.classes[0].pixels, 2);
    EXPECT_FALSE(s.classes[0].hasColour);
    EXPECT_EQ(s.classes[1].value, 200);
    EXPECT_EQ(s.classes[1].pixels, 1);
}

TEST_F(SummaryTest, CountsAcrossManyStripsOfRows) {
    // Taller than one read strip of a wide raster, so the strip loop must add up.
    clitest::ClassRasterContent content;
    content.width = 4096;
    content.height = 2100;
    content.pixels.assign(static_cast<size_t>(content.width) * content.height, 2);
    for (int x = 0; x < content.width; ++x) content.pixels[static_cast<size_t>(content.height - 1) * content.width + x] = 5;
    clitest::WriteClassRaster(dir.File("tall"), content);
    ResultSummary s;
    std::string error;
    ASSERT_TRUE(SummariseResult(dir.File("tall"), s, error)) << error;
    ASSERT_EQ(s.classes.size(), 2u);
    EXPECT_EQ(s.classes[0].pixels, 4096LL * 2099);
    EXPECT_EQ(s.classes[1].pixels, 4096);
}

TEST_F(SummaryTest, ReportsAnUnreadableResult) {
    ResultSummary s;
    std::string error;
    testsupport::QuietGdalErrors quiet;
    EXPECT_FALSE(SummariseResult(dir.File("missing"), s, error));
    EXPECT_NE(error.find("missing"), std::string::npos) << error;
}

TEST_F(SummaryTest, FormatsATableWithFiguresColoursAndPaths) {
    ResultSummary s;
    std::string error;
    ASSERT_TRUE(SummariseResult(dir.File("classes"), s, error)) << error;
    SummaryContext context;
    context.output = "o/classes";
    context.header = "o/classes.hdr";
    context.preview = "o/p.png";
    context.requestedClasses = 4;
    context.seconds = 1.25;
    const std::string text = FormatSummary(s, context);
    EXPECT_NE(text.find("2 classes found (4 requested) in 1.2 s."), std::string::npos) << text;
    EXPECT_NE(text.find("      1           3   30.0%  250  10  10 red           Class 1\n"), std::string::npos) << text;
    EXPECT_NE(text.find("      2           0    0.0%    0 120   0 dark green    Class 2\n"), std::string::npos) << text;
    EXPECT_NE(text.find("      3           4   40.0%   20  20 240 blue          Class 3\n"), std::string::npos) << text;
    EXPECT_NE(text.find("Unclassified: 3 pixels (30.0%)"), std::string::npos) << text;
    EXPECT_NE(text.find("o/classes (ENVI, 5 x 2, header o/classes.hdr)"), std::string::npos) << text;
    EXPECT_NE(text.find("Preview: o/p.png"), std::string::npos) << text;
}

TEST_F(SummaryTest, SpeaksOfASingleClassInTheSingular) {
    ResultSummary s;
    s.width = 1;
    s.height = 1;
    s.classes.push_back({1, "", 1, false, 0, 0, 0});
    EXPECT_EQ(FormatSummary(s, {}).rfind("1 class found (0 requested)", 0), 0u) << FormatSummary(s, {});
}

struct ColourCase {
    int red, green, blue;
    std::string name;
};

void PrintTo(const ColourCase& c, std::ostream* os) {
    *os << c.red << "," << c.green << "," << c.blue << " is " << c.name;
}

class RoughColourNameTest : public ::testing::TestWithParam<ColourCase> {};

TEST_P(RoughColourNameTest, NamesTheNearestBasicColour) {
    EXPECT_EQ(RoughColourName(GetParam().red, GetParam().green, GetParam().blue), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(SummaryTest, RoughColourNameTest,
                         ::testing::Values(ColourCase{0, 0, 0, "black"}, ColourCase{250, 250, 250, "white"},
                                           ColourCase{120, 125, 130, "grey"}, ColourCase{230, 20, 30, "red"},
                                           ColourCase{10, 240, 20, "green"}, ColourCase{0, 100, 0, "dark green"},
                                           ColourCase{10, 10, 230, "blue"}, ColourCase{0, 0, 110, "navy"},
                                           ColourCase{240, 240, 20, "yellow"}, ColourCase{20, 240, 240, "cyan"},
                                           ColourCase{240, 20, 240, "magenta"}, ColourCase{255, 160, 10, "orange"},
                                           ColourCase{140, 70, 10, "brown"}, ColourCase{0, 128, 255, "azure"},
                                           ColourCase{255, 0, 128, "rose"}, ColourCase{127, 255, 255, "light cyan"}));

} // namespace
