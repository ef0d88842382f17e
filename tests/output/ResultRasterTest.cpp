// The final labelling pass: the nearest-centre rule for one pixel, the
// region reader, and the whole pass writing class numbers into an ENVI
// class raster with its progress reports.
#include "ResultRaster.h"

#include "support/TestSupport.h"

#include <KalDataSource.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace {

using isodata::LabelCenters;
using KalDataSource::DatasetFactory;
using KalDataSource::RasterDataset;
using KalUtility::_ptr_t;
using testsupport::RasterTable;
using testsupport::TempDir;

LabelCenters Centers(const std::vector<std::vector<float>>& rows, std::size_t bands) {
    LabelCenters c;
    c.clusters = rows.size();
    c.bands = bands;
    for (const auto& row : rows) c.values.insert(c.values.end(), row.begin(), row.end());
    return c;
}

// Labels one pixel given as its band values, placed at column 0.
std::int32_t Label(const std::vector<float>& pixel, const std::vector<std::vector<float>>& centres) {
    std::vector<const float*> rows;
    for (const float& v : pixel) rows.push_back(&v);
    return isodata::LabelPixel(rows.data(), 0, Centers(centres, pixel.size()));
}

// ---- LabelPixel ----

TEST(LabelPixelTest, NearestOfThreeCentresWins) {
    // City-block distances 170, 30 and 40.
    EXPECT_EQ(Label({100, 50, 20}, {{0, 0, 0}, {90, 60, 30}, {120, 40, 10}}), 2);
}

TEST(LabelPixelTest, DistanceTakesAbsoluteDifferences) {
    // Signed differences would make (10, 30) the nearer centre (-20 + 0).
    EXPECT_EQ(Label({-10, 30}, {{10, 30}, {-12, 30}}), 2);
}

TEST(LabelPixelTest, DistanceIsCityBlockNotEuclidean) {
    // City-block: 6 + 6 = 12 against 0 + 11 = 11; Euclidean would prefer the first.
    EXPECT_EQ(Label({10, 10}, {{16, 16}, {10, 21}}), 2);
}

TEST(LabelPixelTest, AllZeroPixelIsBackgroundEvenWithACentreAtZero) {
    EXPECT_EQ(Label({0, 0, 0}, {{50, 50, 50}, {0, 0, 0}}), 0);
}

TEST(LabelPixelTest, ValuesSummingToZeroAreBackground) {
    EXPECT_EQ(Label({5, -5}, {{5, -5}, {10, 10}}), 0);
}

TEST(LabelPixelTest, TieGoesToTheLowerClass) {
    EXPECT_EQ(Label({10, 10}, {{8, 10}, {12, 10}}), 1);
    EXPECT_EQ(Label({10, 10}, {{30, 30}, {12, 10}, {8, 10}}), 2);
}

TEST(LabelPixelTest, NoCentresGivesUnclassified) { EXPECT_EQ(Label({5, 5}, {}), 0); }

TEST(LabelPixelTest, CentreAtOrBeyondTenMillionLeavesThePixelUnclassified) {
    EXPECT_EQ(Label({2e7f, 2e7f}, {{0, 0}}), 0);
    EXPECT_EQ(Label({1e7f, 0}, {{0, 0}}), 0);
    EXPECT_EQ(Label({9999999.0f, 0}, {{0, 0}}), 1);
}

TEST(LabelPixelTest, ReadsTheRequestedColumn) {
    const std::vector<float> band1 = {1, 2, 80}, band2 = {1, 2, 80};
    const float* rows[] = {band1.data(), band2.data()};
    const LabelCenters centres = Centers({{0, 0}, {80, 80}}, 2);
    EXPECT_EQ(isodata::LabelPixel(rows, 0, centres), 1);
    EXPECT_EQ(isodata::LabelPixel(rows, 2, centres), 2);
}

// ---- files ----

class RasterFileTest : public ::testing::Test {
protected:
    _ptr_t<RasterDataset> WriteSource(const std::string& name, int width, int height,
                                      const std::vector<std::vector<double>>& bands,
                                      GDALDataType type = GDT_Float32) {
        RasterTable raster;
        raster.width = width;
        raster.height = height;
        raster.type = type;
        raster.bands = bands;
        testsupport::WriteRaster(dir.File(name), raster);
        return factory.OpenRasterDataset(dir.QFile(name), KalDataSource::OpenReadOnly);
    }

