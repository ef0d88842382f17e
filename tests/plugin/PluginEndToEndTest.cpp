// The plug-in as a host uses it: loaded with dlopen, entry points found by
// their plain names, an algorithm object driven through SetParams and
// Execute, and the files and progress reports a whole run leaves behind.
#include "ClassificationISO.h"
#include "support/TestSupport.h"

#include <KalAlgo.h>
#include <KalUtility.h>

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <boost/any.hpp>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <array>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <ostream>
#include <vector>

void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }

namespace {

using testsupport::FileExists;
using testsupport::ReadText;
using testsupport::TempDir;

using GetAlgoObjFn = KalAlgo::IKalAlgo* (*)();
using ExecuteAlgoFn = bool (*)(const char*, const char*, const char*, double, double, int, int, int, int, int);

constexpr int kSide = 90;
constexpr const char* kRpcText = "LINE_OFF: 45\nSAMP_OFF: 45\n";

// Which of the three spectral groups a pixel belongs to: a 64 x 64 block in
// the top left, the right strip, and the bottom-left strip.
int GroupOf(int x, int y) {
    if (x >= 64) return 1;
    return y < 64 ? 0 : 2;
}

// Band levels of the groups, far apart in every direction.
constexpr int kLevels[3][3] = {{30, 40, 50}, {120, 200, 60}, {220, 80, 180}};

bool EndsWith(const std::string& name, const std::string& suffix) {
    return name.size() >= suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Inside the braces of an ENVI header entry, without blanks and line breaks.
std::string HeaderValue(const std::string& header, const std::string& key) {
    const size_t at = header.find("\n" + key);
    if (at == std::string::npos) return "";
    const size_t open = header.find('{', at), close = header.find('}', at);
    if (open == std::string::npos || close == std::string::npos) return "";
    std::string value;
    for (char c : header.substr(open, close - open + 1))
        if (c != ' ' && c != '\n' && c != '\r') value += c;
    return value;
}

struct GdalCloser {
    void operator()(GDALDataset* ds) const { GDALClose(ds); }
};
using GdalHandle = std::unique_ptr<GDALDataset, GdalCloser>;

GdalHandle Open(const std::string& path) {
    testsupport::RegisterGdal();
    return GdalHandle(static_cast<GDALDataset*>(GDALOpen(path.c_str(), GA_ReadOnly)));
}

struct Report {
    double percent;
    QString text;
    void* sender;
};

class PluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        library = dlopen(ISODATA_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        getAlgoObj = reinterpret_cast<GetAlgoObjFn>(dlsym(library, "GetAlgoObj"));
        executeAlgo = reinterpret_cast<ExecuteAlgoFn>(dlsym(library, "ExecuteAlgo"));
        ASSERT_NE(getAlgoObj, nullptr);
        ASSERT_NE(executeAlgo, nullptr);
        WriteScene();
    }

    void TearDown() override {
        if (library) dlclose(library);
    }

    void WriteScene() {
        testsupport::RasterTable raster;
        raster.width = raster.height = kSide;
        raster.bands.assign(3, std::vector<double>(kSide * kSide));
        for (int b = 0; b < 3; ++b)
            for (int y = 0; y < kSide; ++y)
                for (int x = 0; x < kSide; ++x)
                    raster.bands[b][y * kSide + x] = kLevels[GroupOf(x, y)][b] + (x + y) % 3;
        testsupport::WriteRaster(input, raster);
        std::ofstream(dir.File("scene_rpc.txt"), std::ios::binary) << kRpcText;
    }

    TempDir dir;
    const std::string input = dir.File("scene.tif");
    const std::string result = dir.File("classes.img");
    void* library = nullptr;
    GetAlgoObjFn getAlgoObj = nullptr;
    ExecuteAlgoFn executeAlgo = nullptr;
};

// ---- the command-style entry ----

TEST_F(PluginTest, ExecuteAlgoWithValidArgumentsReturnsFalseAndWritesNothing) {
    const auto before = dir.List();
    EXPECT_FALSE(executeAlgo(input.c_str(), "0|1|2", result.c_str(), 10.0, 5.0, 3, 2, 1, 10, 3));
    EXPECT_EQ(dir.List(), before);
}

// ---- the algorithm object ----

TEST_F(PluginTest, GetAlgoObjHandsOutAFreshObjectEachTime) {
    KalAlgo::IKalAlgo* first = getAlgoObj();
    KalAlgo::IKalAlgo* second = getAlgoObj();
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    int number = -1;
    QString text = QStringLiteral("unset");
    first->GetErrorInfo(number, text);
    EXPECT_EQ(number, 0);
    EXPECT_TRUE(text.isEmpty());
    // A host that does not count references deletes through the virtual destructor.
    delete first;
    delete second;
}

TEST_F(PluginTest, ObjectRefusesARecordOfAnotherType) {
    KalUtility::_ptr_t<KalAlgo::IKalAlgo> algorithm(getAlgoObj());
    ASSERT_TRUE(algorithm);
    boost::any params(std::string("scene.tif"));
    algorithm->SetParams(params);
    EXPECT_FALSE(algorithm->Execute());
    int number = 0;
    QString text;
    algorithm->GetErrorInfo(number, text);
    EXPECT_EQ(number, 100);
    EXPECT_EQ(text, QStringLiteral("Type is Not stInfoClassificationISO!"));
}

// ---- a whole run ----

class WholeRunTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        if (HasFatalFailure()) return;
        algorithm = KalUtility::_ptr_t<KalAlgo::IKalAlgo>(getAlgoObj());
        ASSERT_TRUE(algorithm);
        algorithm->m_sigProgress.connect([this](double percent, const QString& text, void* sender) {
            reports.push_back({percent, text, sender});
            return 1;
        });
        stInfoClassificationISO record;
        record.inputPath = QString::fromStdString(input);
        record.resultPath = QString::fromStdString(result);
        record.desiredClassCount = 3;
        record.initialClassCount = 3;
        record.minClassPixels = 10;
        record.maxMergePairs = 1;
        record.maxIterations = 2;
        record.stdDevThreshold = 50.0;
        record.mergeDistanceThreshold = 5.0;
        record.bandIndices = {0, 1, 2};
        boost::any params(record);
        algorithm->SetParams(params);
        succeeded = algorithm->Execute();
    }

    void TearDown() override {
        algorithm.reset();  // the object's code lives in the library
        PluginTest::TearDown();
    }

    // Index of the first report at or after `from` whose text passes `match`.
    template <class Match>
    size_t Find(size_t from, Match match) const {
        for (size_t i = from; i < reports.size(); ++i)
            if (match(reports[i].text)) return i;
        return reports.size();
    }

    KalUtility::_ptr_t<KalAlgo::IKalAlgo> algorithm;
    std::vector<Report> reports;
    bool succeeded = false;
};

