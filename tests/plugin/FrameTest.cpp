// The plug-in frame's own units: Execute's check of the parameter slot, the
// reports of a run that fails, and the band list of the command-style entry.
#include "BandList.h"
#include "ISODataClassification.h"
#include "support/TestSupport.h"

#include <boost/any.hpp>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace {

// Executes the record (or whatever the slot holds) on a fresh object and
// returns its result, the (percent, text) reports and the error number and text.
struct Observed {
    explicit Observed(boost::any params) {
        algorithm.m_sigProgress.connect([this](double percent, const QString& text, void*) {
            reports.emplace_back(percent, text.toStdString());
            return 0;
        });
        algorithm.SetParams(params);
        result = algorithm.Execute();
        QString text;
        algorithm.GetErrorInfo(error, text);
        errorText = text.toStdString();
    }
    isodata::ISODataClassification algorithm;
    bool result = true;
    testsupport::Reports reports;
    int error = -1;
    std::string errorText;
};

TEST(ExecuteTest, SlotWithoutTheRecordIsRefusedWithError100AndNoProgress) {
    // Same members and layout as the record, but another type.
    struct LookAlikeRecord : stInfoClassificationISO {};
    const std::pair<const char*, boost::any> slots[] = {
        {"empty", boost::any()}, {"int", boost::any(42)}, {"look-alike", boost::any(LookAlikeRecord{})}};
    for (const auto& [name, params] : slots) {
        const Observed o(params);
        EXPECT_FALSE(o.result) << name;
        EXPECT_EQ(std::make_pair(o.error, o.errorText), std::make_pair(100, std::string("Type is Not stInfoClassificationISO!")))
            << name;
        EXPECT_TRUE(o.reports.empty()) << name;
    }
}

TEST(ExecuteTest, FailedRunReportsStartThenOneHundredAndCreatesNothing) {
    testsupport::TempDir dir;
    std::ofstream(dir.File("notes.txt")) << "not a raster\n";
    const Observed o(boost::any(
        stInfoClassificationISO{dir.QFile("notes.txt"), dir.QFile("classes.img"), 3, 3, 1, 1, 2, 10.0, 5.0, {0, 1, 2}}));
    EXPECT_FALSE(o.result);
    EXPECT_EQ(o.reports, (testsupport::Reports{{0.0, "ISOData Is Runing..."}, {100.0, ""}}));
    EXPECT_EQ(o.error, 0);  // a failed run is no parameter error
    EXPECT_EQ(dir.List(), std::vector<std::string>{"notes.txt"});
}

TEST(ParseBandListTest, EveryPieceBecomesAnIndexEmptyOrNonNumericOnesZero) {
    const std::pair<std::string, std::vector<std::int32_t>> cases[] = {
        {"2|0|1", {2, 0, 1}}, {"1||3", {1, 0, 3}}, {"", {0}}, {"2|x|5", {2, 0, 5}}, {"4|", {4, 0}}};
    for (const auto& [list, expected] : cases) EXPECT_EQ(isodata::ParseBandList(list), expected) << '"' << list << '"';
}

} // namespace
