// The isodata binary as a person meets it: exit codes, what goes to stdout
// and stderr, and that a refused or failed run leaves the folder as it was.
// Runs use the stand-in plug-in, so these tests do not depend on the engine.
#include "Subprocess.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>

namespace {

using clitest::ProcessResult;
using clitest::RunProcess;

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class CommandLineTest : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::RasterTable scene;
        scene.width = 6;
        scene.height = 4;
        scene.bands.assign(2, std::vector<double>(24, 50.0));
        testsupport::WriteRaster(dir.File("scene.tif"), scene);
    }

    // isodata with args, run inside the temporary folder.
    ProcessResult Isodata(std::vector<std::string> args, const std::string& fakeMode = "") {
        args.insert(args.begin(), ISODATA_BINARY);
        std::vector<std::string> env;
        if (!fakeMode.empty()) {
            args.insert(args.begin() + 1, {"--plugin", FAKE_PLUGIN_PATH});
            env.push_back("ISODATA_FAKE_MODE=" + fakeMode);
        }
        return RunProcess(args, env, dir.Path());
    }

    testsupport::TempDir dir;
};

TEST_F(CommandLineTest, WithoutArgumentsPrintsUsageToStderr) {
    const ProcessResult r = Isodata({});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.out.empty()) << r.out;
    EXPECT_TRUE(Contains(r.err, "Usage: isodata")) << r.err;
}

TEST_F(CommandLineTest, HelpGoesToStdoutAndSucceeds) {
    const ProcessResult r = Isodata({"--help"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_TRUE(Contains(r.out, "Usage: isodata"));
    EXPECT_TRUE(Contains(r.out, "Exit status"));
    EXPECT_TRUE(r.err.empty()) << r.err;
}

TEST_F(CommandLineTest, VersionNamesTheProgramAndGdal) {
    const ProcessResult r = Isodata({"--version"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out.rfind("isodata ", 0), 0u) << r.out;
    EXPECT_TRUE(Contains(r.out, "GDAL")) << r.out;
}

TEST_F(CommandLineTest, ANonNumericValueIsAUsageError) {
    const ProcessResult r = Isodata({"-classes", "eight", "scene.tif", "out"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(Contains(r.err, "isodata: -classes expects a whole number, got 'eight'")) << r.err;
    EXPECT_TRUE(Contains(r.err, "Usage: isodata")) << r.err;
}

TEST_F(CommandLineTest, ZeroIterationsAreRefused) {
    const ProcessResult r = Isodata({"-iter", "0", "scene.tif", "out"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(Contains(r.err, "-iter 0 is out of range")) << r.err;
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"scene.tif"}));
}

TEST_F(CommandLineTest, AMissingInputIsNamed) {
    const ProcessResult r = Isodata({"absent.tif", "out"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "isodata: input 'absent.tif' does not exist\n");
}

TEST_F(CommandLineTest, AnExistingOutputIsLeftUntouched) {
    std::ofstream(dir.File("out")) << "precious";
    const ProcessResult r = Isodata({"scene.tif", "out"}, "succeed");
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(Contains(r.err, "'out' already exists (use -overwrite to replace it)")) << r.err;
    EXPECT_EQ(testsupport::ReadText(dir.File("out")), "precious");
}

TEST_F(CommandLineTest, ABandBeyondTheInputIsNamed) {
    const ProcessResult r = Isodata({"-b", "3", "scene.tif", "out"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "isodata: -b 3: input 'scene.tif' has only 2 bands\n");
}

TEST_F(CommandLineTest, AFailedClassificationExitsWithTwoAndCleansUp) {
    const ProcessResult r = Isodata({"scene.tif", "out"}, "fail");
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_TRUE(Contains(r.err, "isodata: classification failed\n")) << r.err;
    EXPECT_TRUE(Contains(r.err, "removed the partial result")) << r.err;
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"scene.tif"}));
}

TEST_F(CommandLineTest, AMissingPluginExitsWithTwo) {
    const ProcessResult r = Isodata({"--plugin", dir.File("libmissing.so"), "scene.tif", "out"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_TRUE(Contains(r.err, "cannot load the plug-in")) << r.err;
}

TEST_F(CommandLineTest, ASuccessfulRunPrintsPlainLinesAndASummaryWhenPiped) {
    const ProcessResult r = Isodata({"-preview", "p.png", "scene.tif", "out"}, "succeed");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(r.err.empty()) << r.err;
    EXPECT_FALSE(Contains(r.out, "0...10")) << "terminal progress drawn into a pipe:\n" << r.out;
    EXPECT_TRUE(Contains(r.out, "\niteration 2\n")) << r.out;
    EXPECT_TRUE(Contains(r.out, "3 classes found (8 requested)")) << r.out;
    EXPECT_TRUE(Contains(r.out, "      1           5   41.7%  255   0   0 red           Class 1\n")) << r.out;
    EXPECT_TRUE(Contains(r.out, "Unclassified: 1 pixels")) << r.out;
    EXPECT_TRUE(Contains(r.out, "Preview: p.png")) << r.out;
    EXPECT_TRUE(testsupport::FileExists(dir.File("p.png")));
}

TEST_F(CommandLineTest, QuietPrintsNothingOnSuccess) {
    const ProcessResult r = Isodata({"-q", "scene.tif", "out"}, "succeed");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(r.out.empty()) << r.out;
    EXPECT_TRUE(r.err.empty()) << r.err;
}

TEST_F(CommandLineTest, OverwriteReplacesAPreviousResultAndPreview) {
    ASSERT_EQ(Isodata({"-q", "-preview", "p.png", "scene.tif", "out"}, "succeed").exitCode, 0);
    std::ofstream(dir.File("out.aux.xml")) << "<PAMDataset/>";  // stale metadata of the old result
    const ProcessResult refused = Isodata({"-q", "-preview", "p.png", "scene.tif", "out"}, "succeed");
    EXPECT_EQ(refused.exitCode, 1);
    const ProcessResult r = Isodata({"-q", "-overwrite", "-preview", "p.png", "scene.tif", "out"}, "succeed");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"out", "out.hdr", "p.png", "scene.tif"}));
}

} // namespace
