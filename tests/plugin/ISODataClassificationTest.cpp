// Execute of the algorithm object: it refuses a parameter slot that does not
// hold the classification record, and a run that fails still ends at 100 %
// without touching the error info.
#include "ISODataClassification.h"
#include "support/TestSupport.h"

#include <boost/any.hpp>
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <ostream>
#include <vector>

void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }

namespace {

using testsupport::TempDir;

// Same members in the same order as the record, but a type of its own.
struct LookAlikeRecord {
    QString inputPath = QString("");
    QString resultPath = QString("");
    std::int32_t desiredClassCount = 0;
    std::int32_t initialClassCount = 0;
    std::int32_t minClassPixels = 0;
    std::int32_t maxMergePairs = 0;
    std::int32_t maxIterations = 0;
    double stdDevThreshold = 0.0;
    double mergeDistanceThreshold = 0.0;
    std::vector<std::int32_t> bandIndices;
    QString auxText1 = QString("");
    std::int64_t auxValue = 0;
    QString auxText2 = QString("");
};

class ExecuteTest : public ::testing::Test {
protected:
    ExecuteTest() {
        algorithm.m_sigProgress.connect([this](double percent, const QString& text, void* sender) {
            reports.emplace_back(percent, text);
            senders.push_back(sender);
            return 0;
        });
    }

    void Store(boost::any value) { algorithm.SetParams(value); }

    std::pair<int, QString> Error() {
        int number = -1;
        QString text = QStringLiteral("not read");
        algorithm.GetErrorInfo(number, text);
        return {number, text};
    }

    stInfoClassificationISO RecordFor(const std::string& input) {
        stInfoClassificationISO record;
        record.inputPath = QString::fromStdString(input);
        record.resultPath = dir.QFile("classes.img");
        record.desiredClassCount = 3;
        record.initialClassCount = 3;
        record.minClassPixels = 1;
        record.maxMergePairs = 1;
        record.maxIterations = 2;
        record.stdDevThreshold = 10.0;
        record.mergeDistanceThreshold = 5.0;
        record.bandIndices = {0, 1, 2};
        return record;
    }

    TempDir dir;
    isodata::ISODataClassification algorithm;
    std::vector<std::pair<double, QString>> reports;
    std::vector<void*> senders;
};

// ---- the parameter slot's type ----

struct SlotCase {
    const char* name;
    std::function<boost::any()> make;
};
void PrintTo(const SlotCase& c, std::ostream* os) { *os << c.name; }

class WrongSlotTest : public ExecuteTest, public ::testing::WithParamInterface<SlotCase> {};

TEST_P(WrongSlotTest, IsRefusedWithError100AndNoProgress) {
    Store(GetParam().make());
    EXPECT_FALSE(algorithm.Execute());
    const auto [number, text] = Error();
    EXPECT_EQ(number, 100);
    EXPECT_EQ(text, QStringLiteral("Type is Not stInfoClassificationISO!"));
    EXPECT_TRUE(reports.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Slots, WrongSlotTest,
    ::testing::Values(SlotCase{"Empty", [] { return boost::any(); }},
                      SlotCase{"Int", [] { return boost::any(42); }},
                      SlotCase{"LookAlikeStruct", [] { return boost::any(LookAlikeRecord{}); }},
                      SlotCase{"PointerToRecord",
                               [] {
                                   static stInfoClassificationISO record;
                                   return boost::any(&record);
                               }}),
    [](const ::testing::TestParamInfo<SlotCase>& info) { return std::string(info.param.name); });

// ---- a run that fails ----

class FailedRunTest : public ExecuteTest {
protected:
    void SetUp() override {
        std::ofstream(dir.File("notes.txt")) << "not a raster\n";
        boost::any params(RecordFor(dir.File("notes.txt")));
        algorithm.SetParams(params);
    }
};

TEST_F(FailedRunTest, ReturnsFalseAndLeavesErrorInfoAtItsDefault) {
    EXPECT_FALSE(algorithm.Execute());
    EXPECT_EQ(Error(), std::make_pair(0, QString()));
}

TEST_F(FailedRunTest, LeavesAnEarlierErrorInfoUnchanged) {
    algorithm.SetErrorInfo(7, QStringLiteral("earlier"));
    EXPECT_FALSE(algorithm.Execute());
    EXPECT_EQ(Error(), std::make_pair(7, QStringLiteral("earlier")));
}

TEST_F(FailedRunTest, ReportsStartThenOneHundredWithEmptyText) {
    EXPECT_FALSE(algorithm.Execute());
    const std::vector<std::pair<double, QString>> expected = {{0.0, QStringLiteral("ISOData Is Runing...")},
                                                              {100.0, QString()}};
    EXPECT_EQ(reports, expected);
    for (void* sender : senders) EXPECT_EQ(sender, &algorithm);
}

TEST_F(FailedRunTest, CreatesNoFile) {
    EXPECT_FALSE(algorithm.Execute());
    EXPECT_EQ(dir.List(), std::vector<std::string>{"notes.txt"});
}

} // namespace
