#include "Options.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

using isodata_cli::Options;
using isodata_cli::ParseArguments;
using isodata_cli::ParseResult;
using isodata_cli::ParseStatus;

namespace {

using Args = std::vector<std::string>;

ParseResult Parse(Args args) { return ParseArguments(args); }

TEST(OptionsTest, TwoFileNamesAloneGiveTheDocumentedDefaults) {
    const ParseResult r = Parse({"in.tif", "out"});
    ASSERT_EQ(r.status, ParseStatus::Run) << r.message;
    const Options& o = r.options;
    EXPECT_EQ(o.input, "in.tif");
    EXPECT_EQ(o.output, "out");
    EXPECT_TRUE(o.bands.empty());
    EXPECT_EQ(o.classes, 8);
    EXPECT_EQ(o.initialClasses, 4);
    EXPECT_EQ(o.minClassPixels, 20);
    EXPECT_EQ(o.maxMergePairs, 2);
    EXPECT_EQ(o.maxIterations, 10);
    EXPECT_DOUBLE_EQ(o.stdDevThreshold, 10.0);
    EXPECT_DOUBLE_EQ(o.mergeDistance, 20.0);
    EXPECT_TRUE(o.previewPath.empty());
    EXPECT_TRUE(o.pluginPath.empty());
    EXPECT_FALSE(o.quiet);
    EXPECT_FALSE(o.overwrite);
}

// The paragraph of --help that documents option, up to the next option.
std::string HelpEntry(const std::string& option) {
    const std::string help = isodata_cli::HelpText();
    const size_t begin = help.find("\n  " + option + " ");
    if (begin == std::string::npos) return {};
    const size_t end = help.find("\n  -", begin + 1);
    return help.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
}

TEST(OptionsTest, HelpStatesTheDefaultsTheParserUses) {
    const Options o = Parse({"in.tif", "out"}).options;
    auto text = [](double v) {
        std::ostringstream s;
        s << v;
        return s.str();
    };
    const std::pair<std::string, std::string> documented[] = {
        {"-classes", text(o.classes)},      {"-initial", text(o.initialClasses)},
        {"-min-size", text(o.minClassPixels)}, {"-merge-pairs", text(o.maxMergePairs)},
        {"-iter", text(o.maxIterations)},   {"-std", text(o.stdDevThreshold)},
        {"-merge-dist", text(o.mergeDistance)},
    };
    for (const auto& [option, value] : documented) {
        const std::string entry = HelpEntry(option);
        ASSERT_FALSE(entry.empty()) << option << " is not in --help";
        EXPECT_NE(entry.find("Default: " + value + "."), std::string::npos) << entry;
    }
    for (const char* option : {"-b", "-preview", "-overwrite", "--plugin", "--version"})
        EXPECT_FALSE(HelpEntry(option).empty()) << option << " is not in --help";
    EXPECT_NE(isodata_cli::HelpText().find("Exit status"), std::string::npos);
}

TEST(OptionsTest, RepeatedBandsKeepTheirOrderAndNumbering) {
    const ParseResult r = Parse({"-b", "4", "in.tif", "-b", "1", "out", "-b", "3"});
    ASSERT_EQ(r.status, ParseStatus::Run) << r.message;
    EXPECT_EQ(r.options.bands, (std::vector<int>{4, 1, 3}));
}

TEST(OptionsTest, DoubleDashEndsOptionsSoFilesMayStartWithADash) {
    const ParseResult r = Parse({"-q", "--", "-in.tif", "-out"});
    ASSERT_EQ(r.status, ParseStatus::Run) << r.message;
    EXPECT_TRUE(r.options.quiet);
    EXPECT_EQ(r.options.input, "-in.tif");
    EXPECT_EQ(r.options.output, "-out");
}

TEST(OptionsTest, HelpAndVersionWinOverMissingFiles) {
    EXPECT_EQ(Parse({"--help"}).status, ParseStatus::Help);
    EXPECT_EQ(Parse({"-q", "-help"}).status, ParseStatus::Help);
    EXPECT_EQ(Parse({"--version"}).status, ParseStatus::Version);
    EXPECT_EQ(isodata_cli::VersionText().rfind("isodata ", 0), 0u);
}

// One option, its value, and how to read back what it set.
struct OptionCase {
    std::string name;
    Args args;
    std::function<void(const Options&)> check;
};

// Test names carry the case's name; keep GoogleTest from dumping its bytes.
void PrintTo(const OptionCase& c, std::ostream* os) { *os << c.name; }

class EveryOptionTest : public ::testing::TestWithParam<OptionCase> {};

TEST_P(EveryOptionTest, SetsItsField) {
    Args args = GetParam().args;
    args.push_back("in.tif");
    args.push_back("out");
    const ParseResult r = ParseArguments(args);
    ASSERT_EQ(r.status, ParseStatus::Run) << r.message;
    GetParam().check(r.options);
}

INSTANTIATE_TEST_SUITE_P(
    OptionsTest, EveryOptionTest,
    ::testing::Values(
        OptionCase{"classes", {"-classes", "12"}, [](const Options& o) { EXPECT_EQ(o.classes, 12); }},
        OptionCase{"initial", {"-initial", "5"}, [](const Options& o) { EXPECT_EQ(o.initialClasses, 5); }},
        OptionCase{"minSize", {"-min-size", "0"}, [](const Options& o) { EXPECT_EQ(o.minClassPixels, 0); }},
        OptionCase{"mergePairs", {"-merge-pairs", "7"}, [](const Options& o) { EXPECT_EQ(o.maxMergePairs, 7); }},
        OptionCase{"iter", {"-iter", "33"}, [](const Options& o) { EXPECT_EQ(o.maxIterations, 33); }},
        OptionCase{"std", {"-std", "4.25"}, [](const Options& o) { EXPECT_DOUBLE_EQ(o.stdDevThreshold, 4.25); }},
        OptionCase{"stdExponent", {"-std", "1e1"}, [](const Options& o) { EXPECT_DOUBLE_EQ(o.stdDevThreshold, 10.0); }},
        OptionCase{"mergeDist", {"-merge-dist", "0.5"}, [](const Options& o) { EXPECT_DOUBLE_EQ(o.mergeDistance, 0.5); }},
        OptionCase{"preview", {"-preview", "q.png"}, [](const Options& o) { EXPECT_EQ(o.previewPath, "q.png"); }},
        OptionCase{"plugin", {"--plugin", "lib/x.so"}, [](const Options& o) { EXPECT_EQ(o.pluginPath, "lib/x.so"); }},
        OptionCase{"quiet", {"-q"}, [](const Options& o) { EXPECT_TRUE(o.quiet); }},
        OptionCase{"quietLong", {"-quiet"}, [](const Options& o) { EXPECT_TRUE(o.quiet); }},
        OptionCase{"overwrite", {"-overwrite"}, [](const Options& o) { EXPECT_TRUE(o.overwrite); }},
        // Range is checked later, with the scene at hand; the parser keeps the number.
        OptionCase{"negativeKept", {"-classes", "-3"}, [](const Options& o) { EXPECT_EQ(o.classes, -3); }},
        OptionCase{"lastWins", {"-iter", "3", "-iter", "4"}, [](const Options& o) { EXPECT_EQ(o.maxIterations, 4); }}),
    [](const ::testing::TestParamInfo<OptionCase>& info) { return info.param.name; });

// A command line the parser must refuse, and words its message must contain.
struct BadCase {
    std::string name;
    Args args;
    std::vector<std::string> expected;
};

void PrintTo(const BadCase& c, std::ostream* os) { *os << c.name; }

class BadCommandLineTest : public ::testing::TestWithParam<BadCase> {};

TEST_P(BadCommandLineTest, IsAUsageErrorNamingTheCulprit) {
    const ParseResult r = ParseArguments(GetParam().args);
    ASSERT_EQ(r.status, ParseStatus::Error);
    for (const std::string& word : GetParam().expected)
        EXPECT_NE(r.message.find(word), std::string::npos) << "'" << word << "' not in: " << r.message;
}

INSTANTIATE_TEST_SUITE_P(
    OptionsTest, BadCommandLineTest,
    ::testing::Values(
        BadCase{"wordForCount", {"-classes", "abc", "in", "out"}, {"-classes", "whole number", "'abc'"}},
        BadCase{"fractionForCount", {"-initial", "3.5", "in", "out"}, {"-initial", "'3.5'"}},
        BadCase{"trailingJunk", {"-iter", "10x", "in", "out"}, {"-iter", "'10x'"}},
        BadCase{"leadingBlank", {"-iter", " 10", "in", "out"}, {"-iter"}},
        BadCase{"emptyCount", {"-min-size", "", "in", "out"}, {"-min-size", "''"}},
        BadCase{"countTooBig", {"-merge-pairs", "99999999999", "in", "out"}, {"-merge-pairs", "'99999999999'"}},
        BadCase{"wordForReal", {"-std", "wide", "in", "out"}, {"-std", "number", "'wide'"}},
        BadCase{"notANumber", {"-merge-dist", "nan", "in", "out"}, {"-merge-dist", "'nan'"}},
        BadCase{"infinite", {"-std", "inf", "in", "out"}, {"-std", "'inf'"}},
        BadCase{"wordForBand", {"-b", "red", "in", "out"}, {"-b", "band number", "'red'"}},
        BadCase{"valueMissing", {"in", "out", "-classes"}, {"-classes", "needs a value"}},
        BadCase{"previewMissing", {"in", "out", "-preview"}, {"-preview", "needs a value"}},
        BadCase{"unknownOption", {"-of", "GTiff", "in", "out"}, {"unknown option", "'-of'"}},
        BadCase{"noFiles", {}, {"no input"}},
        BadCase{"noOutput", {"in.tif"}, {"no output", "'in.tif'"}},
        BadCase{"threeFiles", {"a", "b", "c"}, {"too many", "'c'"}}),
    [](const ::testing::TestParamInfo<BadCase>& info) { return info.param.name; });

} // namespace
