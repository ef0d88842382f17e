// isodata with the real plug-in, found beside the binary as in an install:
// the class raster must be the one a run in place gives, bit for bit, also
// when the run folder is on another file system; every stage shows up in
// the progress; runs at the same time must not disturb each other; and a
// full disk, a damaged input or an interruption must end in a clear failure
// that changes nothing.
#include "Subprocess.h"
#include "Validate.h"
#include "support/TestSupport.h"

#include <PluginRun.h>
#include <StageTexts.h>

#include <cpl_conv.h>
#include <cpl_string.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <thread>
#include <tuple>

namespace {

using clitest::ProcessResult;
using Args = std::vector<std::string>;
namespace fs = std::filesystem;

ProcessResult Isodata(const std::string& folder, Args args, const clitest::Interruption& interruption = {}) {
    args.insert(args.begin(), ISODATA_BINARY);
    return clitest::RunProcess(args, {}, folder, interruption);
}

// Three bands of smooth gradients with a ripple: enough structure for every
// stage to have work, no two runs of different inputs alike.
testsupport::RasterTable Scene(int width, int height) {
    testsupport::RasterTable scene;
    scene.width = width;
    scene.height = height;
    scene.bands.assign(3, std::vector<double>(static_cast<size_t>(width) * height));
    for (int b = 0; b < 3; ++b)
        for (int i = 0; i < width * height; ++i)
            scene.bands[b][i] = (i % width * (b + 1) + i / width * (3 - b) + i % 7 * 5) % 251;
    return scene;
}

struct Silent : isodata_run::RunListener {
    void RemovedStaleFolder(const std::string&) override {}
    void Progress(double, const std::string&) override {}
    void PluginReturned() override {}
    void GdalMessage(const std::string&) override {}
};

// The plug-in loaded and run with the command's defaults on the input where
// it lies, as a host would.
std::string InPlace(const std::string& input, const std::string& result) {
    isodata_run::RunRequest request = isodata_cli::RequestFor(isodata_cli::DefaultOptions(), {});
    request.classification.bandIndices = {0, 1, 2};
    std::string error;
    const auto plugin = isodata_run::PluginLibrary::Open(ISODATA_PLUGIN, error);
    if (!plugin) ADD_FAILURE() << error;
    Silent silent;
    const auto run = isodata_run::RunPlugin(*plugin, isodata_run::BuildRecord(request, input, result), silent);
    EXPECT_EQ(run.outcome, isodata_run::PluginOutcome::Ok) << run.Describe();
    return testsupport::ReadText(result);
}

// A tmpfs on folder for the guard's life; mounting one needs root.
class Tmpfs {
public:
    Tmpfs(const std::string& folder, const std::string& size) : folder_(folder) {
        fs::create_directories(folder);
        mounted_ = std::system(("mount -t tmpfs -o size=" + size + " tmpfs '" + folder + "' 2>/dev/null").c_str()) == 0;
    }
    ~Tmpfs() {
        if (mounted_) std::system(("umount '" + folder_ + "'").c_str());
    }
    bool Mounted() const { return mounted_; }

private:
    std::string folder_;
    bool mounted_;
};

void Zip(const std::string& file, const std::string& zip) {
    const std::string bytes = testsupport::ReadText(file);
    void* handle = CPLCreateZip(zip.c_str(), nullptr);
    ASSERT_NE(handle, nullptr);
    ASSERT_EQ(CPLCreateFileInZip(handle, fs::path(file).filename().c_str(), nullptr), CE_None);
    ASSERT_EQ(CPLWriteFileInZip(handle, bytes.data(), static_cast<int>(bytes.size())), CE_None);
    CPLCloseFileInZip(handle);
    CPLCloseZip(handle);
}

// How the input is laid out: overviews change which pixels the reduced
// working copy gets, so they must be seen from the run folder too. With the
// run folder on another file system, the result is copied, not renamed, into
// place.
enum class Layout { Plain, ExternalOverviews, InternalOverviews, Zipped, TmpdirOnAnotherFileSystem };
class SameAsInPlaceTest : public ::testing::TestWithParam<Layout> {};
std::string LayoutName(const ::testing::TestParamInfo<Layout>& info) {
    const char* names[] = {"Plain", "ExternalOverviews", "InternalOverviews", "Zipped", "TmpdirOnAnotherFileSystem"};
    return names[static_cast<int>(info.param)];
}

TEST_P(SameAsInPlaceTest, RunFolderGivesTheClassRasterOfARunInPlace) {
    testsupport::TempDir dir;
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(300, 220));
    if (GetParam() == Layout::ExternalOverviews || GetParam() == Layout::InternalOverviews) {
        GDALDatasetUniquePtr ds(GDALDataset::Open(dir.File("scene.tif").c_str(),
                                                  GDAL_OF_RASTER | (GetParam() == Layout::InternalOverviews
                                                                        ? GDAL_OF_UPDATE : GDAL_OF_READONLY)));
        const int levels[] = {2, 4};
        ASSERT_EQ(ds->BuildOverviews("AVERAGE", 2, levels, 0, nullptr, nullptr, nullptr), CE_None);
    }
    const std::string reference = InPlace(dir.File("scene.tif"), dir.File("inplace"));
    std::string input = dir.File("scene.tif");
    if (GetParam() == Layout::Zipped) {
        Zip(input, dir.File("scene.zip"));
        input = "/vsizip/scene.zip/scene.tif";
    }
    Args args = {"-q", input, "classes"};
    std::optional<Tmpfs> tmp;
    if (GetParam() == Layout::TmpdirOnAnotherFileSystem) {
        tmp.emplace(dir.File("tmp"), "64m");
        if (!tmp->Mounted()) {
            GTEST_SKIP() << "mounting a tmpfs for --tmpdir needs root; publishing across file systems is not tried";
        }
        args.insert(args.begin(), {"--tmpdir", "tmp"});
    }
    const ProcessResult r = Isodata(dir.Path(), args);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(testsupport::ReadText(dir.File("classes")), reference);
    // No run folder and no half-copied file is left on either side.
    for (const std::string& name : dir.List()) EXPECT_EQ(name.find(".isodata"), std::string::npos) << name;
    if (tmp) {
        EXPECT_TRUE(fs::is_empty(dir.File("tmp")));
    }
}

