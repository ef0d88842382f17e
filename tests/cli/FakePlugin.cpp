// A stand-in classification plug-in whose outcome a test chooses, so the
// CLI's handling of success, failure and misbehaviour can be checked without
// depending on what the real engine makes of an image.
//
// ISODATA_FAKE_MODE selects the behaviour:
//   succeed  writes the 4 x 3 class raster kClasses and returns true
//   fail     leaves an incomplete result and returns false, as a failed run does
//   claim    returns true without writing anything
//   throw    throws from Execute
//   crash    aborts (a signal sanitizers leave alone, unlike a segmentation fault)
//   gdal     writes the result and returns true, but GDAL raised an error on the way
//   hang     reports its first stage as the plug-in words it, then waits half a
//            minute before succeeding
// Every run first prints the record it was given, one "field=value" a line,
// so a test can see what the CLI handed over.
#include <ClassificationISO.h>
#include <IsodataRun.h>
#include <KalAlgo.h>
#include <StageTexts.h>

#include <cpl_string.h>
#include <gdal_priv.h>

#include <boost/any.hpp>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

constexpr int kWidth = 4, kHeight = 3;
// Class 1 has 5 pixels, class 2 has 2, class 3 has 4, and one is unclassified.
constexpr GByte kClasses[kWidth * kHeight] = {1, 1, 2, 0, 1, 3, 3, 2, 1, 1, 3, 3};

void PrintRecord(const stInfoClassificationISO& r) {
    std::cout << "inputPath=" << r.inputPath.toStdString() << "\nresultPath=" << r.resultPath.toStdString()
              << "\ndesiredClassCount=" << r.desiredClassCount << "\ninitialClassCount=" << r.initialClassCount
              << "\nminClassPixels=" << r.minClassPixels << "\nmaxMergePairs=" << r.maxMergePairs
              << "\nmaxIterations=" << r.maxIterations << "\nstdDevThreshold=" << r.stdDevThreshold
              << "\nmergeDistanceThreshold=" << r.mergeDistanceThreshold << "\nbandIndices=";
    for (size_t i = 0; i < r.bandIndices.size(); ++i) std::cout << (i ? "," : "") << r.bandIndices[i];
    std::cout << "\n";
}

bool WriteResult(const std::string& path, bool complete) {
    GDALAllRegister();
    GDALDatasetUniquePtr ds(
        GetGDALDriverManager()->GetDriverByName("ENVI")->Create(path.c_str(), kWidth, kHeight, 1, GDT_Byte, nullptr));
    if (!ds || !complete) return ds != nullptr;
    GDALRasterBand* band = ds->GetRasterBand(1);
    if (band->RasterIO(GF_Write, 0, 0, kWidth, kHeight, const_cast<GByte*>(kClasses), kWidth, kHeight, GDT_Byte, 0,
                       0, nullptr) != CE_None)
        return false;
    GDALColorTable colours;
    const GDALColorEntry entries[] = {{0, 0, 0, 255}, {255, 0, 0, 255}, {0, 160, 0, 255}, {0, 0, 255, 255}};
    for (int i = 0; i < 4; ++i) colours.SetColorEntry(i, &entries[i]);
    band->SetColorTable(&colours);
    band->SetCategoryNames(CPLStringList(CSLTokenizeString2("Unclassified,Class 1,Class 2,Class 3", ",", 0)).List());
    return true;
}

class FakeClassification : public KalAlgo::IKalAlgo {
public:
    bool Execute() override {
        // The run with options carries the record; the stand-in reports no figures.
        const auto* run = boost::any_cast<stIsodataRun>(&m_params);
        const auto& record = run ? run->params : boost::any_cast<const stInfoClassificationISO&>(m_params);
        PrintRecord(record);
        const char* setting = std::getenv("ISODATA_FAKE_MODE");
        const std::string mode = setting ? setting : "";
        if (mode == "throw") throw std::runtime_error("fake engine exploded");
        if (mode == "crash") std::abort();
        if (mode == "gdal")
            CPLError(CE_Failure, CPLE_FileIO, "fake read error in '%s'", record.inputPath.toUtf8().data());
        if (mode == "hang") {
            m_sigProgress(0.0, QString(isodata::kStatisticalClassification), this);
            std::this_thread::sleep_for(std::chrono::seconds(30));
        }
        if (mode == "claim") return true;
        const bool complete = mode != "fail";
        return WriteResult(record.resultPath.toStdString(), complete) && complete;
    }
};

} // namespace

extern "C" __attribute__((visibility("default"))) KalAlgo::IKalAlgo* GetAlgoObj() { return new FakeClassification(); }
extern "C" __attribute__((visibility("default"))) KalAlgo::IKalAlgo* GetAlgoObjWithOptions() {
    return new FakeClassification();
}
