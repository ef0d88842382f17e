// Prepare against real files: every refusal names the setting at fault and
// says why in words a person can act on, and an accepted ask becomes the
// request the run needs (bands, format, threads, memory, mask rule, run
// folder's place) with the host's parameters described from it.
#include "Prepare.h"

#include "support/TestSupport.h"

#include <gdal_priv.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <thread>

using namespace isodata_run;

namespace {

using Nodata = MaskSettings::Nodata;

// A 4 x 3 input of three bands, a 4 x 3 and a 2 x 2 mask, and an ask that
// Prepare accepts as it is.
class PrepareFixture {
protected:
    PrepareFixture() {
        const testsupport::RasterTable in{4, 3, GDT_Byte, {std::vector<double>(12, 1), std::vector<double>(12, 2),
                                                           std::vector<double>(12, 3)}};
        testsupport::WriteRaster(dir.File("in.tif"), in);
        testsupport::WriteRaster(dir.File("mask.tif"), {4, 3, GDT_Byte, {std::vector<double>(12, 1)}});
        testsupport::WriteRaster(dir.File("small.tif"), {2, 2, GDT_Byte, {std::vector<double>(4, 1)}});
        ask.input = dir.File("in.tif");
        ask.output = dir.File("out.img");
        ask.format = "ENVI";
        ask.classes = 8, ask.initialClasses = 4, ask.minClassPixels = 1, ask.maxMergePairs = 2;
        ask.maxIterations = 5, ask.stdDevThreshold = 10, ask.mergeDistance = 20;
        ask.threads = 1, ask.memoryMB = 0;
    }
    // "@" in an expected text stands for the test's folder.
    std::string At(const std::string& text) const { return testsupport::AtFolder(text, dir.Path()); }

    testsupport::TempDir dir;
    RunAsk ask;
};

struct Refused {
    const char* name;
    std::function<void(RunAsk&, const std::string& dir)> change;
    AskField field;
    const char* says;  // part of the problem, "@" for the folder
    std::vector<AskField> remedies = {};
    const char* needsDriver = "";
};

void Write(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

// A model of one class for in.tif's three Byte bands, with band 1 described
// as given, made on a raster of bandCount bands, its centre starting at first.
std::string ModelFor(const std::string& dir, int bandCount, const char* description, const char* first) {
    const std::string path = dir + "/model.json";
    Write(path, std::string(R"({"format":"isodata-model","version":1,"input":{"band_count":)") +
                    std::to_string(bandCount) + R"(,"bands":[{"band":1,"description":")" + description +
                    R"(","data_type":"Byte"},{"band":2,"data_type":"Byte"},{"band":3,"data_type":"Byte"}]},)"
                    R"("mask":{"nodata":"declared"},"classes":[{"value":1,"centre":[)" + first + R"(,2,3]}]})");
    return path;
}

void Describe(const std::string& raster, int band, const char* description) {
    const GDALDatasetUniquePtr ds(GDALDataset::Open(raster.c_str(), GDAL_OF_RASTER | GDAL_OF_UPDATE));
    ds->GetRasterBand(band)->SetDescription(description);
}