INSTANTIATE_TEST_SUITE_P(EndToEndTest, SameAsInPlaceTest,
                         ::testing::Values(Layout::Plain, Layout::ExternalOverviews, Layout::InternalOverviews,
                                           Layout::Zipped, Layout::TmpdirOnAnotherFileSystem),
                         LayoutName);

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
}

// Every format carries what the plug-in's ENVI file carries; the JSON
// summary is the raster's own account, the preview the raster itself.
class FormatTest : public ::testing::TestWithParam<const char*> {};

TEST_P(FormatTest, OutputKeepsPixelsColoursNamesAndPlaceAndJsonCountsThem) {
    testsupport::TempDir dir;
    testsupport::WriteRaster(dir.File("scene.tif"), Scene(300, 220));
    InPlace(dir.File("scene.tif"), dir.File("envi"));
    const ProcessResult r =
        Isodata(dir.Path(), {"-of", GetParam(), "-json", "-preview", "p.png", "scene.tif", "classes.tif"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    GDALDatasetUniquePtr envi(GDALDataset::Open(dir.File("envi").c_str(), GDAL_OF_RASTER));
    GDALDatasetUniquePtr out(GDALDataset::Open(dir.File("classes.tif").c_str(), GDAL_OF_RASTER));
    ASSERT_TRUE(envi && out);
    // A COG is a GeoTIFF that says so in its layout.
    EXPECT_STREQ(out->GetDriver()->GetDescription(), "GTiff");
    if (std::string(GetParam()) == "COG") {
        EXPECT_STREQ(out->GetMetadataItem("LAYOUT", "IMAGE_STRUCTURE"), "COG");
    }
    const std::vector<double> pixels = testsupport::ReadBand(dir.File("classes.tif"));
    EXPECT_EQ(pixels, testsupport::ReadBand(dir.File("envi")));
    EXPECT_EQ(testsupport::ReadBand(dir.File("p.png")), pixels);  // the preview, pixel for pixel
    double expected[6], actual[6];
    envi->GetGeoTransform(expected);  // also makes GeoTIFF read its .aux.xml
    out->GetGeoTransform(actual);
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(actual[i], expected[i], 1e-6) << i;
    EXPECT_TRUE(out->GetSpatialRef() && out->GetSpatialRef()->IsSame(envi->GetSpatialRef()));
    // GeoTIFF pads the palette to 256 entries.
    const GDALColorTable* colours = out->GetRasterBand(1)->GetColorTable();
    const GDALColorTable* reference = envi->GetRasterBand(1)->GetColorTable();
    ASSERT_TRUE(colours && reference);
    for (int i = 0; i < reference->GetColorEntryCount(); ++i) {
        const GDALColorEntry *a = colours->GetColorEntry(i), *b = reference->GetColorEntry(i);
        EXPECT_EQ(std::tie(a->c1, a->c2, a->c3), std::tie(b->c1, b->c2, b->c3)) << i;
    }
    const auto names = [](GDALDataset& ds) { return CPLStringList(CSLDuplicate(ds.GetRasterBand(1)->GetCategoryNames())); };
    EXPECT_EQ(names(*out).size(), 9);
    for (int i = 0; i < 9; ++i) EXPECT_STREQ(names(*out)[i], names(*envi)[i]);

    const QJsonObject json = QJsonDocument::fromJson(QByteArray::fromStdString(r.out)).object();
    EXPECT_EQ(json["format"].toString(), GetParam());
    EXPECT_EQ(json["size"].toArray(), (QJsonArray{300, 220}));
    std::map<int, double> counted;
    for (double v : pixels) ++counted[static_cast<int>(v)];
    EXPECT_EQ(json["unclassified"].toDouble(), counted[0]);
    const QJsonArray classes = json["classes"].toArray();
    ASSERT_FALSE(classes.isEmpty());
    for (const QJsonValue& c : classes) {
        const int value = c["value"].toInt();
        EXPECT_EQ(c["pixels"].toDouble(), counted[value]) << value;
        EXPECT_EQ(c["name"].toString(), QStringLiteral("class%1").arg(value));
        EXPECT_DOUBLE_EQ(c["share"].toDouble(), counted[value] / (300.0 * 220.0));
    }
}

INSTANTIATE_TEST_SUITE_P(EndToEndTest, FormatTest, ::testing::Values("GTiff", "COG"));

// A scene large enough that runs overlap and interruptions land mid-run.
class BusyTest : public ::testing::Test {
protected:
    void SetUp() override {
        testsupport::WriteRaster(dir.File("scene.tif"), Scene(700, 600));
        reference = InPlace(dir.File("scene.tif"), dir.File("reference"));
        fs::remove(dir.File("reference"));
        fs::remove(dir.File("reference.hdr"));
    }
    testsupport::TempDir dir;
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

TEST_F(BusyTest, InterruptedAtAnyStageEitherFinishesOrChangesNothing) {
    for (const std::string stage : {isodata::kSelectInitialCenter, "iteration 2", isodata::kGeneratingResultFile}) {
        const Args before = dir.List();
        const ProcessResult r = Isodata(dir.Path(), {"scene.tif", "classes"}, {stage, SIGINT, true});
        ASSERT_TRUE(r.interrupted) << "the run never showed '" << stage << "':\n" << r.out;
        if (r.exitCode == 0) {  // it ended before the signal came
            EXPECT_EQ(testsupport::ReadText(dir.File("classes")), reference) << stage;
            fs::remove(dir.File("classes"));
            fs::remove(dir.File("classes.hdr"));
            continue;
        }
        EXPECT_EQ(r.exitCode, 130) << stage << r.err;
        EXPECT_EQ(dir.List(), before) << stage;
    }
}

TEST_F(BusyTest, FullDiskFailsClearlyAndLeavesOnlyWhatWasThere) {
    // Full while writing the working copy, the scratch files or the result.
    for (const char* size : {"800k", "1400k", "2000k"}) {
        const Tmpfs disk(dir.File("disk"), size);
        if (!disk.Mounted()) {
            GTEST_SKIP() << "mounting a small tmpfs needs root; the full-disk case is not tried";
        }
        std::ofstream(dir.File("disk/old")) << "old";
        const ProcessResult r = Isodata(dir.Path(), {"-q", "scene.tif", "disk/classes"});
        EXPECT_EQ(r.exitCode, 2) << size;
        EXPECT_NE(r.err.find("(no space is left in 'disk':"), std::string::npos) << size << r.err;
        Args left;
        for (const auto& e : fs::directory_iterator(dir.File("disk"))) left.push_back(e.path().filename());
        EXPECT_EQ(left, Args{"old"}) << size;
    }
}

TEST_F(BusyTest, DamagedInputFailsWithGdalsReasonAndWritesNothing) {
    const std::string bytes = testsupport::ReadText(dir.File("scene.tif"));
    std::ofstream(dir.File("cut.tif"), std::ios::binary).write(bytes.data(), bytes.size() * 3 / 5);
    const Args before = dir.List();
    const ProcessResult r = Isodata(dir.Path(), {"-q", "cut.tif", "classes"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("GDAL errors, the first about 'cut.tif': cut.tif, band "), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(dir.List(), before);
}

TEST_F(BusyTest, ReadOnlyInputFolderIsOnlyRead) {
    const std::string folder = dir.File("in");
    fs::create_directory(folder);
    fs::copy_file(dir.File("scene.tif"), folder + "/scene.tif");
    // Permission bits do not stop root, a read-only mount does.
    const bool root = geteuid() == 0;
    if (root && std::system(("mount --bind '" + folder + "' '" + folder + "' && mount -o remount,bind,ro '" + folder +
                             "' 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "a read-only bind mount could not be made";
    if (!root) fs::permissions(folder, fs::perms::owner_write, fs::perm_options::remove);
    const ProcessResult r = Isodata(dir.Path(), {"-q", "in/scene.tif", "classes"});
    if (root) std::system(("umount '" + folder + "'").c_str());
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(testsupport::ReadText(dir.File("classes")), reference);
}

} // namespace
