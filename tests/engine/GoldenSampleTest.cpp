// The sample scene classified with fixed parameters must give the same class
// raster, byte for byte, build after build.
#include "ISODataClassification.h"
#include "support/TestSupport.h"

#include <KalDataSource.h>

#include <boost/any.hpp>
#include <gtest/gtest.h>

#include <QFile>

#include <cstdint>

namespace {

TEST(GoldenSampleTest, SampleSceneGivesTheRecordedClassRaster) {
    if (!testsupport::FileExists(ISODATA_SAMPLE_SCENE)) GTEST_SKIP() << "sample scene not fetched";
    testsupport::TempDir dir;
    ASSERT_TRUE(QFile::copy(ISODATA_SAMPLE_SCENE, dir.QFile("scene.tif")));
    KalDataSource::DatasetFactory::Instance()->RegisterPlugin();

    stInfoClassificationISO record;
    record.inputPath = dir.QFile("scene.tif");
    record.resultPath = dir.QFile("classes.img");
    // The command line's defaults: fewer initial centres than classes wanted,
    // so the rounds split and merge.
    record.desiredClassCount = 8;
    record.initialClassCount = 4;
    record.minClassPixels = 20;
    record.maxMergePairs = 2;
    record.maxIterations = 10;
    record.stdDevThreshold = 10.0;
    record.mergeDistanceThreshold = 20.0;
    record.bandIndices = {0, 1, 2, 3, 4, 5};
    isodata::ISODataClassification algorithm;
    boost::any params(record);
    algorithm.SetParams(params);
    ASSERT_TRUE(algorithm.Execute());

    const std::string raster = testsupport::ReadText(dir.File("classes.img"));
    ASSERT_EQ(raster.size(), 349u * 352u);
    EXPECT_EQ(testsupport::Fnv1a(raster), testsupport::kSampleClassesFnv1a) << std::hex << testsupport::Fnv1a(raster);
}

} // namespace
