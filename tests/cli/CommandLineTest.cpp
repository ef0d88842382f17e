// The isodata binary against the stand-in plug-in: what reaches the plug-in,
// and that each refused, failed or interrupted run exits with its code, says
// why on stderr and leaves the folder exactly as it was.
#include "Subprocess.h"
#include "support/TestSupport.h"

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
        testsupport::RasterTable scene;
        scene.width = 6;
        scene.height = 4;
        scene.bands.assign(2, std::vector<double>(24, 50.0));
        testsupport::WriteRaster(dir.File("scene.tif"), scene);
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

    // An older result the run must not touch unless it succeeds.
    void PutOldOutput() { std::ofstream(dir.File("out")) << "old"; }
    void ExpectUntouched(const Args& before) {
        EXPECT_EQ(dir.List(), before);
        if (testsupport::FileExists(dir.File("out"))) {
            EXPECT_EQ(testsupport::ReadText(dir.File("out")), "old");
        }
    }

    testsupport::TempDir dir;
};

TEST_F(CommandLineTest, HandsThePluginTheOptionsWithBandsCountedFromZero) {
    const std::pair<std::string, std::string> cases[] = {
        // Every band when -b is absent, and the defaults an 8-bit scene calls for.
        {"", "desiredClassCount=8\ninitialClassCount=4\nminClassPixels=20\nmaxMergePairs=2\nmaxIterations=10\n"
             "stdDevThreshold=10\nmergeDistanceThreshold=20\nbandIndices=0,1\n"},
        {"-b 2 -b 1 -classes 5 --initial=3 -min-size 0 -merge-pairs 1 -iter 6 -std 2.5 --merge-dist 7.5",
         "desiredClassCount=5\ninitialClassCount=3\nminClassPixels=0\nmaxMergePairs=1\nmaxIterations=6\n"
         "stdDevThreshold=2.5\nmergeDistanceThreshold=7.5\nbandIndices=1,0\n"}};
    for (const auto& [options, record] : cases) {
        const ProcessResult r = Isodata(options + " -q -overwrite scene.tif out");
        EXPECT_EQ(r.exitCode, 0) << r.err;
        // The plug-in works on a link to the input inside the run folder.
        EXPECT_EQ(r.out, "inputPath=scene.tif\nresultPath=../result/out\n" + record);
    }
}

// A request isodata must turn down or fail: a file made beforehand, the exit
// status, and the words of the one complaint.
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
    PutOldOutput();
    if (!GetParam().existing.empty()) std::ofstream(dir.File(GetParam().existing)) << "x";
    const Args before = dir.List();
    const ProcessResult r = Isodata(GetParam().commandLine, GetParam().fakeMode);
    EXPECT_EQ(r.exitCode, GetParam().exitCode) << r.err;
    EXPECT_NE(r.err.find("isodata: " + GetParam().message), std::string::npos) << r.err;
    ExpectUntouched(before);
}

INSTANTIATE_TEST_SUITE_P(
    CommandLineTest, RefusalTest,
    ::testing::Values(
        Refusal{"WordForCount", "-classes eight scene.tif new", "", 1, "-classes expects a whole number, got 'eight'"},
        Refusal{"UnknownOption", "-clases 8 scene.tif new", "", 1, "unknown option '-clases'"},
        Refusal{"ValueMissing", "scene.tif new -classes", "", 1, "option -classes needs a value"},
        Refusal{"MissingInput", "absent.tif new", "", 1, "input 'absent.tif' does not exist"},
        Refusal{"InputNotARaster", "notes.txt new", "notes.txt", 1, "input 'notes.txt' is not a raster"},
        Refusal{"BandTheInputLacks", "-b 3 scene.tif new", "", 1, "-b 3: input 'scene.tif' has only 2 bands"},
        Refusal{"BandZero", "-b 0 scene.tif new", "", 1, "-b 0 is not a band"},
        Refusal{"ZeroIterations", "-iter 0 scene.tif new", "", 1, "-iter 0 is out of range"},
        Refusal{"OutputFolderMissing", "scene.tif no/new", "", 1, "output folder 'no' does not exist"},
        // The kernel's process folder takes no new file, even from root.
        Refusal{"OutputFolderNotWritable", "scene.tif /proc/self/out", "", 1, "output folder '/proc/self' is not"},
        Refusal{"TmpDirMissing", "--tmpdir nowhere scene.tif new", "", 1, "--tmpdir 'nowhere' is not a folder"},
        Refusal{"OutputIsTheInput", "-overwrite scene.tif ./scene.tif", "", 1, "output './scene.tif' is the input"},
        Refusal{"OutputExists", "scene.tif out", "", 1, "output 'out' already exists (use -overwrite"},
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

TEST_F(CommandLineTest, SummarisesTheResultAndOverwriteLeavesNothingOfTheOld) {
    ProcessResult r = Isodata("-preview p.png scene.tif out");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    // Piped output gets one plain line per stage or round, not drawn bars.
    EXPECT_NE(r.out.find("\nStatistical classification\niteration 1\niteration 2\nGenerate result file\n"),
              std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\n      1           5   41.7%  255   0   0   Class 1\n"), std::string::npos) << r.out;
    // A stale side file of the old result would be taken for a piece of the new one.
    std::ofstream(dir.File("out.aux.xml")) << "<PAMDataset/>";
    r = Isodata("-q -overwrite -preview p.png scene.tif out");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(dir.List(), (Args{"out", "out.hdr", "p.png", "scene.tif"}));
}

// Ctrl-C reaches the whole process group; kill(1) only the command.
struct Stop {
    const char* name;
    int signal;
    bool toGroup;
    int exitCode;
};
void PrintTo(const Stop& c, std::ostream* os) { *os << c.name; }
class InterruptionTest : public CommandLineTest, public ::testing::WithParamInterface<Stop> {};

TEST_P(InterruptionTest, EndsTheRunAndChangesNothing) {
    PutOldOutput();
    const Args before = dir.List();
    const ProcessResult r = Isodata("-overwrite scene.tif out", "hang",
                                    {"Statistical classification", GetParam().signal, GetParam().toGroup});
    EXPECT_EQ(r.exitCode, GetParam().exitCode) << r.err;
    EXPECT_NE(r.err.find("isodata: interrupted by SIG"), std::string::npos) << r.err;
    ExpectUntouched(before);
}

INSTANTIATE_TEST_SUITE_P(CommandLineTest, InterruptionTest,
                         ::testing::Values(Stop{"CtrlC", SIGINT, true, 130}, Stop{"Term", SIGTERM, false, 143},
                                           Stop{"HangUp", SIGHUP, false, 129}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(CommandLineTest, NextRunRemovesTheFolderOfAKilledRun) {
    const ProcessResult killed = Isodata("scene.tif out", "hang", {"Statistical classification", SIGKILL, false});
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