TEST_F(WholeRunTest, Succeeds) { EXPECT_TRUE(succeeded); }

TEST_F(WholeRunTest, LabelsReproduceTheThreeGroups) {
    const std::vector<double> labels = testsupport::ReadBand(result);
    ASSERT_EQ(labels.size(), static_cast<size_t>(kSide * kSide));
    // The label of each group, from one pixel of it; the numbers are the engine's choice.
    const std::array<double, 3> groupLabel = {labels[0], labels[kSide - 1], labels[(kSide - 1) * kSide]};
    EXPECT_EQ(std::set<double>(groupLabel.begin(), groupLabel.end()), (std::set<double>{1, 2, 3}));
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x)
            ASSERT_EQ(labels[y * kSide + x], groupLabel[GroupOf(x, y)]) << "pixel " << x << "," << y;
}

TEST_F(WholeRunTest, ResultIsOneByteEnviBandGeoreferencedLikeTheInput) {
    GdalHandle in = Open(input), out = Open(result);
    ASSERT_TRUE(in);
    ASSERT_TRUE(out);
    EXPECT_STREQ(out->GetDriver()->GetDescription(), "ENVI");
    EXPECT_EQ(out->GetRasterXSize(), kSide);
    EXPECT_EQ(out->GetRasterYSize(), kSide);
    ASSERT_EQ(out->GetRasterCount(), 1);
    EXPECT_EQ(out->GetRasterBand(1)->GetRasterDataType(), GDT_Byte);
    std::array<double, 6> inGt{}, outGt{};
    ASSERT_EQ(in->GetGeoTransform(inGt.data()), CE_None);
    ASSERT_EQ(out->GetGeoTransform(outGt.data()), CE_None);
    EXPECT_EQ(outGt, inGt);
    ASSERT_NE(out->GetSpatialRef(), nullptr);
    EXPECT_TRUE(out->GetSpatialRef()->IsSame(in->GetSpatialRef()));
}

