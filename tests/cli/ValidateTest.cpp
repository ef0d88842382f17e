#include "Validate.h"
#include "WorkFiles.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>

namespace fs = std::filesystem;
using isodata_cli::Options;
using isodata_cli::Validation;
using isodata_cli::ValidateRequest;

namespace {

void Touch(const std::string& path, const std::string& text = "x") { std::ofstream(path) << text; }

testsupport::RasterTable ThreeBands() {
    testsupport::RasterTable scene;
    scene.width = 8;
    scene.height = 6;
    scene.bands.assign(3, std::vector<double>(48, 7.0));
    return scene;
}

// A scene.tif of 3 bands in a fresh folder, and options that would classify
// it into out.
class ValidateTest : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::WriteRaster(dir.File("scene.tif"), ThreeBands());
        options.input = dir.File("scene.tif");
        options.output = dir.File("out");
    }

    // Validates and expects a refusal whose message contains every word.
    void ExpectRefused(const std::vector<std::string>& words) {
        const Validation v = ValidateRequest(options);
        ASSERT_FALSE(v.ok) << "accepted";
        for (const std::string& w : words) EXPECT_NE(v.message.find(w), std::string::npos) << v.message;
    }

    testsupport::TempDir dir;
    Options options;
};

TEST_F(ValidateTest, AcceptsASoundRequestAndDescribesTheInput) {
    const Validation v = ValidateRequest(options);
    ASSERT_TRUE(v.ok) << v.message;
    EXPECT_EQ(v.request.width, 8);
    EXPECT_EQ(v.request.height, 6);
    EXPECT_EQ(v.request.inputBandCount, 3);
    EXPECT_EQ(v.request.bandIndices, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(v.request.pluginInputPath, dir.File("scene.tif"));
}

TEST_F(ValidateTest, TurnsBandNumbersIntoZeroBasedIndicesInOrder) {
    options.bands = {3, 1};
    const Validation v = ValidateRequest(options);
    ASSERT_TRUE(v.ok) << v.message;
    EXPECT_EQ(v.request.bandIndices, (std::vector<int>{2, 0}));
}

TEST_F(ValidateTest, LeavesTheFolderAsItWas) {
    options.previewPath = dir.File("p.png");
    ASSERT_TRUE(ValidateRequest(options).ok);
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"scene.tif"}));
}

TEST_F(ValidateTest, RefusesABandTheInputLacks) {
    options.bands = {1, 4};
    ExpectRefused({"-b 4", "scene.tif", "only 3 bands"});
}

TEST_F(ValidateTest, RefusesAMissingInput) {
    options.input = dir.File("nothing.tif");
    ExpectRefused({"nothing.tif", "does not exist"});
}

TEST_F(ValidateTest, RefusesAnInputThatIsNotARaster) {
    Touch(dir.File("notes.txt"), "just words\n");
    options.input = dir.File("notes.txt");
    testsupport::QuietGdalErrors quiet;
    ExpectRefused({"notes.txt", "not a raster"});
}

TEST_F(ValidateTest, RefusesAFolderAsInput) {
    fs::create_directory(dir.File("folder.tif"));
    options.input = dir.File("folder.tif");
    ExpectRefused({"folder.tif", "not a file"});
}

TEST_F(ValidateTest, RefusesWhenTheWorkingCopyNameIsTaken) {
    Touch(dir.File("scene.tiftem.tif"));
    ExpectRefused({"scene.tiftem.tif", "already exists"});
}

TEST_F(ValidateTest, RefusesWhenScratchNamesAreTakenAndNamesThem) {
    Touch(dir.File("scene0.km"));
    Touch(dir.File("scene3.km"));
    ExpectRefused({"scene0.km", "scene3.km", "already exist"});
}

TEST_F(ValidateTest, IgnoresScratchLookalikesOfOtherInputs) {
    Touch(dir.File("scenery0.km"));
    Touch(dir.File("scene.km"));
    EXPECT_TRUE(ValidateRequest(options).ok);
}

TEST_F(ValidateTest, RefusesAMissingOutputFolder) {
    options.output = dir.File("no/such/out");
    ExpectRefused({"output folder", dir.File("no/such"), "does not exist"});
}

TEST_F(ValidateTest, RefusesTheInputAsOutputHoweverSpelt) {
    options.overwrite = true;  // not even -overwrite may replace the input
    for (const std::string& spelling : {dir.File("scene.tif"), dir.Path() + "/./scene.tif"}) {
        options.output = spelling;
        ExpectRefused({"is the input itself"});
    }
    fs::create_symlink(dir.File("scene.tif"), dir.File("alias.tif"));
    options.output = dir.File("alias.tif");
    ExpectRefused({"alias.tif"});
}

TEST_F(ValidateTest, RefusesAnOutputWhoseHeaderIsPartOfTheInput) {
    testsupport::WriteRaster(dir.File("envi.dat"), ThreeBands(), "ENVI");
    options.input = dir.File("envi.dat");
    options.output = dir.File("envi.raw");
    options.overwrite = true;
    ExpectRefused({"envi.raw", "envi.hdr", "part of the input"});
}

TEST_F(ValidateTest, RefusesAnOutputNamedLikeAHeader) {
    options.output = dir.File("out.hdr");
    ExpectRefused({"out.hdr", "own ENVI header"});
}

TEST_F(ValidateTest, RefusesAnOutputThatIsAWorkingFile) {
    options.output = dir.File("scene.tiftem.tif");
    ExpectRefused({"clashes with the working file"});
    options.output = dir.File("scene2.km");
    ExpectRefused({"clashes with the working file"});
}

