// The split: which cluster is split, and where its two new centres land.
#include "EngineHarness.h"

namespace {

using Centres = std::vector<std::vector<std::uint8_t>>;

// Pixels of one row, classified with the centres; then the statistics the
// split test reads are fixed by the case.
struct SplitCase {
    const char* name;
    testsupport::BandValues bands;
    Centres centres;
    std::vector<double> meanDistances;
    double overall, threshold;
    std::int64_t minPixels;
    std::vector<double> sigmas0;  // cluster 0's deviations, largest first
    Centres after;    // the centres after the split, or as before
};

std::vector<double> Repeat(std::vector<double> head, int times, std::vector<double> tail) {
    std::vector<double> v;
    for (int i = 0; i < times; ++i) v.push_back(head[i % head.size()]);
    v.insert(v.end(), tail.begin(), tail.end());
    return v;
}

TEST(SplitClustersTest, SplitsTheFirstClusterPassingFromTheWidestOnThenWrapsAround) {
    // Cluster 0 of 21 pixels at 0/20 has sigma 10; a minimum of 10 pixels
    // means a size bound of 20 from the widest cluster on, 22 before it.
    const SplitCase cases[] = {
        {"moved by +-sigma/2, wrapping in bytes", {{230, 230}}, {{250}}, {1.0}, 0.0, 5.0, 0, {20}, {{4}, {240}}},
        {"every band moves by half the largest sigma", {{2, 18}, {8, 12}}, {{10, 10}}, {1.0}, 0.0, 1.0, 0, {8, 2},
         {{14, 14}, {6, 6}}},
        {"before the widest: 21 <= 2M + 2", {Repeat({0, 20}, 21, {150, 250, 150, 250})}, {{10}, {200}}, {1.0, 1.0},
         5.0, 5.0, 10, {10}, {{10}, {200}}},
        {"from the widest on: 21 > 2M", {Repeat({0, 20}, 21, {195, 205, 195, 205})}, {{10}, {200}}, {1.0, 1.0}, 5.0,
         5.0, 10, {10}, {{15}, {5}, {200}}},
        {"forward scan before the wrap-around", {{6, 14, 50, 70, 106, 114}}, {{10}, {60}, {110}}, {9.0, 1.0, 9.0},
         5.0, 3.0, 100, {4}, {{10}, {60}, {112}, {108}}},
        {"wrap-around finds a cluster before the widest", {{6, 14, 50, 70}}, {{10}, {60}}, {9.0, 1.0}, 5.0, 3.0, 100,
         {4}, {{12}, {8}, {60}}},
        {"an empty cluster's NaN sigma fails every test", {{1, 1}}, {{1}, {90}}, {0.0, 9.0}, 0.0, 0.0, 0, {0},
         {{1}, {90}}}};
    for (const SplitCase& c : cases) {
        SCOPED_TRACE(c.name);
        enginetest::EngineHarness<std::uint8_t> h;
        h.Make(static_cast<int>(c.bands[0].size()), 1, c.bands, static_cast<std::int32_t>(c.centres.size()));
        h.ClassifyWith(c.centres);
        h.seam.ComputeClusterCenters(h.Stage());
        h.seam.Centers() = c.centres;
        h.state.meanDistances = c.meanDistances;
        h.state.overallMeanDistance = c.overall;
        h.state.stdDevThreshold = c.threshold;
        h.state.minClassPixels = c.minPixels;
        EXPECT_EQ(h.seam.SplitClusters(h.Stage()), c.after.size() > c.centres.size());
        EXPECT_EQ(h.seam.Centers(), c.after);
        EXPECT_EQ(h.state.classSlots, c.after.size() + 1);
        EXPECT_EQ(h.state.classStdDevs[0], c.sigmas0);
    }
}

} // namespace
