#include "WorkFiles.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;
using namespace isodata_cli;

namespace {

void Touch(const std::string& path) { std::ofstream(path) << "x"; }

// Runs a test body from inside a folder, since several rules depend on how a
// path is spelt relative to the current folder.
class InFolder {
public:
    explicit InFolder(const std::string& folder) : previous_(fs::current_path()) { fs::current_path(folder); }
    ~InFolder() { fs::current_path(previous_); }

private:
    fs::path previous_;
};

struct ScratchCase {
    std::string name;
    std::string input;
    std::string temporary;
    std::string scratch2;
};

// Test names carry the case's name; keep GoogleTest from dumping its bytes.
void PrintTo(const ScratchCase& c, std::ostream* os) { *os << c.name; }

class ScratchNameTest : public ::testing::TestWithParam<ScratchCase> {};

TEST_P(ScratchNameTest, FollowsThePluginsNamingRule) {
    EXPECT_EQ(TemporaryPathFor(GetParam().input), GetParam().temporary);
    EXPECT_EQ(ScratchFileFor(GetParam().input, 2), GetParam().scratch2);
}

INSTANTIATE_TEST_SUITE_P(
    WorkFilesTest, ScratchNameTest,
    ::testing::Values(ScratchCase{"extension", "d/scene.tif", "d/scene.tiftem.tif", "d/scene2.km"},
                      ScratchCase{"twoDots", "d/scene.b1.tif", "d/scene.b1.tiftem.tif", "d/scene.b12.km"},
                      ScratchCase{"noDot", "d/scene", "d/scenetem.tif", "d/scene2.km"},
                      // The cut is at the last dot of the whole path, folder or not.
                      ScratchCase{"dottedFolder", "a.b/scene", "a.b/scenetem.tif", "a2.km"}),
    [](const ::testing::TestParamInfo<ScratchCase>& info) { return info.param.name; });

struct ResultCase {
    std::string name;
    std::string output;
    ResultFiles expected;
};

void PrintTo(const ResultCase& c, std::ostream* os) { *os << c.name; }

class ResultNameTest : public ::testing::TestWithParam<ResultCase> {};

TEST_P(ResultNameTest, MatchesGdalEnviNaming) {
    const ResultFiles f = ResultFilesFor(GetParam().output);
    EXPECT_EQ(f.All(), GetParam().expected.All());
}

INSTANTIATE_TEST_SUITE_P(
    WorkFilesTest, ResultNameTest,
    ::testing::Values(
        ResultCase{"bare", "o/classes", {"o/classes", "o/classes.hdr", "o/classes.aux.xml", "o/classes_rpc.txt", "o/classes.rpb"}},
        ResultCase{"extension", "o/classes.img", {"o/classes.img", "o/classes.hdr", "o/classes.img.aux.xml", "o/classes_rpc.txt", "o/classes.rpb"}},
        ResultCase{"dottedFolder", "o.d/classes", {"o.d/classes", "o.d/classes.hdr", "o.d/classes.aux.xml", "o.d/classes_rpc.txt", "o.d/classes.rpb"}}),
    [](const ::testing::TestParamInfo<ResultCase>& info) { return info.param.name; });

class WorkFilesTest : public ::testing::Test {
protected:
    testsupport::TempDir dir;
};

TEST_F(WorkFilesTest, FindsOnlyScratchFilesOfThisInput) {
    for (const char* name : {"scene0.km", "scene17.km", "scenery1.km", "scene.km", "scene1.kmz", "other3.km"})
        Touch(dir.File(name));
    EXPECT_EQ(ExistingScratchFiles(dir.File("scene.tif")),
              (std::vector<std::string>{dir.File("scene0.km"), dir.File("scene17.km")}));
    EXPECT_TRUE(ExistingScratchFiles(dir.File("clean.tif")).empty());
}

TEST_F(WorkFilesTest, RecognisesScratchNamesOnlyInTheirFolder) {
    const std::string input = dir.File("scene.tif");
    EXPECT_TRUE(IsScratchFileFor(dir.File("scene0.km"), input));
    EXPECT_TRUE(IsScratchFileFor(dir.File("scene255.km"), input));
    EXPECT_FALSE(IsScratchFileFor(dir.File("scene.km"), input));
    EXPECT_FALSE(IsScratchFileFor(dir.File("scenex1.km"), input));
    EXPECT_FALSE(IsScratchFileFor(dir.File("sub/scene0.km"), input));
}

TEST_F(WorkFilesTest, PluginPathKeepsScratchFilesBesideTheInput) {
    fs::create_directory(dir.File("sub"));
    InFolder here(dir.File("sub"));
    // "./scene" would cut at the leading dot and name the scratch files "0.km".
    EXPECT_EQ(PluginInputPath("./scene"), "scene");
    EXPECT_EQ(PluginInputPath("scene.tif"), "scene.tif");
    EXPECT_EQ(PluginInputPath("../sub/scene.tif"), "../sub/scene.tif");
    // "../sub/scene" would cut inside ".."; the path relative to here has no dot.
    EXPECT_EQ(PluginInputPath("../sub/scene"), "scene");
}

TEST_F(WorkFilesTest, ExtensionlessInputInDottedFolderFallsBackToTheAbsolutePath) {
    fs::create_directory(dir.File("v1.2"));
    const std::string input = dir.File("v1.2/scene");
    const std::string chosen = PluginInputPath(input);
    EXPECT_EQ(chosen, fs::path(input).lexically_normal().string());
    EXPECT_TRUE(SamePath(ScratchFolderFor(chosen), dir.Path()));
}

TEST_F(WorkFilesTest, SamePathSeesThroughSpellingsAndLinks) {
    Touch(dir.File("a.tif"));
    fs::create_symlink(dir.File("a.tif"), dir.File("link.tif"));
    EXPECT_TRUE(SamePath(dir.File("a.tif"), dir.Path() + "/./a.tif"));
    EXPECT_TRUE(SamePath(dir.File("a.tif"), dir.File("link.tif")));
    EXPECT_TRUE(SamePath(dir.File("new"), dir.Path() + "/x/../new"));
    EXPECT_FALSE(SamePath(dir.File("a.tif"), dir.File("b.tif")));
}

TEST_F(WorkFilesTest, WritableFolderProbeLeavesNothingBehind) {
    EXPECT_TRUE(FolderIsWritable(dir.Path()));
    EXPECT_TRUE(dir.List().empty());
    EXPECT_FALSE(FolderIsWritable(dir.File("missing")));
}

} // namespace
