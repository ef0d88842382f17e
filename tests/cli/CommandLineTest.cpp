// The isodata binary against the stand-in plug-in: what reaches the plug-in,
// and that each refused or failed run exits with its code, says why on
// stderr and leaves the folder exactly as it was; a killed run's folder goes
// with the next run. Interruptions run against the real plug-in (EndToEnd).
#include "Subprocess.h"
#include "support/TestSupport.h"

#include <StageTexts.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>

namespace {

using clitest::ProcessResult;
using Args = std::vector<std::string>;

class CommandLineTest : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::WriteRaster(dir.File("scene.tif"),
                                 {6, 4, GDT_Byte, testsupport::BandValues(2, std::vector<double>(24, 50.0))});
    }

    // isodata with the words of commandLine, run in the test's folder; a
    // --plugin among them overrides the stand-in.
    ProcessResult Isodata(const std::string& commandLine, const std::string& fakeMode = "succeed",
                          const clitest::Interruption& interruption = {}) {
        std::istringstream words(commandLine);
        Args args = {ISODATA_BINARY, "--plugin", FAKE_PLUGIN_PATH};
        args.insert(args.end(), std::istream_iterator<std::string>(words), {});
        return clitest::RunProcess(args, {"ISODATA_FAKE_MODE=" + fakeMode}, dir.Path(), interruption);
    }

    testsupport::TempDir dir;
};

// The defaults and "every band" reach the plug-in as the summary's JSON shows
// them (SummarisesTheResult...); here every value is one a person typed.
TEST_F(CommandLineTest, HandsThePluginTheOptionsWithBandsCountedFromZero) {
    const ProcessResult r = Isodata("-b 2 -b 1 -classes 5 --initial=3 -min-size 0 -merge-pairs 1 -iter 6 -std 2.5 "
                                    "--merge-dist 7.5 -q scene.tif out");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    // The plug-in works on a link to the input inside the run folder.
    EXPECT_EQ(r.out, "inputPath=scene.tif\nresultPath=../result/out\ndesiredClassCount=5\ninitialClassCount=3\n"
                     "minClassPixels=0\nmaxMergePairs=1\nmaxIterations=6\nstdDevThreshold=2.5\n"
                     "mergeDistanceThreshold=7.5\nbandIndices=1,0\n");
}

// A request isodata must turn down or fail: a file made beforehand, the exit
// status, and the words of the one complaint. Prepare's refusals are checked
// field by field in PrepareTest; here the command's own, and a few to show
// how it words the others.
struct Refusal {
    const char* name;
    std::string commandLine;
    std::string existing;
    int exitCode;
    std::string message;
    std::string fakeMode = "succeed";
};

void PrintTo(const Refusal& c, std::ostream* os) { *os << c.name; }
class RefusalTest : public CommandLineTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(RefusalTest, ExitsWithItsCodeAndReasonLeavingTheFolderAlone) {
    std::ofstream(dir.File("out")) << "old";  // an older result, to survive any refusal or failure
    if (!GetParam().existing.empty()) std::ofstream(dir.File(GetParam().existing)) << "x";
    const Args before = dir.List();
    const ProcessResult r = Isodata(GetParam().commandLine, GetParam().fakeMode);
    EXPECT_EQ(r.exitCode, GetParam().exitCode) << r.err;
    EXPECT_NE(r.err.find("isodata: " + GetParam().message), std::string::npos) << r.err;
    EXPECT_EQ(dir.List(), before);
    EXPECT_EQ(testsupport::ReadText(dir.File("out")), "old");
}

