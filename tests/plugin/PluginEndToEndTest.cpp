// The plug-in as a host uses it: loaded with dlopen, entry points found by
// their plain names, and whole runs through GetAlgoObj, SetParams and Execute
// on a generated image, records the engine cannot hold included.
#include "ClassificationISO.h"
#include "support/TestSupport.h"

#include <KalAlgo.h>
#include <KalDataSource.h>

#include <gdal_priv.h>

#include <boost/any.hpp>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <array>
#include <fstream>
#include <set>
#include <stdexcept>

namespace {

using GetAlgoObjFn = KalAlgo::IKalAlgo* (*)();
using ExecuteAlgoFn = bool (*)(const char*, const char*, const char*, double, double, int, int, int, int, int);

constexpr int kSide = 90;
constexpr const char* kRpcText = "LINE_OFF: 45\nSAMP_OFF: 45\n";

// Three groups far apart in every band: a 64 x 64 block top left, the right
// strip and the bottom-left strip.
int GroupOf(int x, int y) { return x >= 64 ? 1 : (y < 64 ? 0 : 2); }
constexpr int kLevels[3][3] = {{30, 40, 50}, {120, 200, 60}, {220, 80, 180}};

class PluginEndToEndTest : public ::testing::Test {
protected:
    void SetUp() override {
        library = dlopen(ISODATA_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        getAlgoObj = reinterpret_cast<GetAlgoObjFn>(dlsym(library, "GetAlgoObj"));
        executeAlgo = reinterpret_cast<ExecuteAlgoFn>(dlsym(library, "ExecuteAlgo"));
        ASSERT_TRUE(getAlgoObj && executeAlgo);
        testsupport::RasterTable raster{kSide, kSide, GDT_Byte, testsupport::BandValues(3, std::vector<double>(kSide * kSide))};
        for (int b = 0; b < 3; ++b)
            for (int i = 0; i < kSide * kSide; ++i)
                raster.bands[b][i] = kLevels[GroupOf(i % kSide, i / kSide)][b] + (i % kSide + i / kSide) % 3;
        testsupport::WriteRaster(input, raster);
        std::ofstream(dir.File("scene_rpc.txt"), std::ios::binary) << kRpcText;
    }

    void TearDown() override {
        algorithm.reset();  // the object's code lives in the library
        if (library) dlclose(library);
    }

    // The host's way: a fresh object, a progress slot, the record in the slot,
    // Execute. The slot throws when it is shown throwAt.
    bool Run(std::int32_t initialClassCount = 3, const std::string& throwAt = "") {
        reports.clear();
        algorithm = KalUtility::_ptr_t<KalAlgo::IKalAlgo>(getAlgoObj());
        algorithm->m_sigProgress.connect([this, throwAt](double percent, const QString& text, void* sender) {
            reports.push_back({percent, text.toStdString()});
            EXPECT_EQ(sender, algorithm.get());
            if (text.toStdString() == throwAt) throw std::runtime_error("the host's slot gave up");
            return 1;
        });
        // Input, result, classes wanted, initial classes, minimum class pixels, merge pairs,
        // iterations, standard deviation and merge distance thresholds, bands.
        boost::any params(stInfoClassificationISO{QString::fromStdString(input), QString::fromStdString(result), 3,
                                                  initialClassCount, 10, 1, 2, 50.0, 5.0, {0, 1, 2}});
        algorithm->SetParams(params);
        return algorithm->Execute();
    }

    testsupport::TempDir dir;
    const std::string input = dir.File("scene.tif"), result = dir.File("classes.img");
    void* library = nullptr;
    GetAlgoObjFn getAlgoObj = nullptr;
    ExecuteAlgoFn executeAlgo = nullptr;
    KalUtility::_ptr_t<KalAlgo::IKalAlgo> algorithm;
    testsupport::Reports reports;
};

TEST_F(PluginEndToEndTest, ExecuteAlgoAlwaysAnswersFalseAndWritesNothing) {
    const auto before = dir.List();
    EXPECT_FALSE(executeAlgo(input.c_str(), "0|1|2", result.c_str(), 10.0, 5.0, 3, 2, 1, 10, 3));
    EXPECT_FALSE(executeAlgo(input.c_str(), "0|1|2", result.c_str(), 10.0, 5.0, -1, 2, 1, 10, 3));
    EXPECT_EQ(dir.List(), before);
}

TEST_F(PluginEndToEndTest, WholeRunLabelsTheGroupsReportsItsStagesAndLeavesOnlyTheResult) {
    ASSERT_TRUE(Run());
    const std::vector<double> labels = testsupport::ReadBand(result);
    ASSERT_EQ(labels.size(), static_cast<size_t>(kSide * kSide));
    // The numbers are the engine's choice; each group must get its own one.
    const std::array<double, 3> groupLabel = {labels[0], labels[kSide - 1], labels[(kSide - 1) * kSide]};
    EXPECT_EQ(std::set<double>(groupLabel.begin(), groupLabel.end()), (std::set<double>{1, 2, 3}));
    for (int i = 0; i < kSide * kSide; ++i)
        ASSERT_EQ(labels[i], groupLabel[GroupOf(i % kSide, i / kSide)]) << "pixel " << i % kSide << "," << i / kSide;

    // No working copy or scratch file is left, and the RPC side file is copied.
    EXPECT_EQ(dir.List(), (std::vector<std::string>{"classes.hdr", "classes.img", "classes_rpc.txt", "scene.tif",
                                                    "scene_rpc.txt"}));
    EXPECT_EQ(testsupport::ReadText(dir.File("classes_rpc.txt")), kRpcText);

    // The run starts at 0 and ends at 100; the result pass, last before the
    // end, reports before its first row and after each.
    EXPECT_EQ(reports.front(), std::make_pair(0.0, std::string("ISOData Is Runing...")));
    EXPECT_EQ(reports[reports.size() - kSide - 2], std::make_pair(0.0, std::string("Generating result file")));
    EXPECT_EQ(reports[reports.size() - 2].second, "Generating result file");
    EXPECT_EQ(reports.back(), std::make_pair(100.0, std::string()));
}

// An engine that cannot be set up or cannot go on fails as the Float32
// engine does: no exception reaches the host, the run ends, at 100, and no
// working copy or scratch file is left. The class raster the driver made
// before the engine started stays, as after every engine failure.
TEST_F(PluginEndToEndTest, EngineThatCannotHoldTheRecordOrGoOnFailsCleanly) {
    const struct { const char* name; std::int32_t initial; const char* throwAt; } cases[] = {
        {"initial count -1", -1, ""},
        {"initial count 2^31 - 1", 2147483647, ""},
        {"a slot throws while the scratch files are open", 3, "Statistical classification"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        bool executed = true;
        EXPECT_NO_THROW(executed = Run(c.initial, c.throwAt));
        EXPECT_FALSE(executed);
        ASSERT_FALSE(reports.empty());
        EXPECT_EQ(reports.back(), std::make_pair(100.0, std::string()));
        EXPECT_EQ(dir.List(), (std::vector<std::string>{"classes.hdr", "classes.img", "classes_rpc.txt", "scene.tif",
                                                        "scene_rpc.txt"}));
    }
}

} // namespace
