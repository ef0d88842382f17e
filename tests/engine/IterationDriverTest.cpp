// The iteration driver run whole on a small image: which stages run in which
// round, the accumulating stage texts, and what is left on disk.
#include "EngineHarness.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using enginetest::EngineHarness;

// 12 x 12, three groups of columns around 20, 120 and 220. In 4 x 4 blocks
// the samples are 20, 120 and 220, so three initial centres find the groups.
std::vector<double> ThreeGroups() {
    std::vector<double> v;
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 12; ++x) v.push_back(20.0 + 100.0 * (x / 4) + (x + y) % 3 - (x % 4 == 0 ? (x + y) % 3 : 0));
    return v;
}

struct Controls {
    std::uint64_t initial = 3, desired = 3, iterations = 5, mergePairs = 1;
    std::int64_t minPixels = 0;
    double stdDev = 100.0, mergeDistance = 0.0;
};

class IterationDriverTest : public ::testing::Test {
protected:
    bool Run(const Controls& c) {
        h.Make(12, 12, {ThreeGroups()}, c.initial, 4);
        auto* factory = KalDataSource::DatasetFactory::Instance();
        EXPECT_TRUE(factory->CreateRasterDataset(h.dir.QFile("out.img"), 12, 12, 1, KalDataSource::PDT_Byte,
                                                 "ENVI"));
        auto& e = *h.engine;
        e.resultPath = h.dir.QFile("out.img");
        e.desiredClassCount = c.desired;
        e.maxIterations = c.iterations;
        e.maxMergePairs = c.mergePairs;
        e.minClassPixels = c.minPixels;
        e.stdDevThreshold = c.stdDev;
        e.mergeDistanceThreshold = c.mergeDistance;
        return e.RunIsodata(enginetest::RecordProgress, &h.reports);
    }

    // Distinct texts in the order they first appear.
    std::vector<std::string> Texts() const {
        std::vector<std::string> texts;
        for (const auto& r : h.reports)
            if (texts.empty() || texts.back() != r.text) texts.push_back(r.text);
        return texts;
    }

    bool Saw(const std::string& text) const {
        const auto t = Texts();
        return std::find(t.begin(), t.end(), text) != t.end();
    }

    std::vector<double> Labels() const { return testsupport::ReadBand(h.dir.File("out.img")); }

    EngineHarness<std::uint8_t> h;
};

const std::string kStart = "Select Initial Cluster Center";
const std::string kRound1 = kStart + "1times iteration";
const std::string kRound2 = kRound1 + "2times iteration";
const std::string kRound3 = kRound2 + "3times iteration";

TEST_F(IterationDriverTest, StopsAfterTheFirstRoundAtTheDesiredCountAndWritesTheGroups) {
    ASSERT_TRUE(Run({}));
    EXPECT_EQ(Texts(), (std::vector<std::string>{kStart, "Statistical classification",
                                                 kRound1 + "Computing Cluster Center",
                                                 kRound1 + "Calculate the average distance from the center of the class",
                                                 "Generating result file"}));
    const std::vector<double> labels = Labels();
    // Centres in choice order: 120 (most central), 20, 220.
    for (int x = 0; x < 12; ++x) EXPECT_EQ(labels[x], (x < 4 ? 2.0 : x < 8 ? 1.0 : 3.0)) << "column " << x;
    for (const std::string& name : h.dir.List()) EXPECT_EQ(name.find(".km"), std::string::npos) << name;
}

TEST_F(IterationDriverTest, OneIterationThenTheResult) {
    Controls c;
    c.desired = 5;  // K = 3 < 10 on an odd round: a split is tried, none passes
    c.iterations = 1;
    ASSERT_TRUE(Run(c));
    EXPECT_TRUE(Saw(kRound1 + "Split"));
    EXPECT_FALSE(Saw(kRound1 + "Split-Statistical classification"));
    for (const auto& t : Texts()) EXPECT_EQ(t.find("2times iteration"), std::string::npos) << t;
}

TEST_F(IterationDriverTest, SplitSetsTheClassCountBeforeReclassifying) {
    Controls c;
    c.initial = 1;
    c.desired = 4;
    c.stdDev = 1.0;
    c.iterations = 1;
    ASSERT_TRUE(Run(c));
    EXPECT_TRUE(Saw(kRound1 + "Split-Statistical classification"));
    EXPECT_EQ(h.engine->classSlots, 3u);
    EXPECT_EQ(h.engine->centers.size(), 2u);
}

TEST_F(IterationDriverTest, DesiredOneMergesOnEachRoundUntilOneClassIsLeftOnAnOddRound) {
    Controls c;
    c.desired = 1;
    c.mergeDistance = 1000.0;
    // Round 1: K = 3 merges one pair; round 2 (even): K = 2 merges; round 3:
    // K = 1 = D on an odd round stops.
    ASSERT_TRUE(Run(c));
    EXPECT_TRUE(Saw(kRound1 + "Merger-Statistical classification"));
    EXPECT_TRUE(Saw(kRound2 + "Merger-Statistical classification"));
    EXPECT_TRUE(Saw(kRound3 + "Computing Cluster Center"));
    EXPECT_FALSE(Saw(kRound3 + "Merger-Statistical classification"));
    for (const auto& t : Texts()) EXPECT_EQ(t.find("4times iteration"), std::string::npos) << t;
    const std::vector<double> labels = Labels();
    EXPECT_TRUE(std::all_of(labels.begin(), labels.end(), [](double v) { return v == 1.0; }));
    // The files of clusters that merging took away are gone too.
    EXPECT_EQ(h.dir.List(), (std::vector<std::string>{"in.tif", "out.hdr", "out.img"}));
}

TEST_F(IterationDriverTest, ClustersBelowTheMinimumSizeAreAllDropped) {
    Controls c;
    c.minPixels = 1000;
    c.iterations = 1;
    ASSERT_TRUE(Run(c));
    EXPECT_TRUE(h.engine->centers.empty());
    EXPECT_EQ(h.engine->classSlots, 1u);
    const std::vector<double> labels = Labels();
    EXPECT_TRUE(std::all_of(labels.begin(), labels.end(), [](double v) { return v == 0.0; }));
}

TEST_F(IterationDriverTest, MissingResultFailsAndStillRemovesTheScratchFiles) {
    h.Make(12, 12, {ThreeGroups()}, 3, 4);
    h.engine->resultPath = h.dir.QFile("missing/out.img");
    h.engine->desiredClassCount = 3;
    h.engine->maxIterations = 1;
    testsupport::QuietGdalErrors quiet;
    EXPECT_FALSE(h.engine->RunIsodata(enginetest::RecordProgress, &h.reports));
    EXPECT_EQ(h.dir.List(), (std::vector<std::string>{"in.tif"}));
}

} // namespace