const Refused kRefused[] = {
    {"InputMissing", [](RunAsk& a, auto& d) { a.input = d + "/nope.tif"; }, AskField::Input, "'@/nope.tif' does not exist"},
    {"InputIsAFifo", [](RunAsk& a, auto& d) { a.input = d + "/fifo"; ASSERT_EQ(mkfifo(a.input.c_str(), 0600), 0); },
     AskField::Input, "'@/fifo' is not a regular file"},
    {"InputUnreadable", [](RunAsk& a, auto& d) { a.input = d + "/junk.tif"; Write(a.input, "no raster"); },
     AskField::Input, "'@/junk.tif' is not a raster GDAL can read"},
    {"InputIsAContainer",
     [](RunAsk& a, auto& d) {
         const GDALDatasetUniquePtr in(GDALDataset::Open((d + "/in.tif").c_str(), GDAL_OF_RASTER));
         a.input = d + "/two.nc";
         GDALDatasetUniquePtr(GetGDALDriverManager()->GetDriverByName("netCDF")
                                  ->CreateCopy(a.input.c_str(), in.get(), FALSE, nullptr, nullptr, nullptr));
     },
     AskField::Input, "'@/two.nc' holds several datasets; name one: NETCDF:\"@/two.nc\":Band1 (", {}, "netCDF"},
    {"OpenOptionWithoutValue", [](RunAsk& a, auto&) { a.openOptions = {"NUM_THREADS=1", "GEOREF"}; },
     AskField::OpenOptions, "GEOREF: an open option is NAME=VALUE"},
    {"OpenOptionTheDriverLacks", [](RunAsk& a, auto&) { a.openOptions = {"COLOR=RED"}; }, AskField::OpenOptions,
     "COLOR=RED: driver GTiff has no open option COLOR"},
    {"OpenOptionsOnAVrt",
     [](RunAsk& a, auto& d) {
         a.input = d + "/in.vrt";
         a.openOptions = {"NUM_THREADS=1"};
         Write(a.input, "<VRTDataset rasterXSize=\"4\" rasterYSize=\"3\"><VRTRasterBand dataType=\"Byte\" band=\"1\">"
                        "<SimpleSource><SourceFilename relativeToVRT=\"1\">in.tif</SourceFilename>"
                        "<SourceBand>1</SourceBand></SimpleSource></VRTRasterBand></VRTDataset>");
     },
     AskField::OpenOptions, "cannot go with a VRT input"},
    {"UnknownFormat", [](RunAsk& a, auto&) { a.format = "Tiffany"; }, AskField::Format,
     "Tiffany: GDAL has no raster driver of that name that writes files"},
    {"CreationOptionWithoutValue", [](RunAsk& a, auto&) { a.format = "GTiff", a.creationOptions = {"=YES"}; },
     AskField::CreationOptions, "=YES: a creation option is NAME=VALUE"},
    {"LossyCompression", [](RunAsk& a, auto&) { a.format = "GTiff", a.creationOptions = {"COMPRESS=JPEG"}; },
     AskField::Format, "GTiff with COMPRESS=JPEG cannot hold the class raster exactly (COMPRESS=JPEG changes"},
    {"BandOutOfRange", [](RunAsk& a, auto&) { a.bands = {1, 4}; }, AskField::Bands,
     "4: input '@/in.tif' has only 3 bands"},
    {"BandsWithAModel", [](RunAsk& a, auto& d) { a.bands = {1}, a.apply = d + "/model.json"; }, AskField::Bands,
     "cannot go with a model to apply"},
    {"NodataTooMany", [](RunAsk& a, auto&) { a.srcNodata = "0,1 2 3"; }, AskField::SrcNodata,
     "'0,1 2 3' gives 4 values: give one, or one for each of the input's 3 bands"},
    {"NodataTwoForThreeBands", [](RunAsk& a, auto&) { a.srcNodata = "0 1"; }, AskField::SrcNodata,
     "'0 1' gives 2 values: give one, or one for each of the input's 3 bands"},
    {"NodataNotANumber", [](RunAsk& a, auto&) { a.srcNodata = "0 zero"; }, AskField::SrcNodata,
     "expects a number, several in quotes, or None, got '0 zero'"},
    {"MaskMissing", [](RunAsk& a, auto& d) { a.mask = d + "/nomask.tif"; }, AskField::Mask,
     "'@/nomask.tif' does not exist"},
    {"MaskOfAnotherSize", [](RunAsk& a, auto& d) { a.mask = d + "/small.tif"; }, AskField::Mask,
     "'@/small.tif' is 2 x 2 pixels, the input 4 x 3: a mask raster must match it"},
    {"OutputExists", [](RunAsk& a, auto&) { Write(a.output, "old"); }, AskField::Output, "'@/out.img' already exists",
     {AskField::Overwrite}},
    {"OutputIsTheInput", [](RunAsk& a, auto&) { a.output = a.input, a.format = "GTiff", a.overwrite = true; },
     AskField::Output, "'@/in.tif' is the input itself"},
    {"OutputFolderMissing", [](RunAsk& a, auto& d) { a.output = d + "/none/out.img"; }, AskField::Output,
     "folder '@/none' does not exist"},
    {"PreviewIsTheOutputsHeader", [](RunAsk& a, auto& d) { a.previewPath = d + "/out.hdr"; }, AskField::Preview,
     "'@/out.hdr' would overwrite '@/out.hdr', part of the output"},
    {"ModelOutIsThePreview", [](RunAsk& a, auto& d) { a.previewPath = a.modelOut = d + "/q.png"; },
     AskField::ModelOut, "'@/q.png' is the preview's name too"},
    {"TmpDirIsAFile", [](RunAsk& a, auto& d) { a.tmpDir = d + "/mask.tif"; }, AskField::TmpDir,
     "'@/mask.tif' is not a folder"},
    {"OutputIsTheMaskRaster",
     [](RunAsk& a, auto& d) { a.mask = a.output = d + "/mask.tif", a.format = "GTiff", a.overwrite = true; },
     AskField::Output, "'@/mask.tif' is the mask raster itself"},
    {"OutputIsTheModel",
     [](RunAsk& a, auto& d) { a.apply = a.output = ModelFor(d, 3, "", "1"), a.format = "GTiff", a.overwrite = true; },
     AskField::Output, "'@/model.json' is the model to apply"},
    {"ModelOfAnotherBandCount", [](RunAsk& a, auto& d) { a.apply = ModelFor(d, 6, "", "1"); }, AskField::Apply,
     "'@/model.json' was made on a raster of 6 bands, the input has 3"},
    {"ModelOfBandsInAnotherOrder",
     [](RunAsk& a, auto& d) { a.apply = ModelFor(d, 3, "Red", "1"), Describe(a.input, 1, "NIR"); }, AskField::Apply,
     "'@/model.json': band 1 of the input is 'NIR', the model's band 1 was 'Red' (bands in another order?)"},
    {"ModelCentreBeyondItsType", [](RunAsk& a, auto& d) { a.apply = ModelFor(d, 3, "", "1e300"); }, AskField::Apply,
     "'@/model.json': the centre of class 1 lies outside the values of Byte"},
    {"RawInputShorterThanItsHeader",
     [](RunAsk& a, auto& d) {
         const GDALDatasetUniquePtr in(GDALDataset::Open((d + "/in.tif").c_str(), GDAL_OF_RASTER));
         a.input = d + "/raw.img";
         GDALDatasetUniquePtr(GetGDALDriverManager()->GetDriverByName("ENVI")
                                  ->CreateCopy(a.input.c_str(), in.get(), FALSE, nullptr, nullptr, nullptr));
         ASSERT_EQ(truncate(a.input.c_str(), 30), 0);
     },
     AskField::Input, "'@/raw.img' is shorter than its header says: '@/raw.img' lacks 6 of its 36 bytes"},
    {"MemoryBeyondTheMachine", [](RunAsk& a, auto&) { a.memoryMB = 1 << 30; }, AskField::Memory,
     "1073741824 is more than this machine's "},
    {"NegativeThreads", [](RunAsk& a, auto&) { a.threads = -1; }, AskField::Threads, "cannot be negative"},
    {"NegativeMemory", [](RunAsk& a, auto&) { a.memoryMB = -2; }, AskField::Memory,
     "cannot be negative (0 keeps the working copy on disk)"},
};

