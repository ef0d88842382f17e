// isodata with the real plug-in, found beside the binary as in an install:
// the class raster must be the one a run in place gives, bit for bit, also
// when the run folder is on another file system; every stage shows up in
// the progress; runs at the same time must not disturb each other; and a
// full disk, a damaged input or an interruption must end in a clear failure
// that changes nothing.
#include "Subprocess.h"
#include "support/TestSupport.h"

#include <OptionTable.h>
#include <PluginRun.h>
#include <StageTexts.h>

#include <cpl_conv.h>
#include <cpl_string.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <thread>
#include <tuple>

namespace {

using clitest::ProcessResult;
using Args = std::vector<std::string>;
namespace fs = std::filesystem;

using clitest::Isodata;

// Three bands of smooth gradients with a ripple: enough structure for every
// stage to have work, no two runs of different inputs alike.
testsupport::RasterTable Scene(int width, int height) {
    const std::vector<double> band(static_cast<size_t>(width) * height);
    testsupport::RasterTable scene{width, height, GDT_Byte, testsupport::BandValues(3, band)};
    for (int b = 0; b < 3; ++b)
        for (int i = 0; i < width * height; ++i)
            scene.bands[b][i] = (i % width * (b + 1) + i / width * (3 - b) + i % 7 * 5) % 251;
    return scene;
}

// The plug-in loaded and run with the command's defaults on the input where
// it lies, as a host would.
std::string InPlace(const std::string& input, const std::string& result) {
    const isodata_cli::Options o = isodata_cli::DefaultOptions();
    isodata_run::RunRequest request;
    request.classification = {o.classes,       o.initialClasses,  o.minClassPixels, o.maxMergePairs,
                              o.maxIterations, o.stdDevThreshold, o.mergeDistance,  {0, 1, 2}};
    std::string error;
    const auto plugin = isodata_run::PluginLibrary::Open(ISODATA_PLUGIN, error);
    if (!plugin) {
        ADD_FAILURE() << error;
        return {};
    }
    isodata_run::RunListener silent;
    const auto run = isodata_run::RunPlugin(*plugin, isodata_run::BuildRecord(request, input, result),
                                            isodata_run::BuildOptions(request), silent);
    EXPECT_EQ(run.outcome, isodata_run::PluginOutcome::Ok) << run.Describe();
    return testsupport::ReadText(result);
}

// mount <how> <folder> for the guard's life; mounting needs root.
struct Mount {
    Mount(const std::string& where, const std::string& how) : folder(where) {
        fs::create_directories(folder);
        made = std::system(("mount " + how + " '" + folder + "' 2>/dev/null").c_str()) == 0;
    }
    ~Mount() {
        if (made) std::system(("umount '" + folder + "'").c_str());
    }
    std::string folder;
    bool made;
};

// Where the input lies, where the run folder goes and what is written: every
// case must give the class raster of a run in place, with its colours, names
// and place, and a preview of exactly its pixels. Overviews change which
// pixels the reduced working copy gets, so they must be seen from the run
// folder too; on another file system the result is copied into place.
enum class Case { Plain, ExternalOverviews, Zipped, TmpdirOnAnotherFileSystem, GTiff, COG };
const char* const kCaseNames[] = {"Plain", "ExternalOverviews", "Zipped", "TmpdirOnAnotherFileSystem", "GTiff", "COG"};
class SameAsInPlaceTest : public ::testing::TestWithParam<Case> {};

TEST_P(SameAsInPlaceTest, GivesTheClassRasterOfARunInPlace) {
    testsupport::TempDir dir;
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(300, 220));
    if (GetParam() == Case::ExternalOverviews) {
        GDALDatasetUniquePtr ds(GDALDataset::Open(dir.File("scene.tif").c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
        const int levels[] = {2, 4};
        ASSERT_EQ(ds->BuildOverviews("AVERAGE", 2, levels, 0, nullptr, nullptr, nullptr), CE_None);
    }
    InPlace(dir.File("scene.tif"), dir.File("inplace"));
    std::string input = dir.File("scene.tif");
    if (GetParam() == Case::Zipped) {
        ASSERT_EQ(CPLCopyFile(("/vsizip/" + dir.File("scene.zip") + "/scene.tif").c_str(), input.c_str()), 0);
        input = "/vsizip/scene.zip/scene.tif";
    }
    Args args = {"-q", "-preview", "p.png", input, "classes"};
    const bool converted = GetParam() == Case::GTiff || GetParam() == Case::COG;
    if (converted) args.insert(args.begin(), {"-of", kCaseNames[static_cast<int>(GetParam())]});
    std::optional<Mount> tmp;
    if (GetParam() == Case::TmpdirOnAnotherFileSystem) {
        tmp.emplace(dir.File("tmp"), "-t tmpfs -o size=64m tmpfs");
        if (!tmp->made) {
            GTEST_SKIP() << "mounting a tmpfs for --tmpdir needs root; publishing across file systems is not tried";
        }
        args.insert(args.begin(), {"--tmpdir", "tmp"});
    }
    const ProcessResult r = Isodata(dir.Path(), args);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::vector<double> pixels = testsupport::ReadBand(dir.File("classes"));
    EXPECT_EQ(pixels, testsupport::ReadBand(dir.File("inplace")));
    EXPECT_EQ(testsupport::ReadBand(dir.File("p.png")), pixels);

    GDALDatasetUniquePtr envi(GDALDataset::Open(dir.File("inplace").c_str(), GDAL_OF_RASTER));
    GDALDatasetUniquePtr out(GDALDataset::Open(dir.File("classes").c_str(), GDAL_OF_RASTER));
    ASSERT_TRUE(envi && out);
    // A COG is a GeoTIFF that says so in its layout.
    EXPECT_STREQ(out->GetDriver()->GetDescription(), converted ? "GTiff" : "ENVI");
    if (GetParam() == Case::COG) {
        EXPECT_STREQ(out->GetMetadataItem("LAYOUT", "IMAGE_STRUCTURE"), "COG");
    }
    double expected[6], actual[6];
    envi->GetGeoTransform(expected);  // also makes GeoTIFF read its .aux.xml
    out->GetGeoTransform(actual);
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(actual[i], expected[i], 1e-6) << i;
    EXPECT_TRUE(out->GetSpatialRef() && out->GetSpatialRef()->IsSame(envi->GetSpatialRef()));
    // GeoTIFF pads the palette to 256 entries; the named classes must agree.
    const GDALColorTable *colours = out->GetRasterBand(1)->GetColorTable(),
                         *inPlaceColours = envi->GetRasterBand(1)->GetColorTable();
    const CPLStringList names(CSLDuplicate(out->GetRasterBand(1)->GetCategoryNames()));
    const CPLStringList reference(CSLDuplicate(envi->GetRasterBand(1)->GetCategoryNames()));
    ASSERT_TRUE(colours && inPlaceColours && names.size() == 9 && reference.size() == 9);
    for (int i = 0; i < 9; ++i) {
        const GDALColorEntry *a = colours->GetColorEntry(i), *b = inPlaceColours->GetColorEntry(i);
        EXPECT_EQ(std::make_tuple(std::string(names[i]), a->c1, a->c2, a->c3),
                  std::make_tuple(std::string(reference[i]), b->c1, b->c2, b->c3));
    }
    // No run folder and no half-copied file is left on either side.
    for (const std::string& name : dir.List()) EXPECT_EQ(name.find(".isodata"), std::string::npos) << name;
    if (tmp) {
        EXPECT_EQ(dir.List("tmp"), Args{});
    }
}

INSTANTIATE_TEST_SUITE_P(EndToEndTest, SameAsInPlaceTest,
                         ::testing::Values(Case::Plain, Case::ExternalOverviews, Case::Zipped,
                                           Case::TmpdirOnAnotherFileSystem, Case::GTiff, Case::COG),
                         [](const auto& info) { return std::string(kCaseNames[static_cast<int>(info.param)]); });

TEST(EndToEndTest, LinesProgressShowsEveryStageOfTheSampleScene) {
    if (!testsupport::FileExists(ISODATA_SAMPLE_SCENE)) GTEST_SKIP() << "the sample scene is not in data/";
    testsupport::TempDir dir;
    const ProcessResult r = Isodata(dir.Path(), {"-progress-format", "lines", ISODATA_SAMPLE_SCENE, "classes"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    // With the defaults (4 centres, 8 classes wanted) odd rounds split until
    // round 9 ends with 8 clusters after an odd round, which stops the loop.
    std::string expected = std::string(isodata::kRunStarted) + "\n" + isodata::kSelectInitialCenter + "\n" +
                           isodata::kStatisticalClassification + "\n";
    for (int round = 1; round <= 9; ++round) expected += "iteration " + std::to_string(round) + "\n";
    expected += std::string(isodata::kGeneratingResultFile) + "\n8 classes found (8 requested)";
    EXPECT_EQ(r.out.substr(0, expected.size()), expected);
    // The summary of a 6-band scene fits an 80-column terminal: it names the
    // pairs that are hard to separate and leaves the band table to the report.
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
        const auto columns = std::count_if(line.begin(), line.end(), [](char c) { return (c & 0xC0) != 0x80; });
        EXPECT_LE(columns, 80) << line;
        EXPECT_EQ(line.find("±"), std::string::npos) << line;
    }
    EXPECT_NE(r.out.find("Hard to separate (Jeffries-Matusita distance below 1.9): "), std::string::npos) << r.out;
}

// A scene large enough that runs overlap and interruptions land mid-run.
class BusyTest : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::WriteRaster(dir.File("scene.tif"), Scene(700, 600));
        reference = InPlace(dir.File("scene.tif"), elsewhere.File("reference"));
    }
    testsupport::TempDir dir, elsewhere;
    std::string reference;
};

TEST_F(BusyTest, RunsAtTheSameTimeOnOneInputAllGiveTheRightResult) {
    std::vector<std::thread> runs;
    std::vector<ProcessResult> results(4);
    for (size_t i = 0; i < results.size(); ++i)
        runs.emplace_back([&, i] { results[i] = Isodata(dir.Path(), {"-q", "scene.tif", "c" + std::to_string(i)}); });
    for (auto& t : runs) t.join();
    for (size_t i = 0; i < results.size(); ++i) {
        EXPECT_EQ(results[i].exitCode, 0) << results[i].err;
        EXPECT_EQ(testsupport::ReadText(dir.File("c" + std::to_string(i))), reference) << i;
    }
}

// Ctrl-C reaches the whole process group; kill(1) only the command.
TEST_F(BusyTest, InterruptedAtAnyStageEitherFinishesOrChangesNothing) {
    const std::tuple<std::string, int, bool, int> stops[] = {{isodata::kSelectInitialCenter, SIGINT, true, 130},
                                                              {"iteration 2", SIGHUP, false, 129},
                                                              {isodata::kGeneratingResultFile, SIGTERM, false, 143}};
    for (const auto& [stage, signal, toGroup, exitCode] : stops) {
        const Args before = dir.List();
        const ProcessResult r = Isodata(dir.Path(), {"scene.tif", "classes"}, {stage, signal, toGroup});
        ASSERT_TRUE(r.interrupted) << "the run never showed '" << stage << "':\n" << r.out;
        if (r.exitCode == 0) {  // it ended before the signal came
            EXPECT_EQ(testsupport::ReadText(dir.File("classes")), reference) << stage;
            fs::remove(dir.File("classes"));
            fs::remove(dir.File("classes.hdr"));
            continue;
        }
        EXPECT_EQ(r.exitCode, exitCode) << stage << r.err;
        EXPECT_NE(r.err.find("isodata: interrupted by SIG"), std::string::npos) << r.err;
        EXPECT_EQ(dir.List(), before) << stage;
    }
}

// Too small from the start, the run is refused with the figures before
// anything is written; filled while the working copy, the scratch files or
// the result are written, it fails saying so. Either way only what was
// there stays.
TEST_F(BusyTest, FullDiskIsRefusedOrFailsClearlyAndLeavesOnlyWhatWasThere) {
    for (const char* stage : {"", isodata::kRunStarted, "iteration 1", isodata::kGeneratingResultFile}) {
        const Mount disk(dir.File("disk"), std::string("-t tmpfs -o size=") + (*stage ? "16m" : "1m") + " tmpfs");
        if (!disk.made) {
            GTEST_SKIP() << "mounting a small tmpfs needs root; the full-disk case is not tried";
        }
        std::ofstream(dir.File("disk/old")) << "old";
        const auto Fill = [&] {
            std::ofstream filler(dir.File("disk/filler"), std::ios::binary);
            const std::string megabyte(1 << 20, 'x');
            while (filler.write(megabyte.data(), megabyte.size()).flush()) {
            }
        };
        const ProcessResult r = Isodata(dir.Path(), {"-progress-format", "lines", "-mem", "0", "scene.tif", "disk/classes"},
                                        *stage ? clitest::Interruption{stage, SIGSTOP, true, Fill} : clitest::Interruption{});
        fs::remove(dir.File("disk/filler"));
        if (r.exitCode == 0 && *stage) {  // it ended before the disk was full
            EXPECT_EQ(testsupport::ReadText(dir.File("disk/classes")), reference);
            continue;
        }
        EXPECT_EQ(r.exitCode, *stage ? 2 : 1) << stage;
        EXPECT_NE(r.err.find(*stage ? "(no space is left in 'disk':" : "run needs 4.4 MB in 'disk', 1.0 MB free there (use --tmpdir"),
                  std::string::npos) << stage << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;  // GDAL's own words only in it
        EXPECT_EQ(dir.List("disk"), Args{"old"}) << stage;
    }
}

// A raw file shorter than its header says is refused before anything runs;
// compressed strips that cannot be decoded fail with GDAL's reason once read.
TEST_F(BusyTest, DamagedInputIsRefusedOrFailsWithGdalsReasonAndWritesNothing) {
    {
        const GDALDatasetUniquePtr scene(GDALDataset::Open(dir.File("scene.tif").c_str(), GDAL_OF_RASTER));
        const CPLStringList deflate(CSLSetNameValue(nullptr, "COMPRESS", "DEFLATE"));
        GDALDriver* gtiff = GetGDALDriverManager()->GetDriverByName("GTiff");
        GDALClose(gtiff->CreateCopy(dir.File("packed.tif").c_str(), scene.get(), FALSE, deflate.List(), nullptr, nullptr));
    }
    const struct { const char* source; int exit; const char* says; } cases[] = {
        {"scene.tif", 1, "isodata: input 'cut.tif' is shorter than its header says: 'cut.tif' lacks "},
        {"packed.tif", 2, "GDAL errors, the first about 'cut.tif': cut.tif, band "}};
    for (const auto& c : cases) {
        const std::string bytes = testsupport::ReadText(dir.File(c.source));
        std::ofstream(dir.File("cut.tif"), std::ios::binary).write(bytes.data(), bytes.size() * 3 / 5);
        const Args before = dir.List();
        const ProcessResult r = Isodata(dir.Path(), {"-q", "cut.tif", "classes"});
        EXPECT_EQ(r.exitCode, c.exit) << c.source;
        EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_EQ(dir.List(), before);
    }
}

TEST_F(BusyTest, ReadOnlyInputFolderIsOnlyRead) {
    fs::create_directory(dir.File("in"));
    fs::copy_file(dir.File("scene.tif"), dir.File("in/scene.tif"));
    // Permission bits do not stop root, a read-only mount does.
    const Mount readOnly(dir.File("in"), "-o bind,ro '" + dir.File("in") + "'");
    if (!readOnly.made) {
        GTEST_SKIP() << "a read-only bind mount needs root; the read-only input folder is not tried";
    }
    const ProcessResult r = Isodata(dir.Path(), {"-q", "in/scene.tif", "classes"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(testsupport::ReadText(dir.File("classes")), reference);
}

} // namespace
