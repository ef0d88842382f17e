// The engine's plain progress callback and the algorithm object's progress
// signal it feeds.
#include "ISODataClassification.h"
#include "ProgressBridge.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }

namespace {

struct Report {
    double percent;
    QString text;
    void* sender;
};

class ProgressBridgeTest : public ::testing::Test {
protected:
    void Connect(int answer = 0) {
        algorithm.m_sigProgress.connect([this, answer](double percent, const QString& text, void* sender) {
            reports.push_back({percent, text, sender});
            return answer;
        });
    }

    isodata::ISODataClassification algorithm;
    std::vector<Report> reports;
};

TEST_F(ProgressBridgeTest, NullUserDataReturnsZeroAndEmitsNothing) {
    Connect();
    EXPECT_EQ(isodata::ProgressCallback(50.0, "Split", nullptr), 0);
    EXPECT_TRUE(reports.empty());
}

TEST_F(ProgressBridgeTest, ObjectWithoutSlotStillReturnsOne) {
    EXPECT_EQ(isodata::ProgressCallback(50.0, "Split", &algorithm), 1);
}

TEST_F(ProgressBridgeTest, EmitsPercentTextAndTheObjectAsSender) {
    Connect();
    EXPECT_EQ(isodata::ProgressCallback(37.5, "Computing Cluster Center", &algorithm), 1);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_DOUBLE_EQ(reports[0].percent, 37.5);
    EXPECT_EQ(reports[0].text, QStringLiteral("Computing Cluster Center"));
    EXPECT_EQ(reports[0].sender, &algorithm);
}

TEST_F(ProgressBridgeTest, DecodesTextAsUtf8) {
    Connect();
    // "Größe – 分類" written as UTF-8 bytes.
    isodata::ProgressCallback(1.0, "Gr\xC3\xB6\xC3\x9F" "e \xE2\x80\x93 \xE5\x88\x86\xE9\xA1\x9E", &algorithm);
    ASSERT_EQ(reports.size(), 1u);
    const char16_t expected[] = {u'G', u'r', 0x00F6, 0x00DF, u'e', u' ', 0x2013, u' ', 0x5206, 0x985E, 0};
    EXPECT_EQ(reports[0].text, QString::fromUtf16(expected));
}

TEST_F(ProgressBridgeTest, NullTextBecomesEmptyText) {
    Connect();
    EXPECT_EQ(isodata::ProgressCallback(10.0, nullptr, &algorithm), 1);
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_TRUE(reports[0].text.isEmpty());
}

TEST_F(ProgressBridgeTest, SlotAnswerNeverStopsTheRun) {
    Connect(/*answer=*/0);
    EXPECT_EQ(isodata::ProgressCallback(10.0, "Split", &algorithm), 1);
}

} // namespace
