// The iteration driver run whole on a small image: which stages run in which
// round, the growing stage texts, the class raster and what is left on disk.
// (A result it cannot open fails the run: see the run driver's tests.)
#include "EngineHarness.h"

#include <KalDataSource.h>

namespace {

// 12 x 12, three groups of columns around 20, 120 and 220. In 4 x 4 blocks
// the samples are 20, 120 and 220, so three initial centres find the groups.
std::vector<double> ThreeGroups() {
    std::vector<double> v;
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 12; ++x) v.push_back(20.0 + 100.0 * (x / 4) + (x % 4 == 0 ? 0 : (x + y) % 3));
    return v;
}

const std::string kStart = "Select Initial Cluster Center", kClassify = "Statistical classification";
const std::string kRound1 = kStart + "1times iteration", kRound2 = kRound1 + "2times iteration",
                  kRound3 = kRound2 + "3times iteration";
const std::string kCentre = "Computing Cluster Center", kMean = "Calculate the average distance from the center of the class",
                  kMerged = "Merger-Statistical classification", kResult = "Generating result file";

TEST(IterationDriverTest, RoundsSplitMergeOrStopByTheCountsAndTheRoundsParity) {
    const struct {
        const char* name;
        std::int32_t desired, iterations, minPixels;
        double mergeDistance;
        std::vector<std::string> texts;  // each run of equal texts once
        std::vector<double> row;         // the class of each column, in every row
    } cases[] = {
        {"K = D on round 1 stops", 3, 5, 0, 0.0,
         {kStart, kClassify, kRound1 + kCentre, kRound1 + kMean, kResult}, {2, 2, 2, 2, 1, 1, 1, 1, 3, 3, 3, 3}},
        {"D = 1 merges on rounds 1 and 2, stops on 3", 1, 5, 0, 1000.0,
         {kStart, kClassify, kRound1 + kCentre, kRound1 + kMean, kRound1 + kMerged, kRound2 + kCentre,
          kRound2 + kMean, kRound2 + kMerged, kRound3 + kCentre, kRound3 + kMean, kResult},
         std::vector<double>(12, 1.0)},
        {"every cluster too small: all dropped; one round, a split tried", 3, 1, 1000, 0.0,
         {kStart, kClassify, kRound1 + kClassify, kRound1 + kCentre, kRound1 + kMean, kRound1 + "Split", kResult},
         std::vector<double>(12, 0.0)}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        enginetest::EngineHarness<std::uint8_t> h;
        stInfoClassificationISO record;
        record.initialClassCount = 3;
        record.desiredClassCount = c.desired;
        record.maxIterations = c.iterations;
        record.minClassPixels = c.minPixels;
        record.maxMergePairs = 1;
        record.stdDevThreshold = 100.0;
        record.mergeDistanceThreshold = c.mergeDistance;
        h.Make(12, 12, {ThreeGroups()}, record, 4);
        KalDataSource::DatasetFactory::Instance()->CreateRasterDataset(h.dir.QFile("out.img"), 12, 12, 1,
                                                                       KalDataSource::PDT_Byte, "ENVI");
        EXPECT_TRUE(h.engine.RunIsodata(testsupport::RecordProgress, &h.reports));
        std::vector<std::string> texts;
        for (const auto& r : h.reports)
            if (texts.empty() || texts.back() != r.second) texts.push_back(r.second);
        EXPECT_EQ(texts, c.texts);
        // No scratch file is left, whatever the clusters merged or dropped.
        EXPECT_EQ(h.dir.List(), (std::vector<std::string>{"in.tif", "out.hdr", "out.img"}));
        const std::vector<double> labels = testsupport::ReadBand(h.dir.File("out.img"));
        for (int y = 0; y < 12; ++y)
            EXPECT_EQ(std::vector<double>(labels.begin() + 12 * y, labels.begin() + 12 * y + 12), c.row) << "row " << y;
    }
}

} // namespace
