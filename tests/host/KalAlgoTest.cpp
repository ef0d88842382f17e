// The algorithm base class's storage and its progress signal.
#include "KalAlgo.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class NullAlgo : public KalAlgo::IKalAlgo {
public:
    NullAlgo() { m_strID = QStringLiteral("null.algo"); }
    bool Execute() override { return true; }
};

class AlgoStorageTest : public ::testing::Test {
protected:
    NullAlgo algo;
};

TEST_F(AlgoStorageTest, NameDescriptionAndIdReadBack) {
    algo.SetName(QStringLiteral("ISODATA"));
    algo.SetDescription(QStringLiteral("unsupervised"));
    EXPECT_EQ(algo.GetName(), QStringLiteral("ISODATA"));
    EXPECT_EQ(algo.GetDescription(), QStringLiteral("unsupervised"));
    EXPECT_EQ(algo.GetID(), QStringLiteral("null.algo"));
}

TEST_F(AlgoStorageTest, ErrorStartsClearAndReadsBackWhatWasSet) {
    int number = -1;
    QString text = QStringLiteral("stale");
    algo.GetErrorInfo(number, text);
    EXPECT_EQ(number, 0);
    EXPECT_TRUE(text.isEmpty());

    algo.SetErrorInfo(7, QStringLiteral("cannot open input"));
    algo.GetErrorInfo(number, text);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(text, QStringLiteral("cannot open input"));
}

TEST_F(AlgoStorageTest, ParamsAreCopiedInAndHandedOutByReference) {
    boost::any params = std::string("record");
    algo.SetParams(params);
    params = 5;  // the stored copy must not follow the caller's object
    ASSERT_EQ(algo.GetParams().type(), typeid(std::string));
    EXPECT_EQ(boost::any_cast<std::string>(algo.GetParams()), "record");

    algo.GetParams() = 3.5;
    EXPECT_EQ(boost::any_cast<double>(algo.GetParams()), 3.5);
}

class ProgressSignalTest : public AlgoStorageTest {};

TEST_F(ProgressSignalTest, WithoutSlotsTheResultIsEmpty) {
    auto result = algo.m_sigProgress(50.0, QStringLiteral("stage"), &algo);
    EXPECT_FALSE(result);
}

TEST_F(ProgressSignalTest, EverySlotSeesTheArgumentsAndTheLastOneDecides) {
    double seenPercent = -1.0;
    QString seenText;
    void* seenSender = nullptr;
    algo.m_sigProgress.connect([&](double percent, const QString& text, void* sender) {
        seenPercent = percent;
        seenText = text;
        seenSender = sender;
        return 1;
    });
    algo.m_sigProgress.connect([](double, const QString&, void*) { return 2; });

    auto result = algo.m_sigProgress(42.5, QStringLiteral("iteration 3"), &algo);
    ASSERT_TRUE(result);
    EXPECT_EQ(*result, 2);
    EXPECT_EQ(seenPercent, 42.5);
    EXPECT_EQ(seenText, QStringLiteral("iteration 3"));
    EXPECT_EQ(seenSender, &algo);
}

TEST(AlgoLifetimeTest, HeldAlgorithmIsDeletedThroughTheBase) {
    static bool destroyed;
    destroyed = false;
    struct Flagging : NullAlgo {
        ~Flagging() override { destroyed = true; }
    };
    KalUtility::_ptr_t<KalAlgo::IKalAlgo> p(new Flagging);
    p.reset();
    EXPECT_TRUE(destroyed);
}

} // namespace