TEST_F(ValidateTest, RefusesAnExistingOutputUnlessOverwriting) {
    Touch(dir.File("out"));
    ExpectRefused({"out", "already exists", "-overwrite"});
    options.overwrite = true;
    EXPECT_TRUE(ValidateRequest(options).ok);
}

TEST_F(ValidateTest, RefusesWhenOnlyAPieceOfTheOutputExists) {
    Touch(dir.File("out.hdr"));
    ExpectRefused({"out.hdr", "already exists"});
    fs::remove(dir.File("out.hdr"));
    Touch(dir.File("out.aux.xml"));
    ExpectRefused({"out.aux.xml", "already exists"});
}

TEST_F(ValidateTest, RefusesAPreviewThatWouldOverwriteSomething) {
    options.previewPath = dir.File("out.hdr");
    ExpectRefused({"preview", "out.hdr", "part of the output"});
    options.previewPath = dir.File("scene.tif");
    options.overwrite = true;
    ExpectRefused({"preview", "is the input itself"});
    options.overwrite = false;
    Touch(dir.File("old.png"));
    options.previewPath = dir.File("old.png");
    ExpectRefused({"preview", "old.png", "already exists"});
    options.previewPath = dir.File("gone/p.png");
    ExpectRefused({"preview folder", "does not exist"});
}

// Permission bits stop everyone but root; the probe decides whether the
// folder really refuses files, and the test is skipped where it cannot.
class ReadOnlyFolder {
public:
    explicit ReadOnlyFolder(const std::string& path) : path_(path) { chmod(path_.c_str(), 0555); }
    ~ReadOnlyFolder() { chmod(path_.c_str(), 0755); }
    bool Effective() const { return !isodata_cli::FolderIsWritable(path_); }

private:
    std::string path_;
};

TEST_F(ValidateTest, RefusesAnInputFolderThatCannotTakeTheWorkingFiles) {
    fs::create_directory(dir.File("ro"));
    testsupport::WriteRaster(dir.File("ro/scene.tif"), ThreeBands());
    options.input = dir.File("ro/scene.tif");
    ReadOnlyFolder readOnly(dir.File("ro"));
    if (!readOnly.Effective()) GTEST_SKIP() << "permissions are not enforced for this user";
    ExpectRefused({dir.File("ro"), "not writable", "working files"});
}

TEST_F(ValidateTest, RefusesAnOutputFolderThatIsNotWritable) {
    fs::create_directory(dir.File("ro"));
    options.output = dir.File("ro/out");
    ReadOnlyFolder readOnly(dir.File("ro"));
    if (!readOnly.Effective()) GTEST_SKIP() << "permissions are not enforced for this user";
    ExpectRefused({"output folder", dir.File("ro"), "not writable"});
}

TEST_F(ValidateTest, RefusesAnOutputFolderNoOneCanWriteTo) {
    // The kernel's process folder accepts no new files, whoever asks.
    options.output = "/proc/self/out";
    ExpectRefused({"output folder", "/proc/self", "not writable"});
}

// A numeric option out of its range: the message names the option and value.
struct RangeCase {
    std::string name;
    std::function<void(Options&)> set;
    std::string expected;
};

// Test names carry the case's name; keep GoogleTest from dumping its bytes.
void PrintTo(const RangeCase& c, std::ostream* os) { *os << c.name; }

class ParameterRangeTest : public ValidateTest, public ::testing::WithParamInterface<RangeCase> {};

TEST_P(ParameterRangeTest, IsRefusedBeforeAnyFileIsLookedAt) {
    GetParam().set(options);
    options.input = dir.File("absent.tif");  // the numbers are judged first
    ExpectRefused({GetParam().expected, "out of range"});
}

INSTANTIATE_TEST_SUITE_P(
    ValidateTest, ParameterRangeTest,
    ::testing::Values(RangeCase{"noClasses", [](Options& o) { o.classes = 0; }, "-classes 0"},
                      RangeCase{"tooManyClasses", [](Options& o) { o.classes = 256; }, "-classes 256"},
                      RangeCase{"noInitial", [](Options& o) { o.initialClasses = 0; }, "-initial 0"},
                      RangeCase{"negativeInitial", [](Options& o) { o.initialClasses = -4; }, "-initial -4"},
                      RangeCase{"negativeMinSize", [](Options& o) { o.minClassPixels = -1; }, "-min-size -1"},
                      RangeCase{"negativePairs", [](Options& o) { o.maxMergePairs = -2; }, "-merge-pairs -2"},
                      RangeCase{"noIterations", [](Options& o) { o.maxIterations = 0; }, "-iter 0"},
                      RangeCase{"negativeIterations", [](Options& o) { o.maxIterations = -1; }, "-iter -1"},
                      RangeCase{"negativeStd", [](Options& o) { o.stdDevThreshold = -0.5; }, "-std -0.5"},
                      RangeCase{"negativeDistance", [](Options& o) { o.mergeDistance = -3; }, "-merge-dist -3"}),
    [](const ::testing::TestParamInfo<RangeCase>& info) { return info.param.name; });

TEST_F(ValidateTest, RefusesBandZeroAsNumberedFromOne) {
    options.bands = {0};
    ExpectRefused({"-b 0", "numbered from 1"});
}

TEST_F(ValidateTest, AcceptsTheEdgesOfEachRange) {
    options.classes = 255;
    options.initialClasses = 1;
    options.minClassPixels = 0;
    options.maxMergePairs = 0;
    options.maxIterations = 1;
    options.stdDevThreshold = 0.0;
    options.mergeDistance = 0.0;
    const Validation v = ValidateRequest(options);
    EXPECT_TRUE(v.ok) << v.message;
}

} // namespace
