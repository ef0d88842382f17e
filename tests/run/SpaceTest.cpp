// The room a run folder needs, part by part in bytes worked out by hand, and
// the refusal when it is not there. Prepare's refusal of a real full file
// system runs end to end in the command's tests (BusyTest.FullDisk...).
#include "Checks.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

using namespace isodata_run;

namespace {

struct Sized {
    const char* name;
    int width, height, bands;
    const char* driver;
    std::vector<std::string> openOptions;
    std::int64_t memoryBytes;
    bool mask, apply;
    const char* format;
    std::vector<std::string> creationOptions;
    bool preview;
    // workingCopy, workingMask, scratch, readScratch, result, conversion, preview, needed
    std::vector<std::int64_t> parts;
};

// Scratch slack: 512 files of a 4096-byte block, 2097152; side files 65536;
// a preview 1048576.
const Sized kSized[] = {
    // Not reduced: 4800 pixels, 3 floats each; a GeoTIFF read directly.
    {"Small", 80, 60, 3, "GTiff", {}, 0, false, false, "ENVI", {}, false,
     {57600, 0, 19200 + 2097152, 0, 4800 + 65536, 0, 0, 2244288}},
    // Halved to 200 x 150 = 30000 pixels: 360000 bytes fit in 1 MiB; a
    // netCDF input is read through one band of floats.
    {"HalvedInMemory", 400, 300, 3, "netCDF", {}, 1 << 20, true, false, "GTiff", {}, true,
     {0, 30000, 120000 + 2097152, 120000, 120000 + 65536, 185536, 1048576, 3786800}},
    // 101 x 5001 halved, rounded half up: 51 x 2501 = 127551 pixels, 1020408
    // bytes, one more than the budget; open options send the GeoTIFF
    // through the band-by-band read.
    {"OneByteOverBudget", 101, 5001, 2, "GTiff", {"NUM_THREADS=2"}, 1020407, false, false, "ENVI", {}, false,
     {1020408, 0, 510204 + 2097152, 510204, 505101 + 65536, 0, 0, 4708605}},
    {"AtTheBudget", 101, 5001, 2, "GTiff", {"NUM_THREADS=2"}, 1020408, false, false, "ENVI", {}, false,
     {0, 0, 510204 + 2097152, 510204, 505101 + 65536, 0, 0, 3688197}},
    // A model labels the input directly; ENVI with options is converted.
    {"ApplyingAModel", 400, 300, 3, "GTiff", {}, 0, true, true, "ENVI", {"INTERLEAVE=BIL"}, false,
     {0, 0, 0, 0, 185536, 185536, 0, 371072}},
};

class SpaceTest : public ::testing::TestWithParam<Sized> {};

TEST_P(SpaceTest, CountsEveryPartTheRunWrites) {
    const Sized& c = GetParam();
    testsupport::TempDir dir;
    RunRequest request;
    request.input = {dir.File("in"), {dir.File("in")}, c.openOptions, c.driver, c.width, c.height, c.bands};
    request.output.format = c.format;
    request.output.creationOptions = c.creationOptions;
    request.output.previewPath = c.preview ? dir.File("p.png") : "";
    request.memoryBytes = c.memoryBytes;
    request.mask.on = c.mask;
    if (c.apply) request.model.applyCentres = {{1, 2, 3}};
    request.runFolderPlace = dir.Path();
    const SpaceEstimate s = EstimateSpace(request);
    EXPECT_EQ((std::vector<std::int64_t>{s.workingCopy, s.workingMask, s.scratch, s.readScratch, s.result, s.conversion,
                                         s.preview, s.needed}),
              c.parts);
    EXPECT_EQ(s.folder, dir.Path());
    EXPECT_GT(s.free, 0);
    request.runFolderPlace = dir.File("missing");
    EXPECT_EQ(EstimateSpace(request).free, -1);
    EXPECT_TRUE(EstimateSpace(request).Enough());
}

INSTANTIATE_TEST_SUITE_P(Space, SpaceTest, ::testing::ValuesIn(kSized),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(SpaceRefusalTest, OffersAnotherFolderAndMemoryWhereTheCopyWouldFitThere) {
    const struct {
        std::int64_t needed, workingCopy, free;
        bool inTmpDir;
        const char* says;
        std::vector<Remedy> remedies;
    } cases[] = {
        {3000000, 2500000, 1000000, false, "the run needs 3.0 MB in '/x', 1.0 MB free there",
         {{AskField::TmpDir, "to work on another file system"},
          {AskField::Memory, "of 3 MB or more, to keep the working copy in memory"}}},
        {3000000, 2500000, 499999, false, "the run needs 3.0 MB in '/x', 500 kB free there",
         {{AskField::TmpDir, "to work on another file system"}}},
        {41000000000, 0, 999, false, "the run needs 41 GB in '/x', 999 bytes free there",
         {{AskField::TmpDir, "to work on another file system"}}},
        // A folder asked for already: another one is the advice, not the option itself.
        {3000000, 0, 999, true, "the run needs 3.0 MB in '/x', 999 bytes free there",
         {{AskField::TmpDir, "with a folder on a file system that has the room"}}},
        // A copy no machine of today holds in memory is never advised there.
        {std::int64_t{1} << 60, (std::int64_t{1} << 60) - 1000, 2000, false,
         "the run needs 1.2 EB in '/x', 2.0 kB free there", {{AskField::TmpDir, "to work on another file system"}}},
    };
    for (const auto& c : cases) {
        SpaceEstimate s;
        s.folder = "/x", s.needed = c.needed, s.workingCopy = c.workingCopy, s.free = c.free;
        const Refusal r = SpaceRefusal(s, c.inTmpDir);
        EXPECT_EQ(r.field, AskField::None);
        EXPECT_EQ(r.problem, c.says);
        ASSERT_EQ(r.remedies.size(), c.remedies.size()) << c.says;
        for (size_t i = 0; i < r.remedies.size(); ++i)
            EXPECT_EQ(std::pair(r.remedies[i].field, r.remedies[i].how), std::pair(c.remedies[i].field, c.remedies[i].how));
    }
}

} // namespace