    DatasetFactory& factory = *DatasetFactory::Instance();
    TempDir dir;
};

// ---- ReadBandRegion ----

class ReadBandRegionTest : public RasterFileTest {
protected:
    void SetUp() override {
        // Band 1: four 2 x 2 blocks of 1, 2, 3, 4. Band 2: 100 + 10 * row + column.
        std::vector<std::vector<double>> bands(2, std::vector<double>(16));
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x) {
                bands[0][y * 4 + x] = 1 + x / 2 + 2 * (y / 2);
                bands[1][y * 4 + x] = 100 + 10 * y + x;
            }
        source = WriteSource("source.tif", 4, 4, bands, GDT_Byte);
        ASSERT_TRUE(source);
        buffer.assign(16, -1.0f);
    }

    std::int32_t Read(int band, int xOff, int yOff, int xSize, int ySize, double scale) {
        return isodata::ReadBandRegion(source, band, xOff, yOff, xSize, ySize, scale, scale, buffer.data(),
                                       GDT_Float32);
    }

    _ptr_t<RasterDataset> source;
    std::vector<float> buffer;
};

TEST_F(ReadBandRegionTest, ReadsTheRegionOfTheZeroBasedBand) {
    EXPECT_EQ(Read(1, 1, 2, 2, 1, 1.0), 1);
    EXPECT_EQ(buffer[0], 121.0f);
    EXPECT_EQ(buffer[1], 122.0f);
    EXPECT_EQ(buffer[2], -1.0f);
}

TEST_F(ReadBandRegionTest, HalfScaleFillsAHalfSizeBuffer) {
    EXPECT_EQ(Read(0, 0, 0, 4, 4, 0.5), 1);
    EXPECT_EQ(std::vector<float>(buffer.begin(), buffer.begin() + 4), (std::vector<float>{1, 2, 3, 4}));
    for (size_t i = 4; i < buffer.size(); ++i) EXPECT_EQ(buffer[i], -1.0f) << i;
}

TEST_F(ReadBandRegionTest, ConvertsToTheRequestedType) {
    std::vector<std::uint8_t> bytes(3, 0);
    EXPECT_EQ(isodata::ReadBandRegion(source, 1, 0, 3, 3, 1, 1.0, 1.0, bytes.data(), GDT_Byte), 1);
    EXPECT_EQ(bytes, (std::vector<std::uint8_t>{130, 131, 132}));
}

TEST_F(ReadBandRegionTest, NegativeOffsetsReadNothing) {
    EXPECT_EQ(Read(0, -1, 0, 2, 2, 1.0), 0);
    EXPECT_EQ(Read(0, 0, -1, 2, 2, 1.0), 0);
    EXPECT_EQ(buffer, std::vector<float>(16, -1.0f));
}

TEST_F(ReadBandRegionTest, MissingBandReadsNothing) {
    EXPECT_EQ(Read(2, 0, 0, 2, 2, 1.0), 0);
    EXPECT_EQ(Read(-1, 0, 0, 2, 2, 1.0), 0);
    EXPECT_EQ(buffer, std::vector<float>(16, -1.0f));
}

// ---- GenerateResultRaster ----

using Reports = std::vector<std::pair<double, std::string>>;

int Record(double percent, const char* text, void* userData) {
    static_cast<Reports*>(userData)->emplace_back(percent, text ? text : "<null>");
    return 0;
}

class GenerateResultRasterTest : public RasterFileTest {
protected:
    // Runs the pass into a fresh ENVI Byte raster of the source's size and
    // returns the labels written.
    std::vector<double> Generate(const _ptr_t<RasterDataset>& source, const std::vector<std::uint32_t>& bandIndices,
                                 const LabelCenters& centres) {
        const QString path = dir.QFile("classes.img");
        {
            _ptr_t<RasterDataset> result = factory.CreateRasterDataset(
                path, source->GetRasterXSize(), source->GetRasterYSize(), 1, KalDataSource::PDT_Byte, "ENVI");
            EXPECT_TRUE(result);
            if (!result) return {};
            EXPECT_EQ(isodata::GenerateResultRaster(source, result, bandIndices, centres, Record, &reports), 0);
        }
        return testsupport::ReadBand(path.toStdString());
    }

