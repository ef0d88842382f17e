// The run with options through the loaded plug-in, as our command drives it:
// pixels the validity mask excludes are labelled 0, and nothing else about a
// run depends on what they hold; a mask that excludes nothing is the plain
// run, result and progress alike; a mask that leaves nothing runs nothing.
// A run's centres applied to its own input label it as the run did, and the
// class statistics are what the pixels hold.
#include "IsodataRun.h"
#include "support/TestSupport.h"

#include <KalAlgo.h>

#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <boost/any.hpp>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <functional>
#include <limits>
#include <set>
#include <sstream>

namespace {

using GetAlgoObjFn = KalAlgo::IKalAlgo* (*)();
using PixelFn = std::function<double(int band, int x, int y)>;

struct Scene {
    int width, height, bands;
    GDALDataType type;
    int alphaBand = 0;  // 1-based; 0 for none
    bool nodataZero = false;  // every band declares nodata 0
};

// Writes a GeoTIFF row by row, so large scenes cost no table in memory.
void WriteScene(const std::string& path, const Scene& s, const PixelFn& value) {
    testsupport::RegisterGdal();
    GDALDatasetUniquePtr ds(GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        path.c_str(), s.width, s.height, s.bands, s.type, nullptr));
    ASSERT_TRUE(ds);
    double gt[6] = {500000.0, 30.0, 0.0, 4200000.0, 0.0, -30.0};
    ds->SetGeoTransform(gt);
    std::vector<double> row(static_cast<std::size_t>(s.width));
    for (int b = 1; b <= s.bands; ++b) {
        if (b == s.alphaBand) ds->GetRasterBand(b)->SetColorInterpretation(GCI_AlphaBand);
        if (s.nodataZero) ds->GetRasterBand(b)->SetNoDataValue(0);
        for (int y = 0; y < s.height; ++y) {
            for (int x = 0; x < s.width; ++x) row[static_cast<std::size_t>(x)] = value(b, x, y);
            ASSERT_EQ(ds->GetRasterBand(b)->RasterIO(GF_Write, 0, y, s.width, 1, row.data(), s.width, 1, GDT_Float64,
                                                     0, 0, nullptr),
                      CE_None);
        }
    }
}

// Four groups of values, far apart in every band, with a little texture.
double Land(int band, int x, int y) {
    const int group = (x / 37 + y / 29) % 4;
    return 20 + 50 * group + 7 * band + (x * 3 + y * 5) % 6;
}

// The excluded pixels: a border of 21 rows, a block-sized square, a diagonal
// line and the first 40 pixels of one row, so that blocks lose their
// top-left pixel, a part of their pixels, or all of them.
bool Excluded(int x, int y) {
    return y < 21 || (x >= 60 && x < 140 && y >= 40 && y < 110) || x == y || (y == 120 && x < 40);
}

using JunkFn = std::function<double(int x, int y)>;

// Values no scene holds, differing pixel by pixel: what an excluded pixel may
// hold without changing anything. Non-finite ones stay excluded whatever else
// is in force.
double NonFiniteJunk(int x, int y) {
    const double specials[] = {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity()};
    return specials[(x * 7919 + y * 104729) % 3];
}

JunkFn JunkFor(GDALDataType type) {
    if (type == GDT_Float32 || type == GDT_Float64)
        return [](int x, int y) { return (x + y) % 4 == 0 ? 1e30 : (x + y) % 4 == 1 ? -3.0 : NonFiniteJunk(x, y); };
    return [](int x, int y) { return std::vector<double>{0, 255, 1, 200, 17}[(x * 7919 + y * 104729) % 5]; };
}

struct Outcome {
    bool executed = false;
    std::vector<double> labels;
    testsupport::Reports reports;
    stIsodataRunReport report;
};