TEST_F(WholeRunTest, HeaderCarriesClassNamesAndLookup) {
    const std::string header = ReadText(dir.File("classes.hdr"));
    EXPECT_EQ(HeaderValue(header, "class names"), "{Unclassified,class1,class2,class3}");
    EXPECT_EQ(HeaderValue(header, "class lookup"), "{0,0,0,255,0,0,0,255,255,0,255,0}");
}

TEST_F(WholeRunTest, LeavesNoWorkingCopyOrScratchFile) {
    for (const std::string& name : dir.List()) {
        EXPECT_FALSE(EndsWith(name, "tem.tif")) << name;
        EXPECT_FALSE(EndsWith(name, ".km")) << name;
    }
}

TEST_F(WholeRunTest, CopiesTheRpcSideFileBesideTheResult) {
    ASSERT_TRUE(FileExists(dir.File("classes_rpc.txt")));
    EXPECT_EQ(ReadText(dir.File("classes_rpc.txt")), kRpcText);
    EXPECT_EQ(ReadText(dir.File("scene_rpc.txt")), kRpcText);
}

TEST_F(WholeRunTest, ProgressStartsAtTheRunTextAndEndsAtOneHundredEmpty) {
    ASSERT_GE(reports.size(), 2u);
    EXPECT_EQ(reports.front().percent, 0.0);
    EXPECT_EQ(reports.front().text, QStringLiteral("ISOData Is Runing..."));
    EXPECT_EQ(reports.back().percent, 100.0);
    EXPECT_TRUE(reports.back().text.isEmpty());
    for (const Report& r : reports) EXPECT_EQ(r.sender, algorithm.get());
}

TEST_F(WholeRunTest, StageTextsAppearInRunOrder) {
    const QString select = QStringLiteral("Select Initial Cluster Center");
    const size_t initial = Find(0, [&](const QString& t) { return t == select; });
    const size_t classify = Find(initial, [](const QString& t) { return t == "Statistical classification"; });
    const size_t round1 = Find(classify, [&](const QString& t) { return t.startsWith(select + "1times iteration"); });
    const size_t result = Find(round1, [](const QString& t) { return t == "Generating result file"; });
    ASSERT_LT(initial, reports.size());
    ASSERT_LT(classify, reports.size());
    ASSERT_LT(round1, reports.size());
    ASSERT_LT(result, reports.size());
    EXPECT_LT(initial, classify);
    EXPECT_LT(classify, round1);
    EXPECT_LT(round1, result);
    // One report before the first row and one after each of the 90 rows, then the final 100.
    EXPECT_EQ(reports.size() - 1 - result, static_cast<size_t>(kSide + 1));
    for (size_t i = result; i + 1 < reports.size(); ++i)
        EXPECT_EQ(reports[i].text, QStringLiteral("Generating result file")) << i;
}

TEST_F(WholeRunTest, RoundTextsCarryTheStageName) {
    const QString prefix = QStringLiteral("Select Initial Cluster Center1times iteration");
    std::set<QString> stages;
    for (const Report& r : reports)
        if (r.text.startsWith(prefix)) stages.insert(r.text.mid(prefix.size()));
    EXPECT_TRUE(stages.count(QStringLiteral("Computing Cluster Center")));
    EXPECT_TRUE(stages.count(QStringLiteral("Calculate the average distance from the center of the class")));
}

TEST_F(WholeRunTest, PercentagesNeverFallWithinAStage) {
    // A stage starts anew at 0 (some stages run two passes under one text).
    for (size_t i = 1; i < reports.size(); ++i) {
        const Report &prev = reports[i - 1], &cur = reports[i];
        EXPECT_GE(cur.percent, 0.0) << i;
        EXPECT_LE(cur.percent, 100.0 + 1e-9) << i;
        if (cur.text == prev.text && cur.percent != 0.0) {
            EXPECT_GE(cur.percent, prev.percent) << "report " << i << ": " << cur.text.toStdString();
        }
    }
}

} // namespace
