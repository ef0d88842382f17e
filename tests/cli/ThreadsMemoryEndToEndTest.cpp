// Memory against threads: the command with the real plug-in, run on the
// sample scene and on a larger tiled scene at 1, 64 and 1024 threads, stays
// under 150 MB of peak resident memory with -mem 0 and gives the same class
// raster and model file to the byte every time (the model's record of the
// -threads option aside). Buffers that each thread or
// reader keeps for itself would show here: at 1024 threads even 1 MB a
// thread is a gigabyte.
//
// The peak is the kernel's count for the child (wait4's maximum resident
// set size, as `time -v` prints it). It includes what the test process had
// resident when it forked the child, so it can only overstate the command's
// own peak; the test process reads no raster itself before the runs.
#include "Subprocess.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Args = std::vector<std::string>;

// The bound with -mem 0, in kilobytes as the kernel counts them.
constexpr long kBoundKilobytes = 150 * 1024;

// AddressSanitizer's shadow memory and quarantine count in the peak of a
// sanitized build's run, so there only the bytes are compared.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kPeaksCount = false;
#else
constexpr bool kPeaksCount = true;
#endif

void ExpectUnder(long peakKilobytes, long bound) {
    if (kPeaksCount) {
        EXPECT_LT(peakKilobytes, bound);
    }
}

// The model file less the line that records the -threads option.
std::string WithoutThreads(const std::string& model) {
    const std::size_t at = model.find("\"threads\":");
    if (at == std::string::npos) return model;
    const std::size_t begin = model.rfind('\n', at), end = model.find('\n', at);
    return model.substr(0, begin) + (end == std::string::npos ? "" : model.substr(end));
}

struct Outcome {
    long peakKilobytes = 0;
    std::string classes, model;
};

class ThreadsMemoryEndToEndTest : public ::testing::Test {
protected:
    // Runs isodata on input (in the folder) into out.img and model.json.
    Outcome Run(const std::string& input, Args options) {
        Args args{ISODATA_BINARY, "-q", "-overwrite", "-model-out", "model.json"};
        args.insert(args.end(), options.begin(), options.end());
        args.insert(args.end(), {input, "out.img"});
        const clitest::ProcessResult r = clitest::RunProcess(args, {}, dir.Path());
        EXPECT_EQ(r.exitCode, 0) << r.err;
        return {r.peakKilobytes, testsupport::ReadText(dir.File("out.img")), testsupport::ReadText(dir.File("model.json"))};
    }

    // Every thread count under the bound with -mem 0, each giving the bytes of one thread.
    void ExpectBoundedAndAlike(const std::string& input) {
        const Outcome one = Run(input, {"-mem", "0", "-threads", "1"});
        ASSERT_FALSE(one.classes.empty());
        ASSERT_NE(one.model.find("\"threads\""), std::string::npos);  // the line left out below
        ExpectUnder(one.peakKilobytes, kBoundKilobytes);
        for (const char* threads : {"64", "1024"}) {
            SCOPED_TRACE(std::string(threads) + " threads");
            const Outcome many = Run(input, {"-mem", "0", "-threads", threads});
            ExpectUnder(many.peakKilobytes, kBoundKilobytes);
            EXPECT_TRUE(many.classes == one.classes);
            EXPECT_TRUE(WithoutThreads(many.model) == WithoutThreads(one.model));
        }
    }

    testsupport::TempDir dir;
};

TEST_F(ThreadsMemoryEndToEndTest, TheSampleSceneStaysUnder150MbAtAnyThreadCount) {
    if (!testsupport::FileExists(ISODATA_SAMPLE_SCENE)) GTEST_SKIP() << "the sample scene is not in data/";
    ExpectBoundedAndAlike(ISODATA_SAMPLE_SCENE);
}

// 2000 x 2000 pixels of three bands in 256 x 256 tiles: a working copy of
// 1000 x 1000 read by several lanes, and result windows several tiles wide
// for every reader.
TEST_F(ThreadsMemoryEndToEndTest, ALargerTiledSceneStaysUnder150MbAtAnyThreadCountAndWithinTheDefaultBudget) {
    if (!testsupport::FileExists(ISODATA_SAMPLE_SCENE)) GTEST_SKIP() << "the sample scene is not in data/";
    const std::string make = std::string("gdal_translate -q -outsize 2000 2000 -b 1 -b 2 -b 3 -co TILED=YES ") +
                             ISODATA_SAMPLE_SCENE + " large.tif";
    ASSERT_EQ(clitest::RunProcess({"/bin/sh", "-c", make}, {}, dir.Path()).exitCode, 0);
    ExpectBoundedAndAlike("large.tif");
    // By default the working copy (1000 x 1000 x 3 floats) is held in memory, on top of the bound.
    const Outcome held = Run("large.tif", {"-threads", "1024"});
    ExpectUnder(held.peakKilobytes, kBoundKilobytes + 1000 * 1000 * 3 * 4 / 1024);
}

} // namespace