class RunWithOptionsTest : public ::testing::Test {
protected:
    void SetUp() override {
        library = dlopen(ISODATA_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << dlerror();
        getAlgoObj = reinterpret_cast<GetAlgoObjFn>(dlsym(library, "GetAlgoObj"));
        getRunAlgoObj = reinterpret_cast<GetAlgoObjFn>(dlsym(library, "GetAlgoObjWithOptions"));
        ASSERT_TRUE(getAlgoObj && getRunAlgoObj);
    }
    void TearDown() override {
        if (library) dlclose(library);
    }

    stInfoClassificationISO Record(const std::string& input, int bands) const {
        stInfoClassificationISO r{QString::fromStdString(input), dir.QFile("classes.img"), 4, 2, 5, 1, 4, 8.0, 15.0, {}};
        for (int b = 0; b < bands; ++b) r.bandIndices.push_back(b);
        return r;
    }

    // One run through either entry: the plain one when options is null.
    Outcome Run(const stInfoClassificationISO& record, const stIsodataRunOptions* options) {
        Outcome out;
        KalUtility::_ptr_t<KalAlgo::IKalAlgo> algorithm(options ? getRunAlgoObj() : getAlgoObj());
        algorithm->m_sigProgress.connect([&out](double percent, const QString& text, void*) {
            out.reports.push_back({percent, text.toStdString()});
            return 1;
        });
        boost::any params = options ? boost::any(stIsodataRun{record, *options, {}}) : boost::any(record);
        algorithm->SetParams(params);
        out.executed = algorithm->Execute();
        if (options) out.report = boost::any_cast<stIsodataRun&>(algorithm->GetParams()).report;
        if (testsupport::FileExists(record.resultPath.toStdString()))
            out.labels = testsupport::ReadBand(record.resultPath.toStdString());
        return out;
    }

    // The options of a run with mask.tif, written 0 where excluded holds and 1 elsewhere.
    stIsodataRunOptions MaskOptions(int width, int height, const std::function<bool(int, int)>& excluded = Excluded) {
        const std::string path = dir.File("mask.tif");
        WriteScene(path, {width, height, 1, GDT_Byte}, [&](int, int x, int y) { return excluded(x, y) ? 0.0 : 1.0; });
        stIsodataRunOptions o;
        o.validityMask = true;
        o.maskRasterPath = QString::fromStdString(path);
        return o;
    }

    // The run on a scene and on the same scene with junk in its excluded
    // pixels must agree byte for byte and report for report; excluded pixels
    // are 0 and counted.
    void ExpectExcludedPixelsChangeNothing(const Scene& scene, const stIsodataRunOptions& options,
                                           const std::function<bool(int, int)>& excluded, const PixelFn& value,
                                           JunkFn junk = nullptr) {
        if (!junk) junk = JunkFor(scene.type);
        const std::string a = dir.File("a.tif"), b = dir.File("b.tif");
        WriteScene(a, scene, value);
        WriteScene(b, scene, [&](int band, int x, int y) {
            return excluded(x, y) && band != scene.alphaBand ? junk(x, y) : value(band, x, y);
        });
        const int bands = scene.alphaBand ? scene.bands - 1 : scene.bands;
        const Outcome first = Run(Record(a, bands), &options);
        const Outcome second = Run(Record(b, bands), &options);
        ASSERT_TRUE(first.executed && second.executed);
        ExpectSameRun(second, first);

        std::int64_t expected = 0;
        std::set<double> classes;
        for (int y = 0; y < scene.height; ++y) {
            for (int x = 0; x < scene.width; ++x) {
                const double label = first.labels[static_cast<std::size_t>(y) * scene.width + x];
                if (excluded(x, y)) {
                    ++expected;
                    ASSERT_EQ(label, 0.0) << "excluded pixel " << x << "," << y;
                } else {
                    classes.insert(label);
                }
            }
        }
        EXPECT_GE(classes.size(), 3u) << "the valid pixels hold several classes";
        EXPECT_EQ(first.report.excludedPixels, expected);
        EXPECT_EQ(second.report.excludedPixels, expected);
    }

    static void ExpectSameRun(const Outcome& got, const Outcome& expected) {
        EXPECT_EQ(got.labels, expected.labels);
        EXPECT_EQ(got.reports, expected.reports);
    }

    testsupport::TempDir dir;
    void* library = nullptr;
    GetAlgoObjFn getAlgoObj = nullptr, getRunAlgoObj = nullptr;
};

// Every class's centre, mean and deviation, bit for bit (NaN of an empty class included).
std::string ClassBits(const stIsodataRunReport& report) {
    std::string bits;
    for (const stIsodataClassReport& k : report.classes)
        for (const std::vector<double>* v : {&k.centre, &k.mean, &k.stddev, &k.covariance})
            bits.append(reinterpret_cast<const char*>(v->data()), v->size() * sizeof(double));
    return bits;
}

template <class T>
class ValidityMaskTypedTest : public RunWithOptionsTest {};
using InputTypes = ::testing::Types<std::uint8_t, std::int16_t, std::uint16_t, float, double>;
TYPED_TEST_SUITE(ValidityMaskTypedTest, InputTypes);

template <class T> constexpr GDALDataType kGdalType =
    std::is_same_v<T, std::uint8_t> ? GDT_Byte : std::is_same_v<T, std::int16_t> ? GDT_Int16
    : std::is_same_v<T, std::uint16_t> ? GDT_UInt16 : std::is_same_v<T, float> ? GDT_Float32 : GDT_Float64;

// 210 x 180 is clustered at half size, on a grid of 64-pixel blocks.
TYPED_TEST(ValidityMaskTypedTest, ExcludedPixelsOfAMaskRasterChangeNoByteAndNoReport) {
    const Scene scene{210, 180, 3, kGdalType<TypeParam>};
    this->ExpectExcludedPixelsChangeNothing(scene, this->MaskOptions(210, 180), Excluded, Land);
}

TYPED_TEST(ValidityMaskTypedTest, AMaskThatExcludesNothingIsThePlainRun) {
    const std::string input = this->dir.File("scene.tif");
    WriteScene(input, {210, 180, 3, kGdalType<TypeParam>}, Land);
    const stIsodataRunOptions options = this->MaskOptions(210, 180, [](int, int) { return false; });
    const Outcome plain = this->Run(this->Record(input, 3), nullptr);
    const Outcome masked = this->Run(this->Record(input, 3), &options);
    ASSERT_TRUE(plain.executed && masked.executed);
    this->ExpectSameRun(masked, plain);
    EXPECT_EQ(masked.report.excludedPixels, 0);
    EXPECT_EQ(masked.report.workingValidPixels, 105 * 90);
    // Every option at its default: the plain run through the other entry.
    const stIsodataRunOptions none;
    this->ExpectSameRun(this->Run(this->Record(input, 3), &none), plain);
}

// Non-finite values need no declared nodata (infinities and NaN may change
// places with each other freely); an alpha band is the mask band GDAL gives
// the other bands of an RGBA image.
TEST_F(RunWithOptionsTest, NonFiniteValuesAndPixelsUnderATransparentAlphaAreExcludedWithoutAMaskRaster) {
    stIsodataRunOptions options;
    options.validityMask = true;
    ExpectExcludedPixelsChangeNothing({210, 180, 3, GDT_Float32}, options, Excluded, [](int band, int x, int y) {
        return Excluded(x, y) ? std::numeric_limits<double>::quiet_NaN() : Land(band, x, y);
    }, NonFiniteJunk);
    ExpectExcludedPixelsChangeNothing({210, 180, 4, GDT_Byte, 4}, options, Excluded, [](int band, int x, int y) {
        return band == 4 ? (Excluded(x, y) ? 0.0 : 255.0) : Land(band, x, y);
    });
}

// A declared nodata value excludes its pixels; declared nodata ignored, or
// the mask band dropped, they join the clustering again.
TEST_F(RunWithOptionsTest, DeclaredNodataCanBeReplacedOrIgnored) {
    const std::string input = dir.File("scene.tif");
    testsupport::BandValues bands(3, std::vector<double>(120 * 110));
    for (int b = 0; b < 3; ++b)
        for (int i = 0; i < 120 * 110; ++i)
            bands[b][i] = i / 120 < 15 ? -9999 : Land(b + 1, i % 120, i / 120);
    testsupport::WriteRaster(input, {120, 110, GDT_Int16, bands, {}, {-9999}});
    stIsodataRunOptions declared;
    declared.validityMask = true;
    const Outcome border = Run(Record(input, 3), &declared);
    ASSERT_TRUE(border.executed);
    EXPECT_EQ(border.report.excludedPixels, 15 * 120);
    EXPECT_EQ(border.report.excludedByMaskBands, 15 * 120);

    stIsodataRunOptions ignored = declared;
    ignored.nodata = IsodataNodata::Ignored;
    const Outcome plain = Run(Record(input, 3), nullptr);
    const Outcome unmasked = Run(Record(input, 3), &ignored);
    EXPECT_EQ(unmasked.report.excludedPixels, 0);
    EXPECT_EQ(unmasked.labels, plain.labels);

    stIsodataRunOptions given = ignored;
    given.nodata = IsodataNodata::Given;
    given.nodataValues = {-9999};
    ExpectSameRun(Run(Record(input, 3), &given), border);
}

// Threads and a working copy in memory change how fast, never what: the
// class raster, the figures and the progress reports are those of one thread
// with the copy on disk. Every rule excludes pixels here: the mask raster,
// declared nodata (zeros beyond the mask's pattern) and, for the real types,
// NaN, so that every reader of the passes works on its own handles. Without
// the plain rules, several threads and a budget that holds the input have it
// read once, into memory, and the passes read from there.
TYPED_TEST(ValidityMaskTypedTest, EveryThreadCountAndBudgetGivesTheSameRun) {
    for (const auto& [width, height] : {std::pair(96, 90), std::pair(333, 210)}) {
        const std::string input = this->dir.File("scene.tif");
        WriteScene(input, {width, height, 3, kGdalType<TypeParam>, 0, true}, [](int band, int x, int y) {
            if (std::is_floating_point_v<TypeParam> && (x * 7 + y * 3) % 61 == 0) return std::nan("");
            return Excluded(x % 200, y % 200) ? 0.0 : Land(band, x, y) + (x * y) % 13;
        });
        for (const bool plainRules : {true, false}) {
            stIsodataRunOptions options = this->MaskOptions(width, height);
            options.classStatistics = true;
            options.classCovariance = true;
            options.plainRules = plainRules;
            const Outcome one = this->Run(this->Record(input, 3), &options);
            ASSERT_TRUE(one.executed);
            EXPECT_GT(one.report.excludedByMaskBands, 0);
            EXPECT_EQ(one.report.excludedByNonFinite > 0, std::is_floating_point_v<TypeParam>);
            const auto excluded = [](const Outcome& o) {
                return std::tuple(o.report.excludedPixels, o.report.excludedByMaskBands,
                                  o.report.excludedByNonFinite, o.report.excludedByMaskRaster);
            };
            for (const int threads : {1, 2, 3, 7}) {
                for (const std::int64_t budget : {std::int64_t{0}, std::int64_t{1} << 30}) {
                    if (threads == 1 && budget == 0) continue;  // the run compared with
                    SCOPED_TRACE(std::to_string(width) + " wide, plain rules " + std::to_string(plainRules) + ", " +
                                 std::to_string(threads) + " threads, budget " + std::to_string(budget));
                    options.threads = threads;
                    options.memoryBytes = budget;
                    const Outcome many = this->Run(this->Record(input, 3), &options);
                    ASSERT_TRUE(many.executed);
                    this->ExpectSameRun(many, one);
                    EXPECT_EQ(ClassBits(many.report), ClassBits(one.report));
                    EXPECT_EQ(excluded(many), excluded(one));
                }
            }
        }
    }
}

// GDAL opens the file behind a VRT's raw bands once for the whole process,
// so two handles of such a VRT share one file position: read side by side
// they would read each other's bytes. Such an input is read as one thread
// reads it, whatever the thread count.
TEST_F(RunWithOptionsTest, AVirtualRasterOfRawBandsGivesTheOneThreadRunWithThreads) {
    const int width = 333, height = 210, bands = 3;
    std::vector<std::uint16_t> pixels(static_cast<std::size_t>(width) * height * bands);
    for (int b = 0; b < bands; ++b)
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                pixels[(static_cast<std::size_t>(b) * height + y) * width + x] =
                    static_cast<std::uint16_t>(Land(b + 1, x, y) + (x * y) % 13);
    std::ofstream(dir.File("scene.raw"), std::ios::binary)
        .write(reinterpret_cast<const char*>(pixels.data()), static_cast<std::streamsize>(pixels.size() * 2));
    std::ostringstream vrt;
    vrt << "<VRTDataset rasterXSize=\"" << width << "\" rasterYSize=\"" << height << "\">";
    for (int b = 0; b < bands; ++b)
        vrt << "<VRTRasterBand dataType=\"UInt16\" band=\"" << b + 1 << "\" subClass=\"VRTRawRasterBand\">"
            << "<SourceFilename relativeToVRT=\"1\">scene.raw</SourceFilename><ImageOffset>"
            << std::size_t{2} * width * height * b << "</ImageOffset><PixelOffset>2</PixelOffset><LineOffset>"
            << 2 * width << "</LineOffset><ByteOrder>LSB</ByteOrder></VRTRasterBand>";
    vrt << "</VRTDataset>";
    std::ofstream(dir.File("scene.vrt")) << vrt.str();

    stIsodataRunOptions options;
    options.classStatistics = true;
    const Outcome one = Run(Record(dir.File("scene.vrt"), bands), &options);
    ASSERT_TRUE(one.executed);
    for (const int threads : {2, 7}) {
        SCOPED_TRACE(std::to_string(threads) + " threads");
        options.threads = threads;
        options.memoryBytes = std::int64_t{1} << 30;
        ExpectSameRun(Run(Record(dir.File("scene.vrt"), bands), &options), one);
    }
}

TEST_F(RunWithOptionsTest, AMaskThatLeavesNothingRunsNothing) {
    const std::string input = dir.File("scene.tif");
    WriteScene(input, {120, 110, 3, GDT_Byte}, Land);
    const stIsodataRunOptions options = MaskOptions(120, 110, [](int, int) { return true; });
    const auto before = dir.List();
    const Outcome out = Run(Record(input, 3), &options);
    EXPECT_FALSE(out.executed);
    EXPECT_EQ(out.report.resultCode, 12);
    EXPECT_EQ(out.report.workingValidPixels, 0);
    EXPECT_EQ(dir.List(), before);
    EXPECT_EQ(out.reports.back(), std::make_pair(100.0, std::string()));
}

// The working copy at full size (shorter side up to 100) and at a quarter
// (shorter side above 5000), where the mask is read reduced as the data is.
TEST_F(RunWithOptionsTest, ExcludedPixelsChangeNothingAtFullAndQuarterSize) {
    for (const auto& [width, height] : {std::pair(96, 90), std::pair(5004, 5002)}) {
        SCOPED_TRACE(width);
        const auto excluded = [](int x, int y) { return Excluded(x % 300, y % 300) || (x / 700 + y / 900) % 5 == 4; };
        ExpectExcludedPixelsChangeNothing({width, height, 1, GDT_Byte}, MaskOptions(width, height, excluded), excluded,
                                          [](int, int x, int y) { return Land(1, x, y); });
    }
}

// Per class and band, mean and standard deviation (over n) worked out with
// a two-pass sum straight from the files.
struct Direct {
    std::vector<std::int64_t> pixels;
    std::vector<std::vector<double>> mean, stddev;
};

Direct Describe(const std::string& input, int bands, const std::vector<double>& labels, std::size_t classes) {
    Direct d{std::vector<std::int64_t>(classes), std::vector<std::vector<double>>(classes, std::vector<double>(bands)),
             std::vector<std::vector<double>>(classes, std::vector<double>(bands))};
    std::vector<std::vector<double>> values;
    for (int b = 1; b <= bands; ++b) values.push_back(testsupport::ReadBand(input, b));
    for (double l : labels)
        if (l > 0) ++d.pixels[static_cast<std::size_t>(l) - 1];
    for (int b = 0; b < bands; ++b) {
        std::vector<double> sum(classes), squares(classes);
        for (std::size_t i = 0; i < labels.size(); ++i)
            if (labels[i] > 0) sum[static_cast<std::size_t>(labels[i]) - 1] += values[b][i];
        for (std::size_t c = 0; c < classes; ++c) d.mean[c][b] = sum[c] / static_cast<double>(d.pixels[c]);
        for (std::size_t i = 0; i < labels.size(); ++i) {
            if (labels[i] <= 0) continue;
            const std::size_t c = static_cast<std::size_t>(labels[i]) - 1;
            squares[c] += (values[b][i] - d.mean[c][b]) * (values[b][i] - d.mean[c][b]);
        }
        for (std::size_t c = 0; c < classes; ++c) d.stddev[c][b] = std::sqrt(squares[c] / static_cast<double>(d.pixels[c]));
    }
    return d;
}

TEST_F(RunWithOptionsTest, ARunsCentresAppliedToItsInputLabelItAsTheRunDidWithTheStatisticsItHolds) {
    const std::string input = dir.File("scene.tif");
    const auto value = [](int band, int x, int y) {
        return Excluded(x, y) ? std::numeric_limits<double>::quiet_NaN() : 1000.0 * Land(band, x, y) + 0.37 * x;
    };
    WriteScene(input, {210, 180, 3, GDT_Float32}, value);
    stIsodataRunOptions options;
    options.validityMask = true;
    options.classStatistics = true;
    const Outcome run = Run(Record(input, 3), &options);
    ASSERT_TRUE(run.executed);
    ASSERT_GE(run.report.classes.size(), 3u);
    EXPECT_EQ(run.report.pixelType, GDT_Float32);

    const Direct direct = Describe(input, 3, run.labels, run.report.classes.size());
    for (std::size_t c = 0; c < run.report.classes.size(); ++c) {
        const stIsodataClassReport& k = run.report.classes[c];
        EXPECT_EQ(k.pixels, direct.pixels[c]) << "class " << c + 1;
        for (int b = 0; b < 3; ++b) {
            EXPECT_NEAR(k.mean[b], direct.mean[c][b], 1e-9 * std::abs(direct.mean[c][b])) << "class " << c + 1;
            EXPECT_NEAR(k.stddev[b], direct.stddev[c][b], 1e-9 * direct.stddev[c][b] + 1e-12) << "class " << c + 1;
        }
    }

    stIsodataRunOptions apply = options;
    for (const stIsodataClassReport& k : run.report.classes) apply.applyCentres.push_back(k.centre);
    stInfoClassificationISO record = Record(input, 3);
    record.resultPath = dir.QFile("applied.img");
    const Outcome applied = Run(record, &apply);
    ASSERT_TRUE(applied.executed);
    EXPECT_EQ(testsupport::ReadText(dir.File("applied.img")), testsupport::ReadText(dir.File("classes.img")));
    EXPECT_EQ(applied.report.excludedPixels, run.report.excludedPixels);
    ASSERT_EQ(applied.report.classes.size(), run.report.classes.size());
    for (std::size_t c = 0; c < run.report.classes.size(); ++c) {
        EXPECT_EQ(applied.report.classes[c].pixels, run.report.classes[c].pixels);
        EXPECT_EQ(applied.report.classes[c].mean, run.report.classes[c].mean);
    }
    // Labelling alone reports its start, its rows and its end.
    EXPECT_EQ(applied.reports.size(), 1u + 1u + 180u + 1u);
}

} // namespace