class PrepareRefusalTest : public PrepareFixture, public ::testing::TestWithParam<Refused> {};

TEST_P(PrepareRefusalTest, NamesTheSettingAtFaultAndWhy) {
    const Refused& c = GetParam();
    testsupport::RegisterGdal();
    if (*c.needsDriver && !GetGDALDriverManager()->GetDriverByName(c.needsDriver))
        GTEST_SKIP() << "GDAL has no " << c.needsDriver << " driver to write this input with";
    ASSERT_EQ(Prepare(ask).refusal, std::nullopt) << "the unchanged ask must pass";
    c.change(ask, dir.Path());
    const Prepared prepared = Prepare(ask);
    ASSERT_TRUE(prepared.refusal);
    EXPECT_EQ(prepared.refusal->field, c.field) << prepared.refusal->problem;
    EXPECT_NE(prepared.refusal->problem.find(At(c.says)), std::string::npos) << prepared.refusal->problem;
    std::vector<AskField> remedies;
    for (const Remedy& r : prepared.refusal->remedies) remedies.push_back(r.field);
    EXPECT_EQ(remedies, c.remedies);
}

INSTANTIATE_TEST_SUITE_P(Prepare, PrepareRefusalTest, ::testing::ValuesIn(kRefused),
                         [](const auto& info) { return std::string(info.param.name); });

// The machine's memory as the kernel reports it, for the default budget.
std::int64_t QuarterOfMemTotal() {
    std::ifstream meminfo("/proc/meminfo");
    std::string key;
    std::int64_t kB = 0;
    while (meminfo >> key >> kB && key != "MemTotal:") meminfo.ignore(256, '\n');
    return kB * 1024 / 4;
}

struct Accepted {
    const char* name;
    std::vector<int> bands;
    int threads, memoryMB;
    const char* tmpDir, *srcNodata, *mask;
    // What the request holds: threads 0 stands for the processors, memory
    // -1 for a quarter of the machine's, "@" for the test's folder.
    std::vector<int> bandIndices;
    int wantThreads;
    std::int64_t wantMemory;
    const char* place;
    Nodata nodata;
    std::vector<double> nodataValues;
    bool nonFinite, datasetMasks, maskOn;
    const char* maskRaster;
};

