// Reference counting of host objects, on which every host object's lifetime
// rests (a miscount is a leak or a use after free), and the progress signal's
// default combiner, which the run driver fires with and without slots.
#include "KalAlgo.h"
#include "KalUtility.h"

#include <gtest/gtest.h>

#include <utility>

using KalUtility::_ptr_t;

namespace {

struct Tracked : KalUtility::CRef {
    explicit Tracked(bool* destroyed) : destroyed_(destroyed) {}
    ~Tracked() override { *destroyed_ = true; }
    bool* destroyed_;
};

TEST(RefCountingTest, CopiesCountMovesDoNotAndTheLastReleaseDeletes) {
    bool destroyed = false;
    _ptr_t<Tracked> a(new Tracked(&destroyed));
    {
        _ptr_t<Tracked> b = a, c;
        c = b;
        _ptr_t<Tracked> d(std::move(c));
        EXPECT_FALSE(c);
        EXPECT_EQ(a->RefCount(), 3);
    }
    EXPECT_EQ(a->RefCount(), 1);
    a = a;  // self-assignment must not release first
    EXPECT_FALSE(destroyed);
    _ptr_t<Tracked> moved;
    moved = std::move(a);
    EXPECT_EQ(moved->RefCount(), 1);
    moved.reset();
    EXPECT_TRUE(destroyed);
}

TEST(RefCountingTest, ReassignedAndDownCastPointersReleaseThroughTheBase) {
    bool first = false, second = false;
    _ptr_t<KalUtility::CRef> base(new Tracked(&first));
    base = _ptr_t<KalUtility::CRef>(new Tracked(&second));
    EXPECT_TRUE(first);  // the derived destructor ran through the base
    _ptr_t<Tracked> derived = KalUtility::dynamic_ptr_cast<Tracked>(base);
    ASSERT_TRUE(derived);
    base.reset();
    EXPECT_FALSE(second);
    derived.reset();
    EXPECT_TRUE(second);
}

TEST(ProgressSignalTest, EmptyWithoutSlotsElseTheLastSlotsValue) {
    struct NullAlgo : KalAlgo::IKalAlgo {
        bool Execute() override { return true; }
    } algo;
    EXPECT_FALSE(algo.m_sigProgress(50.0, QStringLiteral("stage"), &algo));
    algo.m_sigProgress.connect([](double, const QString&, void*) { return 1; });
    algo.m_sigProgress.connect([](double, const QString&, void*) { return 2; });
    const auto result = algo.m_sigProgress(42.5, QStringLiteral("iteration 3"), &algo);
    ASSERT_TRUE(result);
    EXPECT_EQ(*result, 2);
}

} // namespace
