#include "Run.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

using namespace isodata_cli;

namespace {

// Sets an environment variable for the life of the object.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value) : name_(name) { setenv(name, value.c_str(), 1); }
    ~ScopedEnv() { unsetenv(name_); }

private:
    const char* name_;
};

std::map<std::string, std::string> ReadRecordDump(const std::string& path) {
    std::map<std::string, std::string> fields;
    std::istringstream in(testsupport::ReadText(path));
    for (std::string line; std::getline(in, line);) {
        const size_t eq = line.find('=');
        if (eq != std::string::npos) fields[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return fields;
}

// A run through the stand-in plug-in, whose behaviour each test picks.
class RunTest : public ::testing::Test {
protected:
    void SetUp() override {
        options.input = dir.File("scene.tif");
        options.output = dir.File("out");
        request.pluginInputPath = options.input;
        request.bandIndices = {0, 1, 2};
    }

    RunOutcome Run(const std::string& mode, const std::string& plugin = FAKE_PLUGIN_PATH) {
        ScopedEnv env("ISODATA_FAKE_MODE", mode);
        ProgressPrinter printer(progress, ProgressStyle::Lines);
        return RunClassification(plugin, BuildRecord(options, request), printer);
    }

    testsupport::TempDir dir;
    Options options;
    CheckedRequest request;
    std::ostringstream progress;
};

TEST_F(RunTest, HandsThePluginTheRecordBuiltFromTheOptions) {
    options.classes = 5;
    options.initialClasses = 4;
    options.minClassPixels = 9;
    options.maxMergePairs = 3;
    options.maxIterations = 6;
    options.stdDevThreshold = 2.5;
    options.mergeDistance = 7.5;
    request.bandIndices = {2, 0};
    ScopedEnv dump("ISODATA_FAKE_RECORD", dir.File("record.txt"));
    const RunOutcome outcome = Run("succeed");
    ASSERT_TRUE(outcome.ok) << outcome.message;
    const auto fields = ReadRecordDump(dir.File("record.txt"));
    EXPECT_EQ(fields.at("inputPath"), dir.File("scene.tif"));
    EXPECT_EQ(fields.at("resultPath"), dir.File("out"));
    EXPECT_EQ(fields.at("desiredClassCount"), "5");
    EXPECT_EQ(fields.at("initialClassCount"), "4");
    EXPECT_EQ(fields.at("minClassPixels"), "9");
    EXPECT_EQ(fields.at("maxMergePairs"), "3");
    EXPECT_EQ(fields.at("maxIterations"), "6");
    EXPECT_EQ(fields.at("stdDevThreshold"), "2.5");
    EXPECT_EQ(fields.at("mergeDistanceThreshold"), "7.5");
    EXPECT_EQ(fields.at("bandIndices"), "2,0");
}

TEST_F(RunTest, RelaysProgressToThePrinter) {
    ASSERT_TRUE(Run("succeed").ok);
    EXPECT_EQ(progress.str(),
              "ISOData Is Runing...\nSelect Initial Cluster Center\nStatistical classification\niteration 1\n"
              "iteration 2\nGenerate result file\n");
}

TEST_F(RunTest, KeepsTheResultOfASuccessfulRun) {
    const RunOutcome outcome = Run("succeed");
    ASSERT_TRUE(outcome.ok) << outcome.message;
    EXPECT_TRUE(outcome.removed.empty());
    EXPECT_TRUE(testsupport::FileExists(dir.File("out")));
    EXPECT_TRUE(testsupport::FileExists(dir.File("out.hdr")));
    EXPECT_GE(outcome.seconds, 0.0);
}

TEST_F(RunTest, RemovesThePartialResultOfAFailedRun) {
    const RunOutcome outcome = Run("fail");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.message, "classification failed");
    EXPECT_EQ(outcome.removed, (std::vector<std::string>{dir.File("out"), dir.File("out.hdr")}));
    EXPECT_TRUE(dir.List().empty());
}

TEST_F(RunTest, LeavesFilesThatExistedBeforeTheRun) {
    std::ofstream(dir.File("out.hdr")) << "the user's own header\n";
    const RunOutcome outcome = Run("fail");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.removed, (std::vector<std::string>{dir.File("out")}));
    EXPECT_TRUE(testsupport::FileExists(dir.File("out.hdr")));
}

TEST_F(RunTest, DoesNotTrustASuccessWithoutAResult) {
    const RunOutcome outcome = Run("claim");
    EXPECT_FALSE(outcome.ok);
    EXPECT_NE(outcome.message.find("wrote no"), std::string::npos) << outcome.message;
}

TEST_F(RunTest, ReportsAnExceptionFromThePlugin) {
    const RunOutcome outcome = Run("throw");
    EXPECT_FALSE(outcome.ok);
    EXPECT_NE(outcome.message.find("fake engine exploded"), std::string::npos) << outcome.message;
}

TEST_F(RunTest, ReportsAPluginThatCannotBeLoaded) {
    const RunOutcome outcome = Run("succeed", dir.File("libnothing.so"));
    EXPECT_FALSE(outcome.ok);
    EXPECT_NE(outcome.message.find("cannot load the plug-in"), std::string::npos) << outcome.message;
    EXPECT_NE(outcome.message.find("libnothing.so"), std::string::npos) << outcome.message;
}

TEST_F(RunTest, ReportsALibraryThatIsNotAPlugin) {
    const RunOutcome outcome = Run("succeed", NOT_A_PLUGIN_PATH);
    EXPECT_FALSE(outcome.ok);
    EXPECT_NE(outcome.message.find("no GetAlgoObj"), std::string::npos) << outcome.message;
}

TEST_F(RunTest, OverwriteClearsEveryPieceOfAnOldResult) {
    for (const char* name : {"out", "out.hdr", "out.aux.xml", "out_rpc.txt", "keep.txt"})
        std::ofstream(dir.File(name)) << "old";
    std::string error;
    ASSERT_TRUE(RemoveResult(dir.File("out"), error)) << error;
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"keep.txt"}));
}

} // namespace
