// The plug-in frame's own units: Execute's check of the parameter slot, the
// reports of a run that fails, the progress bridge, and the band list of the
// command-style entry.
#include "BandList.h"
#include "ISODataClassification.h"
#include "ProgressBridge.h"
#include "support/TestSupport.h"

#include <boost/any.hpp>
#include <gtest/gtest.h>

#include <fstream>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }

namespace {

using Reports = std::vector<std::pair<double, QString>>;

// An algorithm object whose every progress report is recorded.
struct Observed {
    Observed() {
        algorithm.m_sigProgress.connect([this](double percent, const QString& text, void*) {
            reports.emplace_back(percent, text);
            return 0;
        });
    }
    std::pair<int, QString> Error() {
        std::pair<int, QString> error{-1, "not read"};
        algorithm.GetErrorInfo(error.first, error.second);
        return error;
    }

    isodata::ISODataClassification algorithm;
    Reports reports;
};

TEST(ExecuteTest, SlotWithoutTheRecordIsRefusedWithError100AndNoProgress) {
    // Same members and layout as the record, but another type.
    struct LookAlikeRecord : stInfoClassificationISO {};
    const std::pair<const char*, boost::any> slots[] = {
        {"empty", boost::any()}, {"int", boost::any(42)}, {"look-alike", boost::any(LookAlikeRecord{})}};
    for (auto [name, params] : slots) {
        Observed o;
        o.algorithm.SetParams(params);
        EXPECT_FALSE(o.algorithm.Execute()) << name;
        EXPECT_EQ(o.Error(), std::make_pair(100, QStringLiteral("Type is Not stInfoClassificationISO!"))) << name;
        EXPECT_TRUE(o.reports.empty()) << name;
    }
}

TEST(ExecuteTest, FailedRunReportsStartThenOneHundredAndCreatesNothing) {
    testsupport::TempDir dir;
    std::ofstream(dir.File("notes.txt")) << "not a raster\n";
    boost::any params(
        stInfoClassificationISO{dir.QFile("notes.txt"), dir.QFile("classes.img"), 3, 3, 1, 1, 2, 10.0, 5.0, {0, 1, 2}});
    Observed o;
    o.algorithm.SetParams(params);
    EXPECT_FALSE(o.algorithm.Execute());
    EXPECT_EQ(o.reports, (Reports{{0.0, QStringLiteral("ISOData Is Runing...")}, {100.0, QString()}}));
    EXPECT_EQ(o.Error().first, 0);  // a failed run is no parameter error
    EXPECT_EQ(dir.List(), std::vector<std::string>{"notes.txt"});
}

TEST(ProgressCallbackTest, NullUserPointerGivesZeroElseEmitsThroughTheObject) {
    Observed o;
    EXPECT_EQ(isodata::ProgressCallback(50.0, "Split", nullptr), 0);
    EXPECT_TRUE(o.reports.empty());
    EXPECT_EQ(isodata::ProgressCallback(37.5, "Split", &o.algorithm), 1);
    EXPECT_EQ(o.reports, (Reports{{37.5, QStringLiteral("Split")}}));
}

TEST(ParseBandListTest, EveryPieceBecomesAnIndexEmptyOrNonNumericOnesZero) {
    const std::pair<std::string, std::vector<std::int32_t>> cases[] = {
        {"2|0|1", {2, 0, 1}}, {"1||3", {1, 0, 3}}, {"", {0}}, {"2|x|5", {2, 0, 5}}, {"4|", {4, 0}}};
    for (const auto& [list, expected] : cases) EXPECT_EQ(isodata::ParseBandList(list), expected) << '"' << list << '"';
}

} // namespace
