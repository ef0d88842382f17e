// What crosses a file or a process boundary comes back as it left: the
// model's centres to the bit, a file that is no model refused by name, and
// the child's report field for field with NaN statistics as NaN.
#include "Figures.h"
#include "Model.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>

using namespace isodata_run;

namespace {

// Equal to the bit: -0.0 is not 0.0, and NaN is NaN.
std::vector<std::uint64_t> Bits(const std::vector<double>& values) {
    std::vector<std::uint64_t> bits;
    for (double v : values) {
        std::uint64_t b = 0;
        std::memcpy(&b, &v, sizeof b);
        bits.push_back(std::isnan(v) ? 0x7ff8000000000000u : b);
    }
    return bits;
}

TEST(ModelFileTest, CentresReadBackToTheBit) {
    testsupport::TempDir dir;
    const double big = std::numeric_limits<double>::max(), tiny = std::numeric_limits<double>::denorm_min();
    Model m;
    m.tool = "isodata 1.0";
    m.inputPath = "/data/scene.tif";
    m.width = 7, m.height = 5, m.bandCount = 4;
    m.bands = {{1, "Blue", "Byte"}, {4, "", "UInt16"}};
    m.enginePixelType = "Float32";
    m.mask = {true, MaskSettings::Nodata::Given, {0, 65535}, false, false, "/data/mask.tif", {}};
    m.pixelArea = 900;
    m.classes = {{1, "class 1", true, 255, 0, 128, {0.1, 1.0 / 3}, 5000000000, {}, {}},
                 {2, "", false, 0, 0, 0, {1e-300, -0.0}, 0, {}, {}},
                 {3, "edges", true, 1, 2, 3, {big, tiny}, 1, {}, {}}};
    std::string error;
    ASSERT_TRUE(WriteModel(dir.File("m.json"), m, error)) << error;
    Model back;
    ASSERT_TRUE(ReadModel(dir.File("m.json"), back, error)) << error;
    ASSERT_EQ(back.classes.size(), 3u);
    for (size_t k = 0; k < 3; ++k) {
        const ModelClass &a = m.classes[k], &b = back.classes[k];
        EXPECT_EQ(Bits(b.centre), Bits(a.centre)) << "class " << a.value;
        EXPECT_EQ(std::tuple(b.value, b.name, b.hasColour, b.red, b.green, b.blue, b.pixels),
                  std::tuple(a.value, a.name, a.hasColour, a.red, a.green, a.blue, a.pixels));
    }
    EXPECT_EQ(std::tuple(back.tool, back.inputPath, back.width, back.height, back.bandCount, back.enginePixelType),
              std::tuple(m.tool, m.inputPath, 7, 5, 4, m.enginePixelType));
    ASSERT_EQ(back.bands.size(), 2u);
    EXPECT_EQ(std::tuple(back.bands[1].band, back.bands[1].description, back.bands[1].dataType),
              std::tuple(4, std::string(), std::string("UInt16")));
    EXPECT_EQ(std::tuple(back.mask.on, back.mask.nodata, back.mask.nodataValues, back.mask.datasetMasks,
                         back.mask.nonFinite, back.mask.maskRaster),
              std::tuple(true, MaskSettings::Nodata::Given, m.mask.nodataValues, false, false, m.mask.maskRaster));
    EXPECT_EQ(back.pixelArea, 900);
}

TEST(ModelFileTest, AFileThatIsNoModelIsRefusedByName) {
    testsupport::TempDir dir;
    // After this head, a body completes the object: the input names band 1.
    const std::string head = R"({"format":"isodata-model","version":1,"input":{"bands":[{"band":1}]},)";
    const struct { bool headed; const char* body; const char* says; } cases[] = {
        {false, nullptr, "cannot be read: "},
        {false, "{\"format\":", "is not JSON: "},
        {false, R"({"format":"isodata-classes","version":1})", "is not an isodata model file"},
        {false, R"({"format":"isodata-model","version":2})",
         "is of format version 2, which this isodata does not know (it reads version 1)"},
        {false, R"({"format":"isodata-model"})", "has a \"version\" that is not a number"},
        {false, R"({"format":"isodata-model","version":"1"})", "has a \"version\" that is not a number"},
        {true, R"("mask":{"nodata":"all"}})", "has no valid \"mask\" rule"},
        {true, R"("mask":{"nodata":"declared"},"classes":[{"value":1,"centre":[1,2]}]})",
         "has a class 1 whose centre is not one number per band"},
        {true, R"("mask":{"nodata":"declared"},"classes":[{"value":1,"centre":[1],"centre_hex":["0x1p+0z"]}]})",
         "has a class 1 whose centre has a hexadecimal form that is not its number"},
        {true, R"("mask":{"nodata":"declared"},"classes":[{"value":1,"centre":[1],"centre_hex":["0x1p+1"]}]})",
         "has a class 1 whose centre has a hexadecimal form that is not its number"},
        {true, R"("mask":{"nodata":"declared"},"classes":[{"value":1,"centre":["5"]}]})",
         "has a class 1 whose centre holds something other than a number"},
        {true, R"("mask":{"nodata":"declared"},"classes":[{"value":1,"centre":[null],"centre_hex":["nan"]}]})",
         "has a class 1 whose centre holds something other than a number"},
        {true, R"("mask":{"nodata":"declared"},"classes":[{"value":1,"centre":[1],"colour":[0,300,0]}]})",
         "has a class 1 whose colour is not three numbers from 0 to 255"},
        {true, R"("mask":{"nodata":"declared"},"classes":[]})", "names no bands or no classes"},
    };
    std::string many = head + R"("mask":{"nodata":"declared"},"classes":[)";
    for (int k = 1; k <= 256; ++k) many += (k > 1 ? "," : "") + std::string(R"({"value":)") + std::to_string(k) + R"(,"centre":[1]})";
    const std::string tooMany = many + "]}";
    for (const auto& c : cases) {
        const std::string path = dir.File("model.json");
        std::remove(path.c_str());
        if (c.body) std::ofstream(path) << (c.headed ? head : "") << c.body;
        Model m;
        std::string error;
        EXPECT_FALSE(ReadModel(path, m, error)) << c.says;
        const std::string named = "model '" + path + "' " + c.says;
        EXPECT_EQ(error.substr(0, named.size()), named);
    }
    std::ofstream(dir.File("many.json")) << tooMany;
    Model m;
    std::string error;
    EXPECT_FALSE(ReadModel(dir.File("many.json"), m, error));
    EXPECT_NE(error.find("has 256 classes; a class raster holds at most 255"), std::string::npos) << error;
}

TEST(ReportJsonTest, EveryFieldCrossesAndNaNStaysNaN) {
    const double nan = std::nan("");
    RunReport r;
    r.outcome = RunOutcome::PreviewFailed;
    r.message = "cannot write 'p.png'";
    r.remedies = {{AskField::Preview, "elsewhere"}, {AskField::Overwrite, ""}};
    r.signal = 0, r.error = 0, r.status = 0;
    r.width = 640, r.height = 480;
    r.classes = {{1, "class 1", true, 10, 20, 30, 5000000000, {0.1, 1e-300}, {0.1, -2.5}, {0.0, 3.25}, {1, 0.5, 0.5, 2}},
                 {2, "", false, 0, 0, 0, 0, {7, 8}, {nan, nan}, {nan, nan}, {nan, nan, nan, nan}}};
    r.iterations = {{1, 2, 3, {}, 5, 12.25}, {2, 0, 0, {{4, 6}, {1, 3}}, 3, 0.1}, {0, 1, 0, {}, 2, nan}};
    r.separabilityMeasure = "Jeffries-Matusita distance";
    r.separability = {{0, 1.25}, {1.25, 0}};
    r.separabilityThreshold = 1.9, r.separabilityMaximum = 2;
    r.unclassified = 1234, r.figuresKnown = true, r.excludedPixels = 1000;
    r.excludedBy = {{"nodata", 600}, {"mask raster", 400}};
    r.background = 100, r.nonFinite = 84, r.beyondReach = 50, r.pixelArea = 0.25;
    r.warnings = {{"50 pixels beyond reach", {{AskField::MergeDistance, "larger"}}}, {"plain", {}}};
    r.seconds = 1.5, r.gdalFailures = 2;
    r.gdalErrors = {"ERROR 1: one", "ERROR 4: two"};
    r.filesWritten = {"/o/out.img", "/o/out.hdr"};
    const RunReport b = ReportFromJson(ReportJson(r));
    EXPECT_EQ(std::tuple(b.outcome, b.message, b.width, b.height, b.unclassified, b.figuresKnown, b.excludedPixels),
              std::tuple(r.outcome, r.message, 640, 480, r.unclassified, true, r.excludedPixels));
    EXPECT_EQ(std::tuple(b.background, b.nonFinite, b.beyondReach, b.pixelArea, b.seconds, b.gdalFailures),
              std::tuple(r.background, r.nonFinite, r.beyondReach, 0.25, 1.5, 2));
    EXPECT_EQ(b.excludedBy, r.excludedBy);
    EXPECT_EQ(b.gdalErrors, r.gdalErrors);
    EXPECT_EQ(b.filesWritten, r.filesWritten);
    const auto remedies = [](const std::vector<Remedy>& list) {
        std::vector<std::pair<AskField, std::string>> out;
        for (const Remedy& x : list) out.emplace_back(x.field, x.how);
        return out;
    };
    EXPECT_EQ(remedies(b.remedies), remedies(r.remedies));
    ASSERT_EQ(b.warnings.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(b.warnings[i].message, r.warnings[i].message);
        EXPECT_EQ(remedies(b.warnings[i].remedies), remedies(r.warnings[i].remedies));
    }
    ASSERT_EQ(b.classes.size(), 2u);
    for (size_t k = 0; k < 2; ++k) {
        const ClassReport &x = r.classes[k], &y = b.classes[k];
        EXPECT_EQ(std::tuple(y.value, y.name, y.hasColour, y.red, y.green, y.blue, y.pixels),
                  std::tuple(x.value, x.name, x.hasColour, x.red, x.green, x.blue, x.pixels));
        EXPECT_EQ(Bits(y.centre), Bits(x.centre));
        EXPECT_EQ(Bits(y.mean), Bits(x.mean));
        EXPECT_EQ(Bits(y.stddev), Bits(x.stddev));
        EXPECT_EQ(Bits(y.covariance), Bits(x.covariance));
    }
    ASSERT_EQ(b.iterations.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        const IterationReport &x = r.iterations[i], &y = b.iterations[i];
        EXPECT_EQ(std::tuple(y.round, y.removed, y.split, y.merged, y.classes, Bits({y.meanDistance})),
                  std::tuple(x.round, x.removed, x.split, x.merged, x.classes, Bits({x.meanDistance})));
    }
    EXPECT_EQ(std::tuple(b.separabilityMeasure, b.separability, b.separabilityThreshold, b.separabilityMaximum),
              std::tuple(r.separabilityMeasure, r.separability, 1.9, 2.0));
}

} // namespace