INSTANTIATE_TEST_SUITE_P(
    CommandLineTest, RefusalTest,
    ::testing::Values(
        Refusal{"WordForCount", "-classes eight scene.tif new", "", 1, "-classes expects a whole number, got 'eight'"},
        Refusal{"UnknownOption", "-clases 8 scene.tif new", "", 1, "unknown option '-clases'"},
        Refusal{"ValueMissing", "scene.tif new -classes", "", 1, "option -classes needs a value"},
        Refusal{"BandZero", "-b 0 scene.tif new", "", 1, "-b 0 is not a band"},
        Refusal{"ZeroIterations", "-iter 0 scene.tif new", "", 1, "-iter 0 is out of range"},
        Refusal{"ClusteringWithAModel", "-apply m.json -classes 5 scene.tif new", "", 1,
                "-classes cannot go with -apply: the model's classes are applied as they are"},
        Refusal{"ClassesBeyondAByte", "-classes 256 scene.tif new", "", 1,
                "-classes 256 is out of range: between 1 and 255 classes fit a Byte class raster"},
        Refusal{"CreationOptionTheFormatLacks", "-of GTiff -co NONESUCH=1 scene.tif new", "", 1,
                "-co refused: driver GTiff does not support creation option NONESUCH"},
        // The kernel's process folder takes no new file, even from root.
        Refusal{"OutputFolderNotWritable", "scene.tif /proc/self/out", "", 1, "output folder '/proc/self' is not"},
        Refusal{"OutputHeaderExists", "scene.tif new", "new.hdr", 1, "output 'new': 'new.hdr' already exists"},
        // Past the checks, under -overwrite: the old result must survive any failure.
        Refusal{"ClassificationFails", "-overwrite scene.tif out", "", 2, "classification failed\n", "fail"},
        Refusal{"PluginThrows", "-overwrite scene.tif out", "", 2, "classification failed: fake engine exploded",
                "throw"},
        Refusal{"PluginCrashes", "-overwrite scene.tif out", "", 2,
                "classification failed: the plug-in crashed (Aborted)", "crash"},
        Refusal{"GdalErrorDuringRun", "-overwrite scene.tif out", "", 2,
                "classification failed: GDAL: fake read error in 'scene.tif'", "gdal"},
        Refusal{"SuccessWithoutAResult", "-overwrite scene.tif out", "", 2,
                "classification failed: the plug-in reported success but wrote no 'out'", "claim"},
        Refusal{"PluginMissing", "--plugin libnone.so -overwrite scene.tif out", "", 2,
                "cannot load the plug-in 'libnone.so'"}),
    [](const auto& info) { return std::string(info.param.name); });

// A script that asked for JSON gets its failure as JSON too, refusal or failed run.
TEST_F(CommandLineTest, JsonFailuresAreAnObjectOnStdout) {
    const struct { const char* commandLine; const char* fakeMode; const char* error; int exit; } cases[] = {
        {"-json absent.tif new", "succeed", "input 'absent.tif' does not exist", 1},
        {"-json -overwrite scene.tif out", "fail", "classification failed", 2}};
    for (const auto& c : cases) {
        const ProcessResult r = Isodata(c.commandLine, c.fakeMode);
        EXPECT_EQ(r.exitCode, c.exit) << r.err;
        // The stand-in plug-in prints its record on stdout before.
        const std::string object = r.out.substr(std::min(r.out.find("{\n"), r.out.size()));
        const QJsonObject json = QJsonDocument::fromJson(QByteArray::fromStdString(object)).object();
        EXPECT_EQ(json, (QJsonObject{{"error", c.error}, {"exit", c.exit}})) << r.out;
    }
}

// The stand-in's raster has 5, 2 and 4 pixels of classes 1 to 3 and one unclassified.
TEST_F(CommandLineTest, SummarisesTheResultAndOverwriteLeavesNothingOfTheOld) {
    ProcessResult r = Isodata("-preview p.png scene.tif out");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("\n      1           5   41.7%  255   0   0   Class 1\n"), std::string::npos) << r.out;
    // A stale side file of the old result would be taken for a piece of the new one.
    std::ofstream(dir.File("out.aux.xml")) << "<PAMDataset/>";
    r = Isodata("-json -overwrite -preview p.png scene.tif out");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(dir.List(), (Args{"out", "out.hdr", "p.png", "scene.tif"}));
    // The stand-in prints its record first.
    const QJsonObject json = QJsonDocument::fromJson(QByteArray::fromStdString(r.out.substr(r.out.find('{')))).object();
    QJsonArray pixels;
    for (const QJsonValue& c : json["classes"].toArray()) pixels.append(c["pixels"]);
    EXPECT_EQ(pixels, (QJsonArray{5, 2, 4}));
    EXPECT_EQ(json["unclassified"].toInt(), 1);
    EXPECT_EQ(json["parameters"]["b"].toArray(), (QJsonArray{1, 2}));
    EXPECT_EQ(json["parameters"]["preview"].toString(), "p.png");
    // Replaced by another format, the old header goes too: GDAL would open
    // the new file through it.
    r = Isodata("-q -overwrite -of GTiff scene.tif out");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_FALSE(testsupport::FileExists(dir.File("out.hdr")));
}

TEST_F(CommandLineTest, NextRunRemovesTheFolderOfAKilledRun) {
    const ProcessResult killed =
        Isodata("scene.tif out", "hang", {isodata::kStatisticalClassification, SIGKILL, false});
    EXPECT_EQ(killed.exitCode, -1);
    // The classification dies with the command, and only its folder is left.
    const Args left = dir.List();
    ASSERT_EQ(left.size(), 2u);
    EXPECT_EQ(left[0].rfind(".isodata-run-", 0), 0u);
    const ProcessResult next = Isodata("-q scene.tif out");
    EXPECT_EQ(next.exitCode, 0) << next.err;
    EXPECT_NE(next.err.find("isodata: removed the run folder './" + left[0] + "' left by an interrupted run"),
              std::string::npos) << next.err;
    EXPECT_EQ(dir.List(), (Args{"out", "out.hdr", "scene.tif"}));
}

} // namespace
