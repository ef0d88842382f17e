// A stand-in classification plug-in whose outcome a test chooses, so the
// CLI's handling of success, failure and misbehaviour can be checked without
// depending on what the real engine makes of an image.
//
// ISODATA_FAKE_MODE selects the behaviour:
//   succeed  writes a fixed 4 x 3 class raster (see kClasses) and returns true
//   fail     writes part of a result and returns false, as a failed run does
//   claim    returns true without writing anything
//   throw    throws from Execute
// ISODATA_FAKE_RECORD, when set, names a file that receives the record the
// plug-in was given, one "field=value" a line.
#include <ClassificationISO.h>
#include <KalAlgo.h>

#include <cpl_string.h>
#include <gdal_priv.h>

#include <boost/any.hpp>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr int kWidth = 4;
constexpr int kHeight = 3;
// Class 1 has 5 pixels, class 2 has 2, class 3 has 4, and one is unclassified.
constexpr GByte kClasses[kWidth * kHeight] = {
    1, 1, 2, 0,
    1, 3, 3, 2,
    1, 1, 3, 3,
};

std::string Env(const char* name) {
    const char* v = std::getenv(name);
    return v ? v : "";
}

void DumpRecord(const stInfoClassificationISO& r) {
    const std::string path = Env("ISODATA_FAKE_RECORD");
    if (path.empty()) return;
    std::ofstream out(path);
    out << "inputPath=" << r.inputPath.toStdString() << "\n"
        << "resultPath=" << r.resultPath.toStdString() << "\n"
        << "desiredClassCount=" << r.desiredClassCount << "\n"
        << "initialClassCount=" << r.initialClassCount << "\n"
        << "minClassPixels=" << r.minClassPixels << "\n"
        << "maxMergePairs=" << r.maxMergePairs << "\n"
        << "maxIterations=" << r.maxIterations << "\n"
        << "stdDevThreshold=" << r.stdDevThreshold << "\n"
        << "mergeDistanceThreshold=" << r.mergeDistanceThreshold << "\n"
        << "bandIndices=";
    for (size_t i = 0; i < r.bandIndices.size(); ++i) out << (i ? "," : "") << r.bandIndices[i];
    out << "\n";
}

bool WriteResult(const std::string& path, bool complete) {
    GDALAllRegister();
    GDALDriver* envi = GetGDALDriverManager()->GetDriverByName("ENVI");
    GDALDatasetUniquePtr ds(envi->Create(path.c_str(), kWidth, kHeight, 1, GDT_Byte, nullptr));
    if (!ds) return false;
    if (!complete) return true;
    GDALRasterBand* band = ds->GetRasterBand(1);
    if (band->RasterIO(GF_Write, 0, 0, kWidth, kHeight, const_cast<GByte*>(kClasses), kWidth, kHeight, GDT_Byte, 0,
                       0, nullptr) != CE_None)
        return false;
    GDALColorTable colours;
    const GDALColorEntry entries[] = {{0, 0, 0, 255}, {255, 0, 0, 255}, {0, 160, 0, 255}, {0, 0, 255, 255}};
    for (int i = 0; i < 4; ++i) colours.SetColorEntry(i, &entries[i]);
    band->SetColorTable(&colours);
    CPLStringList names;
    for (const char* n : {"Unclassified", "Class 1", "Class 2", "Class 3"}) names.AddString(n);
    band->SetCategoryNames(names.List());
    return true;
}

class FakeClassification : public KalAlgo::IKalAlgo {
public:
    bool Execute() override {
        const stInfoClassificationISO* record = boost::any_cast<stInfoClassificationISO>(&m_params);
        if (!record) {
            m_nErrorNo = 100;
            m_strErrorInfo = "Type is Not stInfoClassificationISO!";
            return false;
        }
        DumpRecord(*record);
        const std::string mode = Env("ISODATA_FAKE_MODE");
        const std::string result = record->resultPath.toStdString();
        if (mode == "throw") throw std::runtime_error("fake engine exploded");

        Report(0.0, "ISOData Is Runing...");
        for (double p : {0.0, 50.0, 100.0}) Report(p, "Select Initial Cluster Center");
        for (double p : {0.0, 100.0}) Report(p, "Statistical classification");
        const std::string round1 = "Select Initial Cluster Center1times iteration";
        for (double p : {0.0, 100.0}) Report(p, round1 + "Computing Cluster Center");
        for (double p : {0.0, 100.0}) Report(p, round1 + "2times iterationSplit");
        bool ok = mode == "claim";
        if (mode == "succeed" || mode == "fail") {
            for (double p : {0.0, 100.0}) Report(p, "Generate result file");
            ok = WriteResult(result, mode == "succeed") && mode == "succeed";
        }
        Report(100.0, "");
        return ok;
    }

private:
    void Report(double percent, const std::string& text) { m_sigProgress(percent, QString::fromStdString(text), this); }
};

} // namespace

extern "C" __attribute__((visibility("default"))) KalAlgo::IKalAlgo* GetAlgoObj() { return new FakeClassification(); }
