// The engine with a validity mask on its working copy: a block's sample is
// its first valid pixel and an excluded block gives none; excluded pixels
// join no cluster; the overall mean distance is taken over valid pixels.
#include "EngineHarness.h"

#include <KalDataSource.h>

namespace {

using enginetest::EngineHarness;
using enginetest::OneBand;

// 8 x 4 in two 4 x 4 blocks. Block 0 is excluded but for (2,1), value 40;
// block 1 loses its top-left (4,0) and holds 100 elsewhere but for 120 at
// (5,0), its first valid pixel. The excluded pixels hold 250.
const std::vector<double> kValues = {250, 250, 250, 250, 250, 120, 100, 100,  //
                                     250, 250, 40,  250, 100, 100, 100, 100,  //
                                     250, 250, 250, 250, 100, 100, 100, 100,  //
                                     250, 250, 250, 250, 100, 100, 100, 100};
const std::vector<double> kValid = {0, 0, 0, 0, 0, 1, 1, 1,  //
                                    0, 0, 1, 0, 1, 1, 1, 1,  //
                                    0, 0, 0, 0, 1, 1, 1, 1,  //
                                    0, 0, 0, 0, 1, 1, 1, 1};

TEST(MaskedEngineTest, SamplesAreFirstValidPixelsAndExcludedPixelsJoinNoCluster) {
    EngineHarness<std::uint8_t> h;
    h.Make(8, 4, OneBand(kValues), 2, 4, kValid);
    h.seam.SelectInitialCenters(h.Stage());
    // Two samples, 40 and 120: the most central is the first of the tie.
    EXPECT_EQ(h.state.sampleCount, 2u);
    EXPECT_EQ(h.seam.Centers(), (std::vector<std::vector<std::uint8_t>>{{40}, {120}}));
    h.ClassifyWith({{40}, {110}});
    EXPECT_EQ(h.state.blockClassCounts, (std::vector<std::vector<std::uint32_t>>{{1, 0}, {0, 15}}));
    EXPECT_EQ(h.ScratchFile(0), (std::vector<std::uint32_t>{6}));
    EXPECT_EQ(h.state.distanceSums, (std::vector<double>{0.0, 14 * 10.0 + 10.0}));
}

TEST(MaskedEngineTest, OverallMeanDistanceIsTakenOverTheValidPixels) {
    EngineHarness<std::uint8_t> h;
    stInfoClassificationISO record;
    record.initialClassCount = 2;
    record.desiredClassCount = 2;  // round 1 stops once the distances are known
    record.maxIterations = 1;
    h.Make(8, 4, OneBand(kValues), record, 4, kValid);
    KalDataSource::DatasetFactory::Instance()->CreateRasterDataset(h.dir.QFile("out.img"), 8, 4, 1,
                                                                   KalDataSource::PDT_Byte, "ENVI");
    ASSERT_TRUE(h.engine.RunIsodata(testsupport::RecordProgress, &h.reports));
    // The first pass put the 15 pixels of block 1 with centre 120, 14 of
    // them 20 away: 280 over 16 valid pixels, not over all 32.
    EXPECT_DOUBLE_EQ(h.state.overallMeanDistance, 280.0 / 16.0);
}

} // namespace