    Reports reports;
};

TEST_F(GenerateResultRasterTest, ClassNumbersAbove255KeepTheirLowByte) {
    // 300 one-band centres at 10, 20, ..., 3000: centre c sits at 10 c.
    std::vector<std::vector<float>> rows;
    for (int c = 1; c <= 300; ++c) rows.push_back({10.0f * c});
    const auto source = WriteSource("source.tif", 5, 1, {{2560, 3000, 50, 0, 2550}});
    ASSERT_TRUE(source);
    EXPECT_EQ(Generate(source, {0}, Centers(rows, 1)), (std::vector<double>{0, 44, 5, 0, 255}));
}

TEST_F(GenerateResultRasterTest, WholePassKeepsBackgroundTiesAndTheDistanceCeiling) {
    // Columns: all zero, +5/-5, equally near centres 2 and 3, nearest to the
    // negative centre 4, and 4e7 away from everything.
    const auto source = WriteSource("source.tif", 5, 1, {{0, 5, 10, -10, 2e7}, {0, -5, 10, 30, 2e7}});
    ASSERT_TRUE(source);
    const LabelCenters centres = Centers({{0, 0}, {8, 10}, {12, 10}, {-12, 30}}, 2);
    EXPECT_EQ(Generate(source, {0, 1}, centres), (std::vector<double>{0, 0, 2, 4, 0}));
}

class StripedSourceTest : public GenerateResultRasterTest {
protected:
    static constexpr int kWidth = 6, kHeight = 37;  // rows span several reads

    // The class of a pixel is set by band 3; band 2 is the same everywhere and
    // band 1 follows another pattern, so reading the wrong bands shows.
    static int ClassOf(int x, int y) { return 1 + (x + y) % 4; }

    void SetUp() override {
        std::vector<std::vector<double>> bands(3, std::vector<double>(kWidth * kHeight));
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                bands[0][y * kWidth + x] = 10 * (1 + (2 * x + y + 1) % 4);
                bands[1][y * kWidth + x] = 50;
                bands[2][y * kWidth + x] = 10 * ClassOf(x, y);
            }
        source = WriteSource("source.tif", kWidth, kHeight, bands);
        ASSERT_TRUE(source);
        // Centres in band-list order (band 3, band 2).
        labels = Generate(source, {2, 1}, Centers({{10, 50}, {20, 50}, {30, 50}, {40, 50}}, 2));
    }

    _ptr_t<RasterDataset> source;
    std::vector<double> labels;
};

TEST_F(StripedSourceTest, EveryRowIsLabelledFromTheListedBands) {
    ASSERT_EQ(labels.size(), static_cast<size_t>(kWidth * kHeight));
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) EXPECT_EQ(labels[y * kWidth + x], ClassOf(x, y)) << x << "," << y;
}

TEST_F(StripedSourceTest, ReportsZeroThenOneStepPerRowUpToOneHundred) {
    ASSERT_EQ(reports.size(), static_cast<size_t>(kHeight + 1));
    EXPECT_EQ(reports.front().first, 0.0);
    for (size_t i = 0; i < reports.size(); ++i) {
        EXPECT_EQ(reports[i].second, "Generating result file") << i;
        EXPECT_NEAR(reports[i].first, i * 100.0 / kHeight, 1e-9) << i;
        if (i > 0) {
            EXPECT_GT(reports[i].first, reports[i - 1].first) << i;
        }
    }
    EXPECT_NEAR(reports.back().first, 100.0, 1e-9);
}

TEST_F(GenerateResultRasterTest, BandTheSourceLacksDoesNotStopThePass) {
    const auto source = WriteSource("source.tif", 4, 3, {std::vector<double>(12, 7.0)});
    ASSERT_TRUE(source);
    testsupport::QuietGdalErrors quiet;
    const std::vector<double> labels = Generate(source, {0, 5}, Centers({{7, 0}, {90, 90}}, 2));
    EXPECT_EQ(labels.size(), 12u);
    EXPECT_EQ(reports.size(), 4u);
}

} // namespace