const Accepted kAccepted[] = {
    {"AsDefaults", {}, 0, -1, "", "", "", {0, 1, 2}, 0, -1, "@", Nodata::Declared, {}, true, true, true, ""},
    {"NothingMasked", {3, 1}, 3, 0, "@/tmp", "None", "none", {2, 0}, 3, 0, "@/tmp", Nodata::Ignored, {}, false, false,
     false, ""},
    {"GivenNodata", {2}, 1, 5, "", "0 0 255", "", {1}, 1, 5 << 20, "@", Nodata::Given, {0, 0, 255}, true, true, true, ""},
    {"MaskRaster", {}, 2, 1024, "", "none", "@/mask.tif", {0, 1, 2}, 2, std::int64_t{1} << 30, "@", Nodata::Ignored,
     {}, false, true, true, "@/mask.tif"},
    {"MaskByDatasetName", {}, 1, 0, "", "", "GTIFF_DIR:1:@/mask.tif", {0, 1, 2}, 1, 0, "@", Nodata::Declared, {},
     true, true, true, "GTIFF_DIR:1:@/mask.tif"},
};

class PrepareAcceptTest : public PrepareFixture, public ::testing::TestWithParam<Accepted> {};

TEST_P(PrepareAcceptTest, BuildsTheRequestTheRunNeeds) {
    const Accepted& c = GetParam();
    ask.output = dir.File("out.tif"), ask.format = "gtiff", ask.creationOptions = {"TILED=YES"};
    ask.bands = c.bands, ask.threads = c.threads, ask.memoryMB = c.memoryMB;
    ask.tmpDir = At(c.tmpDir), ask.srcNodata = c.srcNodata, ask.mask = At(c.mask);
    ASSERT_EQ(mkdir(dir.File("tmp").c_str(), 0700), 0);
    RunRequest described;
    ask.describeParameters = [&](const RunRequest& r) { described = r; return std::string("{\"classes\":8}"); };
    const Prepared p = Prepare(ask);
    ASSERT_FALSE(p.refusal) << p.refusal->problem;
    const RunRequest& r = p.request;
    EXPECT_EQ(r.input.path, dir.File("in.tif"));
    EXPECT_EQ(r.input.driver, "GTiff");
    EXPECT_EQ(r.input.files, std::vector<std::string>{dir.File("in.tif")});
    EXPECT_EQ(std::tuple(r.input.width, r.input.height, r.input.bands), std::tuple(4, 3, 3));
    EXPECT_EQ(r.output.format, "GTiff");
    EXPECT_EQ(r.output.creationOptions, std::vector<std::string>{"TILED=YES"});
    EXPECT_EQ(r.classification.bandIndices, c.bandIndices);
    EXPECT_EQ(std::tuple(r.classification.classes, r.classification.initialClasses, r.classification.maxIterations,
                         r.classification.mergeDistance),
              std::tuple(8, 4, 5, 20.0));
    EXPECT_EQ(r.threads, c.wantThreads ? c.wantThreads : static_cast<int>(std::thread::hardware_concurrency()));
    EXPECT_EQ(r.memoryBytes, c.wantMemory < 0 ? QuarterOfMemTotal() : c.wantMemory);
    EXPECT_EQ(r.runFolderPlace, At(c.place));
    EXPECT_EQ(r.mask.nodata, c.nodata);
    EXPECT_EQ(r.mask.nodataValues, c.nodataValues);
    EXPECT_EQ(std::tuple(r.mask.nonFinite, r.mask.datasetMasks, r.mask.on), std::tuple(c.nonFinite, c.datasetMasks, c.maskOn));
    EXPECT_EQ(r.mask.maskRaster, At(c.maskRaster));
    // The host described the request as checked: every band, GDAL's spelling.
    EXPECT_EQ(r.model.parametersJson, "{\"classes\":8}");
    EXPECT_EQ(described.classification.bandIndices, c.bandIndices);
    EXPECT_EQ(described.output.format, "GTiff");
    EXPECT_EQ(p.space.folder, r.runFolderPlace);
    EXPECT_GT(p.space.free, p.space.needed);
}

INSTANTIATE_TEST_SUITE_P(Prepare, PrepareAcceptTest, ::testing::ValuesIn(kAccepted),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
